// Every allocation of a scenario fails in its turn, and whole stretches of them: what is counted is right,
// nothing leaks, and the next call is served as if nothing had been.
#include <arpa/inet.h>
#include <cstdlib>
#include <gtest/gtest.h>
#include <iostream>
#include <map>
#include <memory>
#include <optional>

#include "audio/audio_fingerprint.h"
#include "log/log_sinks.h"
#include "medianode/control_side.h"
#include "messaging/messaging_compression.h"
#include "support/heap.h"
#include "support/pipeline.h"
#include "support/recordings.h"
#include "support/stepped_reader.h"
#include "support/udp_receiver.h"

namespace cv::test {

namespace {

/// The lines that get as far as standard error. Takes nothing from the heap.
class CollectedLog : private std::streambuf {
 public:
  CollectedLog() : m_previous(std::cerr.rdbuf(this)) {
    setp(m_room, m_room + sizeof m_room);
    log::open_stdlog();
  }
  ~CollectedLog() override {
    log::close_log();
    std::cerr.rdbuf(m_previous);
  }

  std::string_view text() const { return {pbase(), pptr()}; }
  uint64_t count(std::string_view part) const {
    uint64_t found = 0;
    for (auto at = text().find(part); at != text().npos; at = text().find(part, at + 1)) ++found;
    return found;
  }

 private:
  static inline char m_room[1 << 20];
  std::streambuf* m_previous;
};

struct SteppedReports : mn::ReportManager {
  using mn::ReportManager::ReportManager;
  void drain() {
    while (!m_queue.empty()) on_queue_read(m_queue.take());
  }
};

/// The node from the packet to the sent report, on one thread.
struct Node {
  explicit Node(const std::vector<KnownSample>& samples) {
    pipeline.configuration->report_on_call_termination = true;
    pipeline.publish(1, 1, samples);
  }
  /// All packets, and what follows when no more come.
  void serve(const std::vector<media::Datagram>& packets) {
    for (const auto& packet : packets) {
      reader.take(packet);
      pipeline.reports.drain();
    }
    pipeline.clock.advance_seconds(1000);
    while (reader.on_queue_idle()) pipeline.reports.drain();
    pipeline.reports.drain();
  }

