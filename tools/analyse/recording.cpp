#include "tools/analyse/recording.h"

#include <filesystem>
#include <utility>

#include "tools/audio_file.h"
#include "tools/configd/file_watcher.h"
#include "tools/crc64.h"

namespace cv::tools {

namespace {

std::optional<Recording> read_files(const std::vector<std::string>& files, std::size_t mono_side,
                                    std::string& error) {
  Recording recording;
  recording.name = files.front();
  const std::size_t max_channels = files.size() == 1 ? 2 : 1;
  std::size_t side = 0;
  for (const std::string& file : files) {
    auto channels = read_channels(file, max_channels, error);
    if (channels && channels->front().empty()) error = "there is no audio in it";
    if (!error.empty()) {
      error.insert(0, file + ": ");
      return std::nullopt;
    }
    if (files.size() == 1 && channels->size() == 1) side = mono_side;
    for (auto& samples : *channels) {
      recording.sides[side] = std::move(samples);
      recording.there[side++] = true;
    }
  }
  return recording;
}

}  // namespace

RecordingSource file_source(const std::vector<std::string>& files, std::size_t mono_side) {
  return {files.front(), [=](std::string& error) { return read_files(files, mono_side, error); }};
}

bool find_recordings(const std::string& path, std::size_t mono_side,
                     std::vector<RecordingSource>& sources, std::string& error) {
  std::error_code no_status;
  if (!std::filesystem::is_directory(path, no_status)) {
    sources.push_back(file_source({path}, mono_side));
    return true;
  }
  const auto found = FileWatcher(path, {}).look();
  error = found.error;
  if (error.empty() && found.changed.empty()) error = path + ": there is no recording in it";
  for (const std::string& file : found.changed) {
    sources.push_back(file_source({(std::filesystem::path(path) / file).string()}, mono_side));
  }
  return error.empty();
}

media::Uuid recording_uuid(const std::string& name) {
  const uint64_t sum = crc64(name);
  media::Uuid uuid{};
  for (std::size_t i = 0; i < 4; ++i) {
    uuid[i] = static_cast<uint8_t>(sum >> (56 - 8 * i));
    uuid[12 + i] = static_cast<uint8_t>(sum >> (24 - 8 * i));
  }
  uuid[6] = 0x80;
  uuid[8] = 0x80;
  return uuid;
}

}  // namespace cv::tools
