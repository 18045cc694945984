#include "media/media_packet_reader.h"

#include <gtest/gtest.h>

#include "media/media_session_manager.h"
#include "support/packet_builder.h"

namespace {

using namespace cv::media;
using cv::rc_ptr;

TEST(PacketReader, OverloadDropsAtTheQueueThenAtThePool) {
  SessionManagerStatistic sessions;
  SessionManager manager(sessions);
  PacketReaderStatistic statistic;
  PacketReader reader(statistic, manager);
  const Datagram term = cv::test::CallPackets().terminate();
  const auto read = [&] { reader.read_from(term.data(), term.size()); };
  for (int i = 0; i < 100001; ++i) read();
  EXPECT_EQ(statistic.passed.get(), 100000u);
  EXPECT_EQ(statistic.dropped.get(), 1u);

  std::vector<rc_ptr<PacketBuffer>> held(50000);
  for (auto& buffer : held) buffer = new PacketBuffer;
  read();
  EXPECT_EQ(statistic.failed_allocation.get(), 1u);
  held.pop_back();
  read();
  EXPECT_EQ(statistic.failed_allocation.get(), 1u) << "a slot given back is used again";
  EXPECT_EQ(statistic.dropped.get(), 2u);
}

}  // namespace
