// Datagrams, whole, damaged and raw, and steps of the clock, through the packet reader and the analysis
// pipeline. Every counter must be what a plain model of the tables of calls says, every report must be
// JSON, and nobody may read behind the datagram.
#include <cmath>
#include <memory>
#include <sanitizer/asan_interface.h>

#include "fuzzing.h"
#include "log/log.h"
#include "support/pipeline.h"
#include "support/plain_calls.h"
#include "support/stepped_reader.h"
#include "utils/utils_json.h"

namespace cv::fuzz {
namespace {

constexpr uint64_t known_rule = 7;
constexpr std::size_t most_datagrams = 2000;

/// Passes packets on with the rest of their pooled buffer out of bounds.
class Fence final : public media::PacketReaderListener, public media::PacketLookAhead {
 public:
  void on_packet(media::StartPacket& packet) override {
    pass(packet, sizeof packet + packet.call_id_length);
  }
  void on_packet(media::TerminatePacket& packet) override { pass(packet, sizeof packet); }
  void on_packet(media::DataPacket& packet) override {
    pass(packet, sizeof packet + 2u * packet.num);
  }
  void on_packet(media::ControlPacket& packet) override {
    pass(packet, sizeof packet + (packet.is_feature_update() ? 1 : 0));
  }
  void on_packet_try() override { manager->on_packet_try(); }
  bool on_packet_idle() override { return manager->on_packet_idle(); }
  void on_packet_ahead(const media::DataPacket& packet, Stage stage) override {
    manager->on_packet_ahead(packet, stage);
  }

  media::SessionManager* manager = nullptr;

 private:
  template <typename Packet>
  void pass(Packet& packet, std::size_t size) {
    unsigned char* end = reinterpret_cast<unsigned char*>(&packet) + size;
    ASAN_POISON_MEMORY_REGION(end, media::max_packet_bytes - size);
    manager->on_packet(packet);
    ASAN_UNPOISON_MEMORY_REGION(end, media::max_packet_bytes - size);
  }
};

/// The reader with its long queue: made once, used for one input after the other.
struct Reader {
  static Reader& fresh(media::SessionManager& manager) {
    static Reader& reader = *new Reader;
    std::destroy_at(&reader.counters);
    std::construct_at(&reader.counters);
    reader.fence.manager = &manager;
    return reader;
  }

  media::PacketReaderStatistic counters;
  Fence fence;
  test::SteppedReader stepped{counters, fence, &fence};
};

/// A second of tones that change, of which each frame has a point.
const std::vector<int16_t>& known_sound() {
  static const std::vector<int16_t> sound = [] {
    std::vector<int16_t> samples(8000);
    for (std::size_t n = 0; n < samples.size(); ++n) {
      const double tone = static_cast<double>(200 + n / 400 * 137 % 3000);
      samples[n] = static_cast<int16_t>(8000 * std::sin(tone * static_cast<double>(n) / 1273.0));
    }
    return samples;
  }();
  return sound;
}

/// What a node has from its configuration: made once, for the pipelines of all inputs.
struct Site : test::Pipeline {
  explicit Site(bool reports_at_termination) {
    configuration->report_on_call_termination = reports_at_termination;
    dead_air.on_dead_air_config(new mn::DeadAirConfig(1, {}));
    publish(1, known_rule, {{1, "known", audio::fingerprint(known_sound(), 4)}});
  }
};

Site& site(bool reports_at_termination) {
  static Site sites[] = {Site(false), Site(true)};
  return sites[reports_at_termination];
}

class Node {
 public:
  Node(bool reports_at_termination, std::size_t session_limit)
      : m_site(site(reports_at_termination)) {
    m_pipeline.manager().set_session_limit(session_limit);
    m_expected.limit = session_limit;
  }

  void send(const media::Datagram& datagram) {
    if (m_sent == most_datagrams) return;
    ++m_sent;
    // A copy of its own size: reading behind it is seen.
    const Bytes copy(datagram.begin(), datagram.end());
    m_reader.stepped.read_from(copy.data(), copy.size());
    m_waiting.push_back(copy);
  }

  /// The reader's turn until nothing waits.
  void drain() {
    for (const Bytes& datagram : m_waiting) m_expected.deliver(datagram, now_us());
    m_waiting.clear();
    do m_reader.stepped.step();
    while (m_reader.counters.elements.get() > 0);
  }

  void idle() {
    m_reader.stepped.on_queue_idle();
    m_expected.idle(now_us());
  }

  void advance_ms(uint32_t by_ms) { m_clock.advance_us(int64_t{1000} * by_ms); }

  void check() {
    drain();
    FUZZ_CHECK(
        m_expected.agrees(m_reader.counters, m_statistic, m_pipeline.manager().refused_sessions()));
    const auto& counters = m_reader.counters;
    FUZZ_CHECK(counters.dropped.get() == 0 && counters.failed_allocation.get() == 0);
    FUZZ_CHECK(counters.passed.get() + counters.min_length.get() + counters.max_length.get() ==
               m_sent);
    FUZZ_CHECK(m_statistic.streams_allocation_errors.get() == 0);
    for (const std::string& report : m_site.reports.texts()) {
      if (report.empty()) continue;  // nothing was found in the call
      FUZZ_CHECK(!rapidjson::Document().Parse(report.c_str()).HasParseError());
    }
  }