  BasicPipeline<SteppedReports> pipeline;
  media::PacketReaderStatistic statistic;
  SteppedReader reader{statistic, pipeline.media.manager()};
};

/// How often each was reported: the report's kind and call, and the samples. Not where: a stream that
/// was made late counts its time from there.
using Findings = std::map<std::string, int>;

Findings findings(UdpReceiver& receiver) {
  const std::string uuid = R"("session_uuid": ")", sample = "\"sample_id\"";
  Findings found;
  for (const std::string& report : receiver.take()) {
    std::string essence = report.substr(0, report.find(uuid) + uuid.size() + 36);
    for (auto at = report.find(sample); at != report.npos; at = report.find(sample, at + 1)) {
      essence += report.substr(at, report.find(',', at) - at);
    }
    ++found[essence];
  }
  return found;
}

constexpr std::size_t packet_samples = 160;
constexpr std::size_t recording_packets = 75;

media::Datagram start(const CallPackets& call, uint16_t report_port, uint64_t rule = 1,
                      uint8_t features = 0x3C) {
  return call.start({.features = features,
                     .rule = rule,
                     .report_addr = htonl(INADDR_LOOPBACK),
                     .report_port = htons(report_port)});
}

media::Datagram data(const CallPackets& call, uint16_t side, uint32_t seq, const Recording& heard,
                     std::size_t packet) {
  return call.data(side, seq,
                   std::span(heard.samples).subspan(packet * packet_samples, packet_samples));
}

/// Calls side by side: a plain one, one whose START comes late and that is switched off and on, one
/// that is refused, one that never ends, one with an unknown rule.
std::vector<media::Datagram> calls(const std::vector<Recording>& heard, uint16_t report_port) {
  const CallPackets plain(1), late(2), refused(3), endless(4), unknown(5);
  std::vector<media::Datagram> packets{late.data(1, 1),
                                       start(plain, report_port),
                                       start(late, report_port),
                                       start(refused, report_port, 1, 0),
                                       start(endless, report_port),
                                       start(unknown, report_port, 7)};
  for (uint32_t i = 0; i < recording_packets; ++i) {
    packets.push_back(data(plain, 0, 1 + i, heard[0], i));
    if (i < recording_packets / 3) packets.push_back(data(late, 1, 1 + i, heard[1], i));
    packets.push_back(data(endless, 0, 1 + i, heard[1], i));
  }
  packets.push_back(late.feature_update(0));
  packets.push_back(late.feature_update(0x3C));
  for (uint32_t i = 0; i < recording_packets; ++i) {
    packets.push_back(data(late, 1, 1000 + i, heard[1], i));
  }
  for (const CallPackets& call : {unknown, late, plain}) packets.push_back(call.terminate());
  return packets;
}

/// How often what was lost.
using Costs = std::map<std::string, uint64_t>;

Costs costs_of(const Node& node, const CollectedLog& log) {
  const auto& counters = node.pipeline.statistic;
  const uint64_t zombies = log.count("SESSION_MANAGER: Zombie session ");
  return {{"a session", counters.allocation_errors.get() - zombies},
          {"a zombie", zombies},
          {"a stream's first packet", counters.streams_allocation_errors.get()},
          {"part of a packet", log.count("PACKETS_READER: out of memory, (")},
          {"a report", log.count("REPORT_MANAGER: out of memory, a report")},
          {"a log line", log.count("LOG: a line was lost")}};
}

TEST(MemoryFaults, ACallCostsWhatFailsAndNothingElse) {
  UdpReceiver receiver;
  auto heard = english_prompts(16000);
  heard.resize(2);
  std::vector<KnownSample> samples;
  for (Recording& recording : heard) {
    recording.samples.resize(recording_packets * packet_samples);
    const auto id = static_cast<uint32_t>(samples.size());
    samples.push_back({id, "prompt", audio::fingerprint(recording.samples)});
  }
  const auto packets = calls(heard, receiver.port());
  const CallPackets next(9);
  std::vector<media::Datagram> after{start(next, receiver.port())};
  for (uint32_t i = 0; i < recording_packets; ++i)
    after.push_back(data(next, 0, 1 + i, heard[0], i));
  after.push_back(next.terminate());

  Findings clean, clean_after;
  std::size_t allocations = 0;
  Costs all_costs;
  // `count` allocations fail from the `first` on.
  const auto run = [&](std::size_t first, std::size_t count) {
    SCOPED_TRACE(testing::Message() << count << " allocation(s) from " << first << " on");
    const CollectedLog log;
    const auto before = heap::counts();
    std::size_t failed = 0;
    {
      Node node(samples);
      const auto begun = heap::counts();
      {
        const heap::Failing failing(first, count);
        node.serve(packets);
        failed = failing.failed();
      }
      const std::size_t served = heap::counts().news() - begun.news();
      Findings found = findings(receiver);
      node.serve(after);
      const Findings found_after = findings(receiver);

      const heap::Exempt what_is_kept;
      Costs costs = costs_of(node, log);
      uint64_t counted = 0;
      for (const auto& [what, times] : costs) counted += times;
      const auto& counters = node.pipeline.statistic;
      const auto& taken = node.statistic;
      EXPECT_EQ(taken.start_packets.get() + taken.data_packets.get() + taken.ctrl_packets.get() +
                    taken.term_packets.get(),
                packets.size() + after.size());
      EXPECT_EQ(counters.sessions.get() + counters.zombies.get(), 0u);
      // The side of a call that stays a zombie goes on from where it was heard first.
      EXPECT_LE(counters.sequence_break_errors.get(), costs["a session"]);
      if (count == 0) {
        clean = found;
        clean_after = found_after;
        allocations = served;
        EXPECT_EQ(counted, 0u) << log.text();
      }
      EXPECT_EQ(failed > 0, count > 0);
      EXPECT_EQ(found_after, clean_after) << "the next call is served as ever";
      for (const auto& [what, times] : found) {
        EXPECT_LE(times, clean[what]) << what << " is too much";
      }
      if (count == 1) {
        EXPECT_LE(counted, 1u) << "counted once: " << log.text();
        // Whatever a side lost besides, it has been made again or been voted for again.
        // A first activity is tried again, whatever became of its packet.
        for (const auto& [what, times] : clean) {
          const bool tried_again =
              costs["part of a packet"] == 0 || what.find("audio_activity") != what.npos;
          if (costs["a session"] + costs["a report"] == 0 && tried_again) {
            EXPECT_EQ(found[what], times) << what;
          }
        }
        for (const auto& [what, times] : costs) all_costs[what] += times;
      }
    }
    const auto now = heap::counts();
    EXPECT_EQ(now.news() - before.news() - failed, now.deletes - before.deletes) << "leaked";
  };

  log::SyslogThread::instance();  // allocates once and for good
  run(0, 0);
  ASSERT_EQ(clean.size(), 9u) << "three kinds of three calls: " << testing::PrintToString(clean);
  ASSERT_GE(clean_after.size(), 3u);
  for (std::size_t first = 1; first <= allocations; ++first) run(first, 1);
  for (std::size_t first = 1; first <= allocations; first += 17) run(first, 40);

  std::cout << "of " << allocations << " allocations that failed\n";
  for (const auto& [what, times] : all_costs) {
    std::cout << "  " << times << " cost " << what << "\n";
    EXPECT_GT(times, 0u) << what;
  }
}

struct UpdatedControlSide : ControlSide {
  UpdatedControlSide() {
    receive(sample_configuration(5, {{1, {7}}}));
    receive(sample_event(7, {{2, 1}}));
    receive(dead_air(1));
    in_force();
  }

