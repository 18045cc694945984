// Every allocation of a scenario fails in its turn, and whole stretches of them: what is counted is right,
// nothing leaks, and the next call is served as if nothing had been.
#include <arpa/inet.h>
#include <cstdlib>
#include <gtest/gtest.h>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <sstream>

#include "audio/audio_fingerprint.h"
#include "log/log_sinks.h"
#include "medianode/control_events.h"
#include "messaging/messaging_compression.h"
#include "support/heap.h"
#include "support/pipeline.h"
#include "support/recordings.h"
#include "support/stepped_reader.h"
#include "support/udp_receiver.h"

namespace cv::test {

namespace {

/// The lines that get as far as standard error.
class CollectedLog : private std::streambuf {
 public:
  CollectedLog() : m_previous(std::cerr.rdbuf(this)) { log::open_stdlog(); }
  ~CollectedLog() override {
    log::close_log();
    std::cerr.rdbuf(m_previous);
  }

  std::size_t count(const std::string& part) const {
    std::size_t found = 0;
    for (auto at = m_text.find(part); at != m_text.npos; at = m_text.find(part, at + 1)) ++found;
    return found;
  }
  const std::string& text() const { return m_text; }

 private:
  std::streamsize xsputn(const char* text, std::streamsize size) override {
    const heap::Exempt own;
    m_text.append(text, static_cast<std::size_t>(size));
    return size;
  }

  std::streambuf* m_previous;
  std::string m_text;
};

struct SteppedReports : mn::ReportManager {
  using mn::ReportManager::ReportManager;
  void drain() {
    while (!m_queue.empty()) on_queue_read(m_queue.take());
  }
};

constexpr uint64_t rule = 1;

rc_ptr<mn::Configuration> full_match() {
  rc_ptr<mn::Configuration> configuration(new mn::Configuration);
  configuration->report_on_call_termination = true;
  return configuration;
}

/// The node from the packet to the sent report, on one thread.
struct Node {
  explicit Node(const std::vector<KnownSample>& samples) : pipeline(full_match()) {
    pipeline.publish(1, rule, samples);
  }
  void take(const media::Datagram& datagram) {
    reader.take(datagram);
    pipeline.reports.drain();
  }
  void time_out_all() {
    pipeline.clock.advance_seconds(1000);
    while (reader.on_queue_idle()) pipeline.reports.drain();
    pipeline.reports.drain();
  }

  BasicPipeline<SteppedReports> pipeline;
  media::PacketReaderStatistic statistic;
  SteppedReader reader{statistic, pipeline.media.manager()};
};

using Findings = std::map<std::string, int>;

/// What is found: the report's kind and call, and the sample. Not where: a stream that was made late
/// counts its time from there.
std::string essence(const std::string& report) {
  const std::string uuid = R"("session_uuid": ")";
  std::string text = report.substr(0, report.find(uuid) + uuid.size() + 36);
  for (auto at = report.find("\"sample_id\""); at != report.npos;) {
    text += report.substr(at, report.find(',', at) - at);
    at = report.find("\"sample_id\"", at + 1);
  }
  return text;
}

class MemoryFaults : public testing::Test {
 protected:
  MemoryFaults() {
    const auto prompts = english_prompts(16000);
    for (uint32_t id : {0U, 1U}) {
      m_audio.push_back(prompts.at(id).samples);
      m_audio.back().resize(24000);
      m_samples.push_back({id, "prompt", audio::fingerprint(m_audio.back())});
    }
  }

  media::StartFields fields(uint64_t rule_id, uint8_t features = 0x3C) const {
    media::StartFields start;
    start.features = features;
    start.rule = rule_id;
    start.report_addr = htonl(INADDR_LOOPBACK);
    start.report_port = htons(m_receiver.port());
    return start;
  }

  static void add_audio(std::vector<media::Datagram>& to, const CallPackets& call, uint16_t side,
                        std::span<const int16_t> audio) {
    for (uint32_t seq = 0; (seq + 1) * 160 <= audio.size(); ++seq) {
      to.push_back(call.data(side, seq + 1, audio.subspan(seq * 160, 160)));
    }
  }

  /// A call from START to TERM.
  std::vector<media::Datagram> good_call() const {
    const CallPackets call(9);
    std::vector<media::Datagram> packets{call.start(fields(rule))};
    add_audio(packets, call, 0, m_audio[0]);
    packets.push_back(call.terminate());
    return packets;
  }

