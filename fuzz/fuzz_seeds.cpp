// fuzz_seeds FOLDER: writes FOLDER/TARGET/NAME, the inputs that the binary targets begin with, from the
// project's own writers of packets, samples and bodies. Text seeds are in fuzz/corpus.
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>

#include "audio/audio_sample_packet.h"
#include "fuzzing.h"
#include "messaging/messaging_compression.h"
#include "support/packet_builder.h"

namespace cv::fuzz {
namespace {

/// FuzzedDataProvider the other way round: each operation writes what the one of its name reads. (Bytes
/// are taken from the front, numbers from the end.)
class SeedWriter {
 public:
  SeedWriter& number(uint64_t value, uint64_t least, uint64_t most) {
    int bytes = 0;
    while (bytes < 8 && (most - least) >> (8 * bytes) > 0) ++bytes;
    for (int i = bytes; i > 0; --i) {
      m_tail.push_back(static_cast<unsigned char>((value - least) >> (8 * (i - 1))));
    }
    return *this;
  }
  SeedWriter& byte(uint8_t value) { return number(value, 0, 255); }
  template <typename Range>
  SeedWriter& bytes(const Range& range) {
    m_head.insert(m_head.end(), std::begin(range), std::end(range));
    return *this;
  }
  /// For take_bytes().
  template <typename Range>
  SeedWriter& sized_bytes(const Range& range, std::size_t most) {
    return number(std::size(range), 0, most).bytes(range);
  }

  void save(const std::string& path) const {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(m_head.data()),
               static_cast<std::streamsize>(m_head.size()));
    const Bytes tail(m_tail.rbegin(), m_tail.rend());
    file.write(reinterpret_cast<const char*>(tail.data()),
               static_cast<std::streamsize>(tail.size()));
    if (!file.flush()) throw std::runtime_error("cannot write " + path);
  }

 private:
  Bytes m_head;
  Bytes m_tail;
};

std::vector<int16_t> tones(std::size_t count) {
  std::vector<int16_t> samples(count);
  for (std::size_t n = 0; n < count; ++n) {
    const double tone = static_cast<double>(300 + n / 256 * 119 % 2500);
    samples[n] = static_cast<int16_t>(6000 * std::sin(tone * static_cast<double>(n) / 1273.0));
  }
  return samples;
}

Bytes little_endian(const std::vector<int16_t>& samples) {
  Bytes bytes;
  for (const int16_t sample : samples) {
    bytes.push_back(static_cast<unsigned char>(sample));
    bytes.push_back(static_cast<unsigned char>(sample >> 8));
  }
  return bytes;
}

class CallSeed : public SeedWriter {
 public:
  explicit CallSeed(uint8_t setting) { byte(setting); }

  void pass_time(uint32_t ms) { action(0).number(ms, 0, 1000000); }
  void idle() { action(1); }
  void send(const media::Datagram& datagram) { action(3).sized_bytes(datagram, 1400); }
  void play(uint8_t call, uint8_t side) {
    action(6).number(call, 1, 12).number(side, 0, 1).number(0, 0, 40).number(50, 1, 50);
  }