  static std::string dead_air(uint64_t version) {
    return R"({"type":"corvanth_deadair_configuration","version":)" + std::to_string(version) +
           R"(,"data":[{"rule_id":1,"activity_hits":)" + std::to_string(100 + version) + "}]}";
  }
  static std::vector<unsigned char> body(const std::string& json) {
    std::vector<unsigned char> plain{0};
    plain.insert(plain.end(), json.begin(), json.end());
    return messaging::compress_bounded(plain);
  }

  std::string in_force() {
    uint64_t version = 0;
    const auto hits = ControlSide::dead_air.get_options(1, version).activity_hits;
    return samples_in_force() + ", " + std::to_string(hits) + " of " + std::to_string(version);
  }
  bool asked_for(const std::string& what) {
    return std::any_of(sent.begin(), sent.end(),
                       [&](const auto& request) { return request.find(what) != request.npos; });
  }
};

/// Bodies to the control side, as the consumer thread brings them.
struct Consumer {
  Consumer() {
    messaging::MessageBrokerSettings send_only;
    send_only.brokers = "";
    messaging::EventDispatcher::Handlers handlers;
    for (const char* event : {"config_versions", "corvanth_sample_configuration",
                              "corvanth_sample_list", "corvanth_deadair_configuration"}) {
      handlers[event] = [this](const std::string& name, void* document) {
        to->handlers.at(name)(name, document);
      };
    }
    dispatcher.emplace(send_only, handlers);
  }

  /// False: out of memory, which that thread says.
  bool take(const std::vector<unsigned char>& body) {
    try {
      std::size_t size = body.size();
      const std::unique_ptr<unsigned char, decltype(&std::free)> inflated(
          messaging::MessageBroker::decompress(body.data(), size), &std::free);
      if (inflated != nullptr) dispatcher->on_message(inflated.get(), size);
      return true;
    } catch (const std::bad_alloc&) {
      return false;
    }
  }

  ControlSide* to = nullptr;
  std::optional<messaging::EventDispatcher> dispatcher;
};

TEST(ControlMemoryFaults, AnUpdateIsTheOldStateOrTheNewOneAndIsMadeGood) {
  using Side = UpdatedControlSide;
  const std::string before = "5: 7|-, 101 of 1", after = "6: 78|8, 102 of 2";
  // The notes have no meaning, and are more than a parser's first blocks hold: both must grow.
  std::string notes = R"(,"notes":[")" + std::string(70000, 'x') + R"(")";
  for (int i = 0; i < 100; ++i) notes += "," + std::to_string(i);
  const auto samples = Side::body(sample_configuration(6, {{1, {7, 8}}, {2, {8}}}, notes + "]"));
  const auto sample = Side::body(sample_event(8, {{2, 1}}));
  const auto options = Side::body(Side::dead_air(2));
  Consumer consumer;
  std::size_t allocations = 1, made_good = 0, incomplete = 0;
  for (std::size_t first = 0; first <= allocations; ++first) {
    SCOPED_TRACE(first);
    const CollectedLog log;
    Side side;
    consumer.to = &side;
    ASSERT_EQ(side.in_force(), before);
    const uint64_t errors = log.count("ERROR   |");
    bool handled = true;
    {
      const auto begun = heap::counts();
      const heap::Failing failing(first, 1);
      for (const auto* body : {&samples, &sample, &options})
        handled = consumer.take(*body) && handled;
      if (first == 0) allocations = heap::counts().news() - begun.news();
    }
    const std::string state = side.in_force();
    EXPECT_TRUE(state.starts_with("5: 7|-, ") || state.starts_with("6: 78|8, ")) << state;
    EXPECT_TRUE(state.ends_with(", 101 of 1") || state.ends_with(", 102 of 2")) << state;
    if (state == after) continue;
    EXPECT_TRUE(!handled || log.count("ERROR   |") > errors) << log.text();

    // The manager announces its versions, and answers.
    side.sent.clear();
    side.receive(R"({"type":"config_versions","data":{"corvanth_sample_configuration":6,)"
                 R"("corvanth_deadair_configuration":2}})");
    if (side.asked_for("\"corvanth_deadair")) consumer.take(options);
    if (side.asked_for("\"corvanth_sample_conf")) consumer.take(samples);
    if (side.asked_for("[8]")) consumer.take(sample);
    side.clock.advance_seconds(6);
    side.databases.on_event_timeout();
    // A sample that got lost is like one that never came: its rules are built without it.
    const std::string now = side.in_force();
    EXPECT_TRUE(now == after || now == "6: 7|, 102 of 2") << now;
    (now == after ? made_good : incomplete) += 1;
    side.receive(sample_configuration(7, {{1, {7}}, {2, {8}}}));
    consumer.take(sample);
    EXPECT_EQ(side.in_force(), "7: 7|8, 102 of 2") << "the next version is whole";
  }
  std::cout << "of " << allocations << " allocations that failed " << made_good + incomplete
            << " left something of the old state; announced again " << made_good
            << " were made good at once, " << incomplete
            << " lacked a sample until the next version\n";
  EXPECT_GT(made_good, 0u);
}

}  // namespace

}  // namespace cv::test
