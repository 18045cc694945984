#include "media/media_stream_manager.h"

#include <gtest/gtest.h>

#include "support/packet_builder.h"

namespace {

using namespace cv::media;
using cv::rc_ptr;
using cv::test::CallPackets;
using cv::test::deliver;

class Manager : public StreamManager {
 public:
  using StreamManager::StreamManager;

  Stream* create_stream(const DataPacket& packet, int& error) override {
    return out_of_memory ? nullptr : StreamManager::create_stream(packet, error);
  }
  void on_stream_created(rc_ptr<Stream> stream, rc_ptr<Session> session,
                         DataPacket& packet) override {
    EXPECT_EQ(static_cast<StreamSession&>(*session).m_streams[packet.side()], stream);
    EXPECT_EQ(stream->m_start_mt, packet.mt);
    events.push_back("created " + std::to_string(stream->m_side));
  }
  void on_stream_media(rc_ptr<Stream> stream, rc_ptr<Session>, DataPacket& packet) override {
    events.push_back("media " + std::to_string(stream->m_side) + " " + std::to_string(packet.seq));
  }

  bool out_of_memory = false;
  std::vector<std::string> events;
};

TEST(StreamManager, MakesASidesStreamWithItsFirstPacketInSequence) {
  StreamManagerStatistic statistic;
  Manager manager(statistic);
  const CallPackets call;
  deliver(manager, call.start());
  manager.out_of_memory = true;
  for (const uint32_t seq : {1, 2, 2}) deliver(manager, call.data(1, seq));
  EXPECT_EQ(statistic.streams_allocation_errors.get(), 2u) << "out of sequence asks for no stream";
  manager.out_of_memory = false;
  deliver(manager, call.data(1, 4, uint64_t{100}));
  deliver(manager, call.data(1, 5));
  EXPECT_EQ(manager.events, (std::vector<std::string>{"created 1", "media 1 4", "media 1 5"}));
}

}  // namespace
