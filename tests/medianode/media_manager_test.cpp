#include "medianode/media_manager.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <memory>

#include "support/fake_clock.h"
#include "support/log_capture.h"
#include "support/packet_builder.h"

namespace {

using namespace cv::mn;
using cv::rc_ptr;
using cv::media::DataPacket;
using cv::media::StartFields;
using cv::media::Stream;
using cv::test::CallPackets;
using cv::test::deliver;
using cv::test::Viewed;

struct SessionState {
  SessionState() { ++alive; }
  ~SessionState() { --alive; }
  int updates = 0;
  static inline int alive = 0;
};
struct Silence {};
struct SampleCount {
  int samples = 0;
};
using Manager = MediaManager<std::tuple<SessionState>, std::tuple<Silence, SampleCount>>;

/// An analyser that subscribes to everything and keeps its state where the manager offers it.
class Analyser final : public MediaSessionListener,
                       public MediaStreamCreationListener,
                       public MediaStreamPacketListener {
 public:
  Analyser(const char* name, std::vector<std::string>& events) : m_name(name), m_events(events) {}

  void on_session_created(rc_ptr<MediaSession>) override { record("created"); }
  void on_session_updated(rc_ptr<MediaSession> session) override {
    record("updated " + std::to_string(++Manager::session_state<SessionState>(session).updates));
  }
  void on_session_terminated(rc_ptr<MediaSession>) override { record("terminated"); }
  void on_session_timedout(rc_ptr<MediaSession>) override { record("timedout"); }
  void on_stream_created(rc_ptr<Stream> stream, rc_ptr<MediaSession> session) override {
    EXPECT_EQ(session->m_streams[stream->m_side], stream);
    record("stream " + std::to_string(stream->m_side));
  }
  void on_stream_media(rc_ptr<Stream> stream, rc_ptr<MediaSession>,
                       const DataPacket& packet) override {
    int& samples = Manager::stream_state<SampleCount>(stream).samples;
    samples += packet.num;
    record("media " + std::to_string(stream->m_side) + " " + std::to_string(samples));
  }

 private:
  void record(const std::string& event) { m_events.push_back(m_name + event); }
  std::string m_name;
  std::vector<std::string>& m_events;
};

class MediaManagerTest : public testing::Test {
 protected:
  void SetUp() override {
    for (Analyser* analyser : {&first, &second}) {
      manager->add_session_listener(analyser);
      manager->add_stream_creation_listener(analyser);
    }
    manager->add_stream_packet_listener(&first);
  }
  void start(uint8_t features) {
    StartFields fields;
    fields.features = features;
    in(call.start(fields));
  }
  void data(uint16_t side, uint32_t seq) { in(call.data(side, seq, std::array<int16_t, 160>{})); }
  void in(const cv::test::Datagram& datagram) { deliver(*manager, datagram); }

  cv::test::LogCapture log;
  cv::test::FakeClock clock;
  cv::media::StreamManagerStatistic statistic;
  std::vector<std::string> events;
  Analyser first{"a: ", events};
  Analyser second{"b: ", events};
  std::unique_ptr<Manager> manager = std::make_unique<Manager>(statistic, clock);
  const CallPackets call;
};

using Events = std::vector<std::string>;

TEST_F(MediaManagerTest, RefusesCallsWithNothingToAnalyse) {
  for (int features = 0; features < 256; ++features) {
    start(static_cast<uint8_t>(features));
    const bool wanted = (features & 0x3C) != 0;
    EXPECT_EQ(statistic.zombies.get(), wanted ? 0u : 1u) << features;
    data(0, 1);
    EXPECT_EQ(events.empty(), !wanted) << features;
    in(call.terminate());
    events.clear();
  }
  EXPECT_EQ(log.lines().size(), 16u) << "four bits without meaning";
  EXPECT_EQ(log.texts().front(),
            "WARNING media_manager MEDIA_MANAGER: 00112233-4455-6677-8899-aabbccddee01: media "
            "analyzing is off for the session");
}

TEST_F(MediaManagerTest, EveryListenerHearsOfACallInOrder) {
  start(0x04);
  data(1, 1);
  data(0, 1);
  data(1, 2);
  in(call.feature_update(0x04));
  in(call.terminate());
  EXPECT_EQ(events, (Events{"a: created", "b: created",                      //
                            "a: stream 1", "b: stream 1", "a: media 1 160",  //
                            "a: stream 0", "b: stream 0", "a: media 0 160",  //
                            "a: media 1 320",                                //
                            "a: updated 1", "b: updated 2", "a: terminated", "b: terminated"}));
  EXPECT_EQ(SessionState::alive, 0);
}

TEST_F(MediaManagerTest, ATimeOutIsNoTermination) {
  start(0x20);
  clock.advance_seconds(300);
  EXPECT_TRUE(manager->on_packet_idle());
  EXPECT_EQ(events, (Events{"a: created", "b: created", "a: timedout", "b: timedout"}));
}

TEST_F(MediaManagerTest, ShutDownReleasesCallsWithoutAWord) {
  start(0x20);
  data(0, 1);
  events.clear();
  EXPECT_EQ(SessionState::alive, 1);
  manager.reset();
  EXPECT_EQ(SessionState::alive, 0);
  EXPECT_TRUE(events.empty());
}

TEST_F(MediaManagerTest, FeatureUpdates) {
  start(0x3C);
  log.clear();
  events.clear();
  struct Case {
    const char* name;
    cv::test::Datagram packet;
    const char* logged;
  };
  auto flagged_command = call.control(1);
  flagged_command[7] = 0x80;
  const Case table[] = {
      {"less", call.feature_update(0x14), "old = --SSAA, new = ---S-A"},
      {"the same again", call.feature_update(0x14), "old = ---S-A, new = ---S-A"},
      {"command 1 with the flag", flagged_command, nullptr},
      {"command 0 without the flag", call.control(0), nullptr},
      {"nothing left", call.feature_update(0x00), "old = ---S-A, new = ------"},
      {"all", call.feature_update(0xFF), "old = ------, new = RRSSAA"},
  };
  int updates = 0;
  Events expected;
  for (const Case& c : table) {
    in(c.packet);
    Events logged;
    if (c.logged != nullptr) {
      logged = {"SYSTEM media_manager MEDIA_SESSION: feature update: " + std::string(c.logged)};
      expected.push_back("a: updated " + std::to_string(++updates));
      expected.push_back("b: updated " + std::to_string(++updates));
    }
    EXPECT_EQ(log.texts(), logged) << c.name;
    log.clear();
  }
  EXPECT_EQ(events, expected);
}

TEST(MediaSession, TakesRuleAddressAndFeaturesFromStart) {
  StartFields fields;
  fields.rule = 77;
  fields.features = 0x34;
  fields.report_addr = htonl(0x0A0B0C0D);
  fields.report_port = htons(9000);
  Viewed<cv::media::StartPacket> packet(CallPackets().start(fields));
  const MediaSession session(*packet, 5);
  EXPECT_EQ(session.m_created_us, 5);
  EXPECT_EQ(session.m_rule, 77u) << "kept although the packet's rule flag is clear";
  EXPECT_EQ(session.m_features, 0x34);
  EXPECT_EQ(session.m_report_address.host, "10.11.12.13");
  EXPECT_EQ(session.m_report_address.port, htons(9000));
  EXPECT_EQ(session.m_report_address.addr.sin_family, AF_INET);
  EXPECT_EQ(session.m_report_address.addr.sin_port, htons(9000));
  EXPECT_EQ(session.m_report_address.addr.sin_addr.s_addr, htonl(0x0A0B0C0D));
}

}  // namespace
