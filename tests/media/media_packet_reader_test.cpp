#include "media/media_packet_reader.h"

#include <gtest/gtest.h>

#include "support/packet_builder.h"

namespace {

using namespace cv::media;
using cv::Counter;
using cv::rc_ptr;
using cv::test::CallPackets;

struct Listener final : PacketReaderListener {
  void on_packet(StartPacket&) override { ++packets; }
  void on_packet(TerminatePacket&) override { ++packets; }
  void on_packet(DataPacket&) override { ++packets; }
  void on_packet(ControlPacket&) override { ++packets; }
  void on_packet_try() override {}
  bool on_packet_idle() override { return false; }

  int packets = 0;
};

class PacketReaderTest : public testing::Test {
 protected:
  void deliver(const Datagram& datagram) {
    rc_ptr<PacketBuffer> buffer(new PacketBuffer);
    buffer->append(datagram.data(), datagram.size());
    reader.on_queue_read(buffer);
  }
  void read(const Datagram& datagram) { reader.read_from(datagram.data(), datagram.size()); }

  PacketReaderStatistic statistic;
  Listener listener;
  PacketReader reader{statistic, listener};
  const CallPackets call{5};
};

Datagram with(Datagram datagram, std::size_t offset, unsigned char value) {
  datagram.at(offset) = value;
  return datagram;
}

Datagram sized(Datagram datagram, std::size_t size) {
  datagram.resize(size);
  return datagram;
}

TEST_F(PacketReaderTest, ChecksMarkerThenVersionThenTypeThenSize) {
  constexpr std::size_t marker = 0, type = 4, version = 5, num = 48, id_length = 78;
  const Datagram data = call.data(0, 1, std::array<int16_t, 10>{});
  ASSERT_EQ(data.size(), 70u);
  StartFields fields;
  fields.call_id = "call";
  const Datagram start = call.start(fields);
  const Datagram term = call.terminate();
  const Datagram update = call.feature_update(0x3C);
  using S = PacketReaderStatistic;
  const struct {
    Counter S::*counter;
    std::vector<Datagram> datagrams;
  } table[] = {
      {&S::start_packets, {start, sized(with(start, id_length, 0), 80)}},
      {&S::term_packets, {term}},
      {&S::data_packets, {data, call.data(0, 1)}},
      {&S::ctrl_packets, {update, call.control(0)}},
      // Each a byte short or long, cut before its own length, of a length beyond any datagram.
      {&S::corrupted_size,
       {sized(start, 83), sized(start, 85), sized(start, 40), with(start, id_length + 1, 0xFF),
        sized(term, 41), sized(data, 69), sized(data, 71), sized(data, 40),
        with(data, num + 1, 0xFF), sized(update, 40)}},
      {&S::bad_marker, {with(term, marker + 3, 1), with(with(term, marker, 0), version, 1)}},
      {&S::bad_version, {with(term, version, 1), with(with(term, version, 3), type, 0x85)}},
      {&S::unknown_type, {with(term, type, 0x85), with(term, type, 0x80)}},
  };
  for (const auto& row : table) {
    for (const Datagram& datagram : row.datagrams) deliver(datagram);
  }
  for (const auto& row : table) {
    EXPECT_EQ((statistic.*row.counter).get(), row.datagrams.size()) << &row - table;
  }
  EXPECT_EQ(listener.packets, 7);
}

TEST_F(PacketReaderTest, RefusesDatagramsOutsideTheLengthsBeforeTheQueue) {
  for (std::size_t size : {0, 1, 39}) read(Datagram(size));
  for (std::size_t size : {1377, 65536}) read(Datagram(size));
  for (std::size_t size : {40, 1376}) read(Datagram(size));
  EXPECT_EQ(statistic.min_length.get(), 3u);
  EXPECT_EQ(statistic.max_length.get(), 2u);
  EXPECT_EQ(statistic.passed.get(), 2u);
}

TEST_F(PacketReaderTest, OverloadDropsAtTheQueueThenAtThePool) {
  const Datagram term = call.terminate();
  for (int i = 0; i < 100001; ++i) read(term);
  EXPECT_EQ(statistic.passed.get(), 100000u);
  EXPECT_EQ(statistic.dropped.get(), 1u);

  std::vector<rc_ptr<PacketBuffer>> held(50000);
  for (auto& buffer : held) buffer = new PacketBuffer;
  read(term);
  EXPECT_EQ(statistic.failed_allocation.get(), 1u);
  held.pop_back();
  read(term);
  EXPECT_EQ(statistic.failed_allocation.get(), 1u) << "a slot given back is used again";
  EXPECT_EQ(statistic.dropped.get(), 2u);
}

}  // namespace