 private:
  uint64_t now_us() const { return static_cast<uint64_t>(m_clock.now_us()); }

  Site& m_site;
  test::FakeClock m_clock;
  media::StreamManagerStatistic m_statistic;
  mn::MediaPipeline m_pipeline{m_site.configuration, m_site.database, m_site.dead_air,
                               m_site.reports,       m_statistic,     m_clock};
  Reader& m_reader = Reader::fresh(m_pipeline.manager());
  std::vector<Bytes> m_waiting;
  std::size_t m_sent = 0;
  test::PlainCalls m_expected;
};

/// So many calls that the reader begins to look ahead. For few inputs: it takes long.
void send_crowd(Node& node) {
  for (uint64_t id = 1; id <= media::SessionManager::look_ahead_sessions; ++id) {
    node.send(test::CallPackets(id, {}).start());
  }
}

/// Makes the datagrams that the input describes.
class Source {
 public:
  Source(FuzzedDataProvider& input, Node& node) : m_input(input), m_node(node) {}

  void act() {
    enum Action : uint8_t { step, idle, drain, raw, start, data, play, control, end, last };
    switch (m_input.ConsumeIntegralInRange<uint8_t>(0, last - 1)) {
      case step:
        return m_node.advance_ms(m_input.ConsumeIntegralInRange<uint32_t>(0, 1000000));
      case idle:
        m_node.drain();
        return m_node.idle();
      case drain:
        return m_node.drain();
      case raw:
        return m_node.send(take_bytes(m_input, 1400));
      case start:
        return send_damaged(call().start(start_fields(), mt_us()));
      case data:
        return send_damaged(call().data(side(), seq(), take_samples(m_input, 663), mt_us()));
      case play:
        return send_sound();
      case control:
        return send_damaged(m_input.ConsumeBool() ? call().feature_update(features(), mt_us())
                                                  : call().control(byte(), mt_us()));
      case end:
        return send_damaged(call().terminate(mt_us()));
    }
  }

 private:
  uint8_t byte() { return m_input.ConsumeIntegral<uint8_t>(); }
  uint8_t features() { return byte(); }
  uint16_t side() { return m_input.ConsumeIntegralInRange<uint8_t>(0, 1); }
  test::CallPackets call() {
    return test::CallPackets(m_input.ConsumeIntegralInRange<uint8_t>(1, 12));
  }

  /// Mostly on time, sometimes anything.
  uint64_t mt_us() {
    if (m_input.ConsumeIntegralInRange<uint8_t>(0, 7) == 0) {
      return m_input.ConsumeIntegral<uint64_t>();
    }
    return m_mt_us += 20000;
  }
  uint32_t seq() {
    if (m_input.ConsumeBool()) return m_input.ConsumeIntegral<uint32_t>();
    return m_seq += m_input.ConsumeIntegralInRange<uint8_t>(0, 3);
  }

  media::StartFields start_fields() {
    media::StartFields fields;
    fields.features = features();
    fields.flags = byte();
    fields.ts = m_input.ConsumeIntegral<uint32_t>();
    fields.rule = m_input.ConsumeIntegralInRange<uint8_t>(0, 15) == 0 ? 0 : known_rule;
    const Bytes name = take_bytes(m_input, 60);
    m_name.assign(name.begin(), name.end());
    fields.call_id = m_name;
    return fields;
  }

  void send_damaged(media::Datagram datagram) {
    switch (m_input.ConsumeIntegralInRange<uint8_t>(0, 15)) {
      case 0:
        datagram.resize(m_input.ConsumeIntegralInRange<uint16_t>(0, 1400));
        break;
      case 1:
        datagram[m_input.ConsumeIntegralInRange<uint16_t>(0, 1399) % datagram.size()] = byte();
        break;
    }
    m_node.send(datagram);
  }

  /// A part of what the rule looks for, on one side of a call.
  void send_sound() {
    const auto packets = call();
    const uint16_t on_side = side();
    const std::size_t from = m_input.ConsumeIntegralInRange<uint8_t>(0, 40) * 160u;
    const std::size_t count = m_input.ConsumeIntegralInRange<uint8_t>(1, 50);
    const std::span<const int16_t> sound(known_sound());
    for (std::size_t at = from; at < from + count * 160 && at + 160 <= sound.size(); at += 160) {
      m_node.send(packets.data(on_side, ++m_seq, sound.subspan(at, 160), m_mt_us += 20000));
    }
  }

  FuzzedDataProvider& m_input;
  Node& m_node;
  uint32_t m_seq = 0;
  uint64_t m_mt_us = 0;
  std::string m_name;
};

}  // namespace
}  // namespace cv::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // So that the traces of DATA packets are made too.
  cv::log::Logger::m_instance.level = cv::log::Level::TRACE;
  return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const uint8_t setting = input.ConsumeIntegral<uint8_t>();
  cv::fuzz::Node node(setting % 2 == 1, setting < 64 ? setting / 8 : 0);
  if (setting >= 254) cv::fuzz::send_crowd(node);
  cv::fuzz::Source source(input, node);
  while (input.remaining_bytes() > 0) source.act();
  node.check();
  return 0;
}