  /// Calls side by side: a plain one, one whose START comes late and that is switched off and on, one
  /// that is refused, one that never ends, one with an unknown rule.
  std::vector<media::Datagram> scenario() const {
    const CallPackets plain(1), late(2), refused(3), endless(4), unknown(5);
    std::vector<media::Datagram> packets{late.data(1, 1),
                                         plain.start(fields(rule)),
                                         late.start(fields(rule)),
                                         refused.start(fields(rule, 0)),
                                         endless.start(fields(rule)),
                                         unknown.start(fields(7))};
    std::vector<std::vector<media::Datagram>> sides(3);
    add_audio(sides[0], plain, 0, m_audio[0]);
    add_audio(sides[1], late, 1, std::span(m_audio[1]).first(8000));
    add_audio(sides[2], endless, 0, m_audio[1]);
    for (std::size_t i = 0; i < sides[0].size(); ++i) {
      for (const auto& side : sides) {
        if (i < side.size()) packets.push_back(side[i]);
      }
    }
    packets.push_back(late.feature_update(0));
    packets.push_back(late.feature_update(0x3C));
    for (uint32_t seq = 0; seq < 150; ++seq) {
      packets.push_back(late.data(1, 1000 + seq, std::span(m_audio[1]).subspan(seq * 160, 160)));
    }
    packets.push_back(unknown.terminate());
    packets.push_back(late.terminate());
    packets.push_back(plain.terminate());
    return packets;
  }

  Findings findings() {
    Findings found;
    for (const std::string& text : m_receiver.texts()) ++found[essence(text)];
    for (auto& [what, times] : found) times -= m_seen[what];
    std::erase_if(found, [](const auto& entry) { return entry.second == 0; });
    for (const auto& [what, times] : found) m_seen[what] += times;
    return found;
  }

  UdpReceiver m_receiver;
  std::vector<std::vector<int16_t>> m_audio;
  std::vector<KnownSample> m_samples;

 private:
  Findings m_seen;
};

/// How an allocation that failed showed.
struct Outcome {
  uint64_t sessions, zombies, streams, packets, reports, lines;
  uint64_t counted() const { return sessions + zombies + streams + packets + reports; }
};

TEST_F(MemoryFaults, ACallCostsWhatFailsAndNothingElse) {
  const auto packets = scenario();
  const auto after = good_call();
  Findings clean, clean_after;
  std::size_t allocations = 0;
  Outcome all{};

  // `count` allocations fail from the `first` on.
  const auto run = [&](std::size_t first, std::size_t count) {
    SCOPED_TRACE(testing::Message() << count << " allocation(s) from " << first << " on");
    CollectedLog log;
    const auto before = heap::counts();
    std::size_t failed = 0;
    Findings found, found_after;
    Outcome outcome{};
    {
      Node node(m_samples);
      const auto begun = heap::counts();
      {
        const heap::Failing failing(first, count);
        for (const auto& packet : packets) node.take(packet);
        node.time_out_all();
        failed = failing.failed();
      }
      if (first == 0) allocations = heap::counts().news() - begun.news();
      {
        const heap::Exempt own;
        found = findings();
      }
      for (const auto& packet : after) node.take(packet);
      node.time_out_all();
      {
        const heap::Exempt own;
        found_after = findings();
      }
      const auto& counters = node.pipeline.statistic;
      outcome.zombies = log.count("SESSION_MANAGER: Zombie session ");
      outcome.sessions = counters.allocation_errors.get() - outcome.zombies;
      outcome.streams = counters.streams_allocation_errors.get();
      outcome.packets = log.count("PACKETS_READER: out of memory, (");
      outcome.reports = log.count("REPORT_MANAGER: out of memory, a report");
      outcome.lines = log.count("LOG: a line was lost");
      const auto& taken = node.statistic;
      EXPECT_EQ(taken.start_packets.get() + taken.data_packets.get() + taken.ctrl_packets.get() +
                    taken.term_packets.get(),
                packets.size() + after.size());
      EXPECT_EQ(counters.sessions.get(), 0u);
      EXPECT_EQ(counters.zombies.get(), 0u);
      // The side of a call that stays a zombie goes on from where it was heard first.
      EXPECT_LE(counters.sequence_break_errors.get(), outcome.sessions);
    }
    const auto now = heap::counts();
    EXPECT_EQ(now.news() - before.news() - failed, now.deletes - before.deletes) << "leaked";
    if (first == 0) {
      clean = found;
      clean_after = found_after;
      EXPECT_EQ(outcome.counted() + outcome.lines, 0u) << log.text();
      return;
    }
    EXPECT_GT(failed, 0u);
    EXPECT_EQ(found_after, clean_after) << "the next call is served as ever";
    for (const auto& [what, times] : found) {
      EXPECT_LE(times, clean[what]) << what << " is too much";
    }
    if (count > 1) return;
    EXPECT_LE(outcome.counted() + outcome.lines, 1u) << "counted once: " << log.text();
    // Whatever a side lost besides, it has been made again or been voted for again.
    if (outcome.sessions + outcome.reports + outcome.packets == 0) {
      EXPECT_EQ(found, clean);
    }
    all.sessions += outcome.sessions;
    all.zombies += outcome.zombies;
    all.streams += outcome.streams;
    all.packets += outcome.packets;
    all.reports += outcome.reports;
    all.lines += outcome.lines;
  };

  log::SyslogThread::instance();  // allocates once and for good
  run(0, 0);
  ASSERT_GE(clean.size(), 8u) << testing::PrintToString(clean);
  ASSERT_GE(clean_after.size(), 3u);
  for (std::size_t first = 1; first <= allocations; ++first) run(first, 1);
  for (std::size_t first = 1; first <= allocations; first += 17) run(first, 40);

  std::cout << "of " << allocations << " allocations that failed " << all.sessions
            << " cost a session, " << all.zombies << " a zombie, " << all.streams
            << " a stream's first packet, " << all.packets << " part of a packet, " << all.reports
            << " a report, " << all.lines << " a log line\n";
  EXPECT_GT(all.sessions, 0u);
  EXPECT_GT(all.zombies, 0u);
  EXPECT_GT(all.streams, 0u);
  EXPECT_GT(all.packets, 0u);
  EXPECT_GT(all.reports, 0u);
  EXPECT_GT(all.lines, 0u);
}

/// The control side: events in as the consumer thread brings them, requests answered at once.
struct ControlSide {
  ControlSide() {
    messaging::MessageBrokerSettings send_only;
    send_only.brokers = "";
    dispatcher.emplace(send_only, events.handlers());
    dead_air.on_dead_air_config(new mn::DeadAirConfig(0, {}));
    receive(sample_configuration(5, {{1, 7}}));
    receive(sample(7));
    receive(dead_air_configuration(1));
    take_newest();
  }

