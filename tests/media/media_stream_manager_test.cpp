#include "media/media_stream_manager.h"

#include <gtest/gtest.h>

#include "support/packet_builder.h"

namespace {

using namespace cv::media;
using cv::rc_ptr;
using cv::test::CallPackets;
using Events = std::vector<std::string>;

/// Records the hooks as "NAME SIDE:SEQ"; makes no streams on request.
struct Streams : StreamManager {
  using StreamManager::StreamManager;

  Stream* create_stream(const DataPacket& packet, int& error) override {
    error = refusal;
    return refuse ? nullptr : StreamManager::create_stream(packet, error);
  }
  void on_stream_created(rc_ptr<Stream> stream, rc_ptr<Session> session,
                         DataPacket& packet) override {
    EXPECT_EQ(stream->m_start_mt, packet.mt);
    EXPECT_EQ(static_cast<StreamSession&>(*session).m_streams[packet.side()], stream);
    record("created ", *stream, packet);
  }
  void on_stream_media(rc_ptr<Stream> stream, rc_ptr<Session>, DataPacket& packet) override {
    record("media ", *stream, packet);
  }
  void record(const char* hook, const Stream& stream, const DataPacket& packet) {
    events.push_back(hook + std::to_string(stream.m_side) + ":" + std::to_string(packet.seq));
  }

  bool refuse = false;
  int refusal = 0;
  Events events;
};

TEST(StreamManager, MakesAStreamWithTheFirstPacketOfASideThatItCanMakeOneFor) {
  StreamManagerStatistic statistic;
  Streams manager(statistic);
  const CallPackets call;
  const auto in = [&](const cv::test::Datagram& datagram) {
    cv::test::deliver(manager, datagram);
    return std::exchange(manager.events, {});
  };
  EXPECT_EQ(in(call.start()), Events{});
  EXPECT_EQ(in(call.data(1, 3, 60)), (Events{"created 1:3", "media 1:3"}));
  EXPECT_EQ(in(call.data(1, 4, 80)), Events{"media 1:4"});

  manager.refuse = true;
  for (const uint32_t seq : {1, 2, 2}) EXPECT_EQ(in(call.data(0, seq)), Events{});
  EXPECT_EQ(statistic.streams_allocation_errors.get(), 2u) << "a repeat asks for no stream";
  manager.refusal = 1;
  EXPECT_EQ(in(call.data(0, 3)), Events{});
  EXPECT_EQ(statistic.streams_allocation_errors.get(), 2u) << "refused is not failed";
  EXPECT_EQ(in(call.data(1, 5)), Events{"media 1:5"}) << "the other side has its stream";

  manager.refuse = false;
  EXPECT_EQ(in(call.data(0, 2)), Events{}) << "out of sequence";
  EXPECT_EQ(in(call.data(0, 4, 90)), (Events{"created 0:4", "media 0:4"}));
  EXPECT_EQ(statistic.sequence_break_errors.get(), 2u);
}

}  // namespace
