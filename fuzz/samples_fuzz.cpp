// Sample packets, made and raw, into the node's database, which is then looked up and matched. The hash
// databases must hold exactly what the packets said, in their order, and a stream that repeats what a
// sample consists of must be matched without harm, whatever the offsets.
#include <map>

#include "audio/audio_fingerprint.h"
#include "audio/audio_sample_packet.h"
#include "audio/audio_samples_detector.h"
#include "fuzzing.h"
#include "medianode/database_dispatcher.h"
#include "support/fake_clock.h"
#include "support/plain_samples_detector.h"

namespace cv::fuzz {
namespace {

using Points = std::vector<audio::HashPoint>;

constexpr uint32_t most_samples = 6;
constexpr uint64_t most_rules = 3;

/// The rules and the samples, in the plainest form.
struct Contents {
  std::map<uint64_t, std::map<uint32_t, double>> rules;  // thresholds by sample
  std::map<uint32_t, Points> payloads;

  bool uses(uint32_t sample) const {
    return std::any_of(rules.begin(), rules.end(),
                       [&](const auto& rule) { return rule.second.count(sample) != 0; });
  }
  bool complete() const {
    return std::all_of(rules.begin(), rules.end(), [&](const auto& rule) {
      return std::all_of(rule.second.begin(), rule.second.end(),
                         [&](const auto& use) { return payloads.count(use.first) != 0; });
    });
  }
};

uint32_t word(const Bytes& bytes, std::size_t at) {
  return bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 |
         static_cast<uint32_t>(bytes[at + 3]) << 24;
}

/// The points of a packet; false when it is to be refused.
bool read_plainly(const Bytes& bytes, Points& points) {
  if (bytes.size() < 8 || bytes[0] != 'G' || bytes[1] != 'H') return false;
  const uint64_t count = word(bytes, 4);
  if (bytes.size() < 8 + 8 * count || bytes[2] != 0 || bytes[3] != 0) return false;
  for (std::size_t at = 8; at < 8 + 8 * count; at += 8) {
    points.push_back({word(bytes, at + 4), word(bytes, at)});
  }
  return true;
}

class Node {
 public:
  void configure(FuzzedDataProvider& input) {
    mn::SampleConfig config(++m_version);
    m_received.rules.clear();
    const unsigned entries = input.ConsumeIntegralInRange<uint8_t>(0, 10);
    for (unsigned i = 0; i < entries; ++i) {
      rc_ptr<audio::SampleMetadata> sample(new audio::SampleMetadata);
      sample->id = input.ConsumeIntegralInRange<uint8_t>(0, most_samples - 1);
      sample->threshold = input.ConsumeIntegralInRange<uint8_t>(0, 24) / 4.0;
      const uint64_t rule = input.ConsumeIntegralInRange<uint8_t>(0, most_rules - 1);
      config.add(rule, sample);
      m_received.rules[rule].try_emplace(sample->id, sample->threshold);
    }
    std::unordered_set<uint32_t>* missing = nullptr;
    m_databases.on_config_received(config, missing);
    // What the new configuration has no use for is dropped.
    std::erase_if(m_received.payloads,
                  [&](const auto& payload) { return !m_received.uses(payload.first); });
    m_configured = true;
    m_waiting = true;
    build_if(m_received.complete());
  }

  void receive(uint32_t sample_id, const Bytes& bytes) {
    audio::SamplePacket packet;
    const bool parsed = audio::SamplePacket::parse(bytes.data(), bytes.size(), packet) ==
                        audio::SamplePacket::Status::Ok;
    const bool taken = parsed && m_databases.on_sample_received(sample_id, packet);
    Points points;
    FUZZ_CHECK(taken == read_plainly(bytes, points));
    if (!taken || !m_configured) return;
    m_received.payloads[sample_id] = points;
    build_if(m_received.complete());
  }

  /// Five seconds without a sample: what is there is built, unless it was before.
  void pass_time() {
    m_clock.advance_seconds(5);
    m_databases.on_event_timeout();
    build_if(m_waiting);
  }

