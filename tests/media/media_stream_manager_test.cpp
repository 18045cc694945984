#include "media/media_stream_manager.h"

#include <gtest/gtest.h>

#include "support/fake_clock.h"
#include "support/packet_builder.h"

namespace {

using namespace cv::media;
using cv::rc_ptr;
using cv::test::CallPackets;
using cv::test::Viewed;

class Manager : public StreamManager {
 public:
  using StreamManager::StreamManager;

  Stream* create_stream(const DataPacket& packet, int& error) override {
    error = refusal;
    return refuse ? nullptr : StreamManager::create_stream(packet, error);
  }
  void on_stream_created(rc_ptr<Stream> stream, rc_ptr<Session> session,
                         DataPacket& packet) override {
    EXPECT_EQ(static_cast<StreamSession&>(*session).m_streams[packet.side()], stream);
    EXPECT_EQ(stream->m_start_mt, packet.mt);
    record("created", *stream, packet);
  }
  void on_stream_media(rc_ptr<Stream> stream, rc_ptr<Session>, DataPacket& packet) override {
    record("media", *stream, packet);
    last = stream;
  }
  void on_session_terminated(rc_ptr<Session> session, TerminatePacket&) override {
    const auto& streams = static_cast<StreamSession&>(*session).m_streams;
    events.push_back(std::string("terminated ") + (streams[0] ? "0" : "-") +
                     (streams[1] ? "1" : "-"));
  }
  void record(const char* event, const Stream& stream, const DataPacket& packet) {
    events.push_back(std::string(event) + " side " + std::to_string(stream.m_side) + " seq " +
                     std::to_string(packet.seq));
  }

  bool refuse = false;
  int refusal = 0;
  rc_ptr<Stream> last;
  std::vector<std::string> events;
};

class StreamManagerTest : public testing::Test {
 protected:
  void SetUp() override {
    Viewed<StartPacket> packet(call.start());
    manager.on_packet(*packet);
  }
  void data(uint16_t side, uint32_t seq, uint64_t mt = 0) {
    Viewed<DataPacket> packet(call.data(side, seq, mt));
    manager.on_packet(*packet);
  }
  void terminate() {
    Viewed<TerminatePacket> packet(call.terminate());
    manager.on_packet(*packet);
  }

  cv::test::FakeClock clock;
  StreamManagerStatistic statistic;
  Manager manager{statistic, clock};
  const CallPackets call;
};

using Events = std::vector<std::string>;

TEST_F(StreamManagerTest, TheFirstDataOfASideCreatesItsStream) {
  data(1, 5, 100);
  data(1, 6, 120);
  data(0, 9, 140);
  terminate();
  EXPECT_EQ(manager.events,
            (Events{"created side 1 seq 5", "media side 1 seq 5", "media side 1 seq 6",
                    "created side 0 seq 9", "media side 0 seq 9", "terminated 01"}));
  EXPECT_EQ(manager.last->m_side, 0) << "a stream lives on with whoever holds it";
}

TEST_F(StreamManagerTest, AOneSidedCallHasOneStream) {
  data(1, 1);
  terminate();
  EXPECT_EQ(manager.events.back(), "terminated -1");
}

TEST_F(StreamManagerTest, AStreamThatIsNotCreatedIsAskedForAgain) {
  manager.refuse = true;
  data(0, 1);
  data(0, 2);
  data(0, 2);  // out of sequence: never asks for a stream
  EXPECT_EQ(statistic.streams_allocation_errors.get(), 2u);
  manager.refusal = 1;
  data(0, 3);
  EXPECT_EQ(statistic.streams_allocation_errors.get(), 2u) << "a refusal is no failure";
  EXPECT_TRUE(manager.events.empty());
  manager.refuse = false;
  data(0, 3);
  EXPECT_TRUE(manager.events.empty());
  data(0, 4);
  EXPECT_EQ(manager.events, (Events{"created side 0 seq 4", "media side 0 seq 4"}));
}

}  // namespace