 private:
  SeedWriter& action(uint8_t which) { return number(which, 0, 8); }
};

/// Two calls that hear what the rule looks for, one of which ends and the other is given up.
void write_calls(const std::string& folder) {
  media::StartFields fields;
  fields.features = media::features_sample_detection | media::features_activity_detection;
  fields.flags = media::StartPacket::flag_rule;
  fields.rule = 7;
  fields.call_id = "a call";
  for (const uint8_t setting : Bytes{0, 1, 254}) {
    CallSeed seed(setting);
    const test::CallPackets first(1);
    const test::CallPackets second(2);
    seed.send(first.start(fields));
    seed.send(second.data(0, 9, tones(160)));
    seed.send(second.start(fields, 1000));
    seed.play(1, 0);
    seed.play(2, 1);
    seed.send(first.feature_update(0));
    seed.send(first.feature_update(0x3C));
    seed.send(first.control(3));
    seed.send(first.terminate());
    seed.pass_time(301000);
    seed.idle();
    seed.save(folder + "/datagrams/calls_" + std::to_string(setting));
  }
  CallSeed seed(0);
  for (uint8_t call = 1; call <= 12; ++call) seed.send(test::CallPackets(call).control(1));
  seed.pass_time(300000);
  seed.idle();
  seed.idle();
  seed.save(folder + "/datagrams/zombies");
}

void write_bodies(const std::string& folder) {
  std::string entries;
  for (int i = 0; i < 60; ++i) entries += R"({"rule_id":1,"sample_id":)" + std::to_string(i) + "},";
  const Bytes plain(entries.begin(), entries.end());
  SeedWriter()
      .byte(0)
      .bytes(messaging::compress_bounded(plain))
      .save(folder + "/compression/alike");
  SeedWriter().byte(200).bytes(std::string("0123456789")).save(folder + "/compression/repeated");
  const auto noise = little_endian(tones(100));
  SeedWriter()
      .byte(0)
      .bytes(messaging::compress_bounded(noise))
      .save(folder + "/compression/noise");
}

/// One sample of 60 points, heard whole twice, with other sounds between.
void write_matching(const std::string& folder) {
  SeedWriter seed;
  seed.number(0, 0, 7).number(1, 1, 6);  // drift, samples
  seed.number(3, 0, 9).number(5, 0, 7);  // threshold, identifier
  seed.number(60, 0, 120);               // points
  for (uint8_t i = 0; i < 60; ++i) seed.number(i * 7 % 64, 0, 63).byte(0);
  for (int turn = 0; turn < 2; ++turn) {
    for (uint8_t i = 0; i < 20; ++i) seed.byte(0).byte(i);
    seed.byte(0).byte(64).number(0, 0, 119).byte(60);
  }
  seed.save(folder + "/matcher/heard_twice");
}

void write_samples(const std::string& folder) {
  std::vector<audio::HashPoint> points;
  for (uint32_t i = 0; i < 30; ++i) points.push_back({i % 7, i * i * 1000});
  SeedWriter seed;
  seed.number(0, 0, 7).number(2, 0, 10);  // a configuration of two samples in one rule
  for (const uint8_t id : Bytes{0, 1}) seed.number(id, 0, 5).number(4, 0, 24).number(1, 0, 2);
  seed.number(2, 0, 7).number(0, 0, 5).number(0, 0, 3);
  seed.sized_bytes(audio::write_sample_packet(points), 300);
  seed.number(2, 0, 7).number(1, 0, 5).number(1, 0, 3);
  seed.sized_bytes(little_endian(tones(1500)), 4000).number(1, 0, 1);
  seed.number(1, 0, 7);
  seed.save(folder + "/samples/two_samples");
}

void write_sounds(const std::string& folder) {
  SeedWriter seed;
  seed.number(4, 1, 8).number(160, 1, 700);
  seed.number(600, 1, 600).number(0, 0, 3).sized_bytes(little_endian(tones(600)), 1200);
  const auto full_scale = static_cast<uint16_t>(std::numeric_limits<int16_t>::max());
  seed.number(300, 1, 600).number(2, 0, 3).number(full_scale, 0, 65535).number(0, 0, 65535);
  seed.number(9, 1, 255).number(600, 1, 600).number(3, 0, 3);
  seed.save(folder + "/spectrum/tones_and_square");
}

}  // namespace
}  // namespace cv::fuzz

int main(int count, char** words) {
  if (count != 2) {
    std::fputs("usage: fuzz_seeds FOLDER\n", stderr);
    return 2;
  }
  const std::string folder = words[1];
  cv::fuzz::write_calls(folder);
  cv::fuzz::write_bodies(folder);
  cv::fuzz::write_matching(folder);
  cv::fuzz::write_samples(folder);
  cv::fuzz::write_sounds(folder);
  return 0;
}
