#include "tools/evaluate/sound_codec.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <sndfile.h>
#include <stdexcept>
#include <string>

#include "tools/audio_file.h"

namespace cv::tools {

namespace {

/// A file in memory, for libsndfile.
struct MemoryFile {
  std::vector<char> bytes;
  std::size_t position = 0;

  static MemoryFile& of(void* user) { return *static_cast<MemoryFile*>(user); }

  static sf_count_t length(void* user) { return static_cast<sf_count_t>(of(user).bytes.size()); }
  static sf_count_t tell(void* user) { return static_cast<sf_count_t>(of(user).position); }

  static sf_count_t seek(sf_count_t offset, int whence, void* user) {
    MemoryFile& file = of(user);
    sf_count_t from = 0;
    if (whence == SEEK_CUR) from = tell(user);
    if (whence == SEEK_END) from = length(user);
    file.position = static_cast<std::size_t>(std::max<sf_count_t>(0, from + offset));
    return tell(user);
  }

  static sf_count_t read(void* to, sf_count_t count, void* user) {
    MemoryFile& file = of(user);
    const std::size_t begin = std::min(file.position, file.bytes.size());
    const std::size_t size = std::min(static_cast<std::size_t>(count), file.bytes.size() - begin);
    std::memcpy(to, file.bytes.data() + begin, size);
    file.position = begin + size;
    return static_cast<sf_count_t>(size);
  }

  static sf_count_t write(const void* from, sf_count_t count, void* user) {
    MemoryFile& file = of(user);
    const auto size = static_cast<std::size_t>(count);
    file.bytes.resize(std::max(file.bytes.size(), file.position + size));
    std::memcpy(file.bytes.data() + file.position, from, size);
    file.position += size;
    return count;
  }
};

using SoundStream = std::unique_ptr<SNDFILE, decltype(&sf_close)>;

SoundStream open_memory(MemoryFile& file, int mode, int subtype) {
  SF_VIRTUAL_IO calls{&MemoryFile::length, &MemoryFile::seek, &MemoryFile::read, &MemoryFile::write,
                      &MemoryFile::tell};
  SF_INFO info{};
  info.samplerate = audio_rate_hz;
  info.channels = 1;
  info.format = SF_FORMAT_RAW | subtype;
  file.position = 0;
  SoundStream sound(sf_open_virtual(&calls, mode, &info, &file), &sf_close);
  if (!sound) throw std::runtime_error(std::string("libsndfile: ") + sf_strerror(nullptr));
  return sound;
}

int subtype_of(SoundCodec codec) {
  switch (codec) {
    case SoundCodec::mulaw:
      return SF_FORMAT_ULAW;
    case SoundCodec::alaw:
      return SF_FORMAT_ALAW;
    case SoundCodec::gsm:
      break;
  }
  return SF_FORMAT_GSM610;
}

}  // namespace

std::vector<int16_t> through_codec(const std::vector<int16_t>& samples, SoundCodec codec) {
  MemoryFile file;
  const int subtype = subtype_of(codec);
  const auto count = static_cast<sf_count_t>(samples.size());
  if (sf_write_short(open_memory(file, SFM_WRITE, subtype).get(), samples.data(), count) != count) {
    throw std::runtime_error("libsndfile: the encoder took only part of the audio");
  }
  std::vector<int16_t> decoded(samples.size());
  if (sf_read_short(open_memory(file, SFM_READ, subtype).get(), decoded.data(), count) != count) {
    throw std::runtime_error("libsndfile: the decoder gave less audio than was encoded");
  }
  return decoded;
}

std::vector<int16_t> decode_sound(const std::vector<unsigned char>& bytes, SoundCodec codec) {
  MemoryFile file{{bytes.begin(), bytes.end()}};
  const SoundStream sound = open_memory(file, SFM_READ, subtype_of(codec));
  std::vector<int16_t> samples;
  std::vector<int16_t> block(4096);
  while (const sf_count_t count =
             sf_read_short(sound.get(), block.data(), static_cast<sf_count_t>(block.size()))) {
    if (count < 0) break;
    samples.insert(samples.end(), block.begin(), block.begin() + count);
  }
  return samples;
}

}  // namespace cv::tools