  static std::string sample_configuration(uint64_t version,
                                          const std::vector<std::pair<int, int>>& rules) {
    std::ostringstream json;
    json << R"({"type":"corvanth_sample_configuration","version":)" << version << R"(,"data":[)";
    const char* separator = "";
    for (const auto& [rule_id, sample_id] : rules) {
      json << std::exchange(separator, ",") << R"({"rule_id":)" << rule_id << R"(,"sample_id":)"
           << sample_id << R"(,"threshold":2,"event_object":{"a":["a text of some length"]}})";
    }
    // Of no meaning, and more than a parser's first blocks hold: both must grow.
    json << R"(],"notes":[")" << std::string(70000, 'x') << R"(")";
    for (int i = 0; i < 100; ++i) json << "," << i;
    json << "]}";
    return json.str();
  }
  static std::string sample(int id) {
    return R"({"type":"corvanth_sample_list","data":{"id":)" + std::to_string(id) +
           R"(,"hash":"47480000010000000100000002000000"}})";
  }
  static std::string dead_air_configuration(uint64_t version) {
    return R"({"type":"corvanth_deadair_configuration","version":)" + std::to_string(version) +
           R"(,"data":[{"rule_id":1,"activity_hits":)" + std::to_string(100 + version) + "}]}";
  }
  static std::string versions(uint64_t samples, uint64_t dead_air) {
    return R"({"type":"config_versions","data":{"corvanth_sample_configuration":)" +
           std::to_string(samples) + R"(,"corvanth_deadair_configuration":)" +
           std::to_string(dead_air) + "}}";
  }

  /// As the consumer thread gets it. False: out of memory, which that thread says.
  bool receive(const std::string& json) {
    std::optional<heap::Exempt> own(std::in_place);
    std::vector<unsigned char> plain{0};
    plain.insert(plain.end(), json.begin(), json.end());
    const auto body = messaging::compress_bounded(plain);
    own.reset();
    bool handled = true;
    try {
      std::size_t size = body.size();
      const std::unique_ptr<unsigned char, decltype(&std::free)> inflated(
          messaging::MessageBroker::decompress(body.data(), size), &std::free);
      if (inflated != nullptr) dispatcher->on_message(inflated.get(), size);
    } catch (const std::bad_alloc&) {
      handled = false;
    }
    own.emplace();
    return handled;
  }