  void check_all() {
    for (uint64_t rule = 0; rule < most_rules; ++rule) {
      uint64_t version = 0;
      const auto database = m_databases.get_hash_database(rule, version);
      FUZZ_CHECK(static_cast<bool>(database) == (m_built.rules.count(rule) != 0));
      if (database) check(*database, m_built.rules.at(rule));
      if (database) match(database);
    }
  }

 private:
  void build_if(bool due) {
    if (!due) return;
    m_built = m_received;
    m_waiting = false;
  }

  void check(const audio::HashDatabase& database, const std::map<uint32_t, double>& samples) {
    std::map<uint32_t, std::vector<std::pair<uint32_t, uint32_t>>> index;
    std::size_t entries = 0;
    for (const auto& [id, threshold] : samples) {
      const auto payload = m_built.payloads.find(id);
      const bool usable = payload != m_built.payloads.end() && !payload->second.empty();
      FUZZ_CHECK(static_cast<bool>(database.sample(id).metadata) == usable);
      if (!usable) continue;
      FUZZ_CHECK(database.sample(id).metadata->threshold == threshold);
      FUZZ_CHECK(database.sample(id).payload->points == payload->second);
      for (const auto& point : payload->second) index[point.hash].push_back({id, point.offset});
      entries += payload->second.size();
    }
    FUZZ_CHECK(database.hash_count() == index.size() && database.entry_count() == entries);
    for (const auto& [hash, expected] : index) {
      std::size_t at = 0;
      for (const audio::HashDatabaseEntry entry : database.entries(hash)) {
        FUZZ_CHECK(at < expected.size() && expected[at].first == entry.sample_id &&
                   expected[at].second == entry.offset);
        ++at;
      }
      FUZZ_CHECK(at == expected.size());
    }
  }

  /// Each sample heard once, in the order of its points.
  void match(const rc_ptr<audio::HashDatabase>& database) {
    audio::SamplesDetector detector;
    detector.set_database(database);
    test::MatchCollector found;
    for (uint32_t i = 0; i < database->sample_count(); ++i) {
      for (const auto& point : database->sample_at(i).payload->points) {
        detector.handle_hash({point.hash, point.offset + 1000 * i}, found, nullptr);
      }
    }
    std::vector<audio::Match> matches;
    detector.get_match(matches);
    for (const audio::Match& match : matches) FUZZ_CHECK(match.score >= match.sample->threshold);
    for (const audio::Match& match : found.matches) {
      FUZZ_CHECK(match.score >= match.sample->threshold);
    }
  }

  test::FakeClock m_clock;
  mn::DatabaseDispatcher m_databases{m_clock};
  uint64_t m_version = 0;
  bool m_configured = false;
  bool m_waiting = false;
  Contents m_received;
  Contents m_built;
};

Bytes packet_of(FuzzedDataProvider& input) {
  switch (input.ConsumeIntegralInRange<uint8_t>(0, 3)) {
    case 0:
      return take_bytes(input, 300);
    case 1: {
      const auto samples = take_samples(input, 2000);
      return audio::write_sample_packet(audio::fingerprint(samples, input.ConsumeBool() ? 4 : 1));
    }
    default: {
      // Frames that go up or anywhere, points given twice.
      Points points;
      uint32_t frame = 0;
      for (unsigned n = input.ConsumeIntegral<uint8_t>(); n > 0; --n) {
        const uint8_t step = input.ConsumeIntegral<uint8_t>();
        frame = step == 255 ? input.ConsumeIntegral<uint32_t>() : frame + step % 4;
        points.push_back({step % 16u, frame});
      }
      return audio::write_sample_packet(points);
    }
  }
}

}  // namespace
}  // namespace cv::fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace cv::fuzz;
  FuzzedDataProvider input(data, size);
  Node node;
  for (unsigned turns = 0; turns < 20 && input.remaining_bytes() > 0; ++turns) {
    const uint8_t action = input.ConsumeIntegralInRange<uint8_t>(0, 7);
    if (action == 0) {
      node.configure(input);
    } else if (action == 1) {
      node.pass_time();
      node.check_all();
    } else {
      node.receive(input.ConsumeIntegralInRange<uint8_t>(0, most_samples - 1), packet_of(input));
    }
  }
  node.pass_time();
  node.check_all();
  return 0;
}