  /// What a new call would get: the version of the samples, each rule's number of them, and the options.
  std::string take_newest() {
    std::ostringstream text;
    uint64_t version = 0;
    for (const uint64_t rule_id : {1, 2}) {
      const auto database = databases.get_hash_database(rule_id, version);
      text << (database ? std::to_string(database->sample_count()) : "-") << " ";
    }
    text << "of " << version << ", ";
    const auto& options = dead_air.get_options(1, version);
    text << options.activity_hits << " of " << version;
    return text.str();
  }

  rc_ptr<mn::Configuration> configuration{new mn::Configuration};
  FakeClock clock;
  mn::DatabaseDispatcher databases{clock};
  mn::DeadAirDispatcher dead_air;
  std::string requests;
  mn::ControlEvents events{configuration,
                           databases,
                           dead_air,
                           {"requests", "the_node"},
                           [this](const std::string&, const std::string& json) {
                             const heap::Exempt own;
                             requests += json + "\n";
                           }};
  std::optional<messaging::EventDispatcher> dispatcher;
};

TEST(ControlMemoryFaults, AnUpdateIsTheOldStateOrTheNewOneAndIsMadeGood) {
  using Side = ControlSide;
  const std::string before = "1 - of 5, 101 of 1";
  const std::string after = "2 1 of 6, 102 of 2";
  const std::vector<std::string> update{Side::sample_configuration(6, {{1, 7}, {1, 8}, {2, 8}}),
                                        Side::sample(8), Side::dead_air_configuration(2)};
  const std::string versions = Side::versions(6, 2);
  std::size_t allocations = 1, kept = 0, made_good = 0, incomplete = 0;
  for (std::size_t first = 0; first <= allocations; ++first) {
    SCOPED_TRACE(first);
    CollectedLog log;
    Side side;
    ASSERT_EQ(side.take_newest(), before);
    const std::size_t errors_before = log.count("ERROR   |");
    std::size_t unhandled = 0;
    {
      const auto begun = heap::counts();
      const heap::Failing failing(first, 1);
      for (const std::string& event : update) unhandled += side.receive(event) ? 0 : 1;
      if (first == 0) allocations = heap::counts().news() - begun.news();
    }
    const std::string state = side.take_newest();
    const std::string samples = state.substr(0, state.find(','));
    const std::string options = state.substr(state.find(',') + 2);
    EXPECT_TRUE(samples == "1 - of 5" || samples == "2 1 of 6") << "half an update: " << state;
    EXPECT_TRUE(options == "101 of 1" || options == "102 of 2") << "half an update: " << state;
    if (state == after) continue;
    ++kept;
    EXPECT_GT(unhandled + log.count("ERROR   |") - errors_before, 0u) << log.text();

    // The manager announces its versions, and answers.
    side.requests.clear();
    EXPECT_TRUE(side.receive(versions));
    if (side.requests.find("\"corvanth_deadair") != std::string::npos) side.receive(update[2]);
    if (side.requests.find("\"corvanth_sample_conf") != std::string::npos) {
      side.receive(update[0]);
      if (side.requests.find("[8]") != std::string::npos) side.receive(update[1]);
    }
    side.clock.advance_seconds(6);
    side.databases.on_event_timeout();
    // A sample that got lost is like one that never came: its rules are built without it.
    const std::string now = side.take_newest();
    EXPECT_TRUE(now == after || now == "1 0 of 6, 102 of 2") << now;
    (now == after ? made_good : incomplete) += 1;
    EXPECT_TRUE(side.receive(Side::sample_configuration(7, {{1, 7}, {2, 8}})));
    side.receive(update[1]);
    EXPECT_EQ(side.take_newest(), "1 1 of 7, 102 of 2") << "the next version is whole";
  }
  std::cout << "of " << allocations << " allocations that failed " << kept
            << " left something of the old state; announced again " << made_good
            << " were made good at once, " << incomplete
            << " lacked a sample until the next version\n";
  EXPECT_GT(made_good, 0u);
}

}  // namespace

}  // namespace cv::test
