#include "media/media_packet_reader.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <syslog.h>
#include <thread>

#include "support/log_capture.h"
#include "support/packet_builder.h"
#include "support/syslog_capture.h"

namespace {

using namespace cv::media;
using cv::Counter;
using cv::rc_ptr;
using cv::test::CallPackets;

struct Listener final : PacketReaderListener {
  void on_packet(StartPacket& packet) override { record("START", packet); }
  void on_packet(TerminatePacket& packet) override { record("TERM", packet); }
  void on_packet(DataPacket& packet) override {
    last_seq = packet.seq;
    record("DATA", packet);
  }
  void on_packet(ControlPacket& packet) override { record("CTRL", packet); }
  void on_packet_try() override { ++tries; }
  bool on_packet_idle() override { return idle_work > 0 && idle_work-- > 0; }

  void record(const char* type, const PacketHeader& packet) {
    events.push_back(type + std::to_string(packet.id));
    thread = std::this_thread::get_id();
    ++packets;
  }

  std::vector<std::string> events;
  std::thread::id thread;
  uint32_t last_seq = 0;
  std::atomic<int> packets{0};
  std::atomic<int> tries{0};
  std::atomic<int> idle_work{0};
};

class PacketReaderTest : public testing::Test {
 protected:
  void deliver(const Datagram& datagram) {
    rc_ptr<PacketBuffer> buffer(new PacketBuffer);
    buffer->append(datagram.data(), datagram.size());
    reader.on_queue_read(buffer);
  }
  void read(const Datagram& datagram) { reader.read_from(datagram.data(), datagram.size()); }

  cv::test::LogCapture log{cv::log::Level::INFO};
  cv::test::SyslogCapture syslog;
  PacketReaderStatistic statistic;
  Listener listener;
  PacketReader reader{statistic, listener};
  const CallPackets call{5};
};

using PacketCounter = Counter PacketReaderStatistic::*;
constexpr PacketCounter check_counters[] = {
    &PacketReaderStatistic::bad_marker,     &PacketReaderStatistic::bad_version,
    &PacketReaderStatistic::corrupted_size, &PacketReaderStatistic::unknown_type,
    &PacketReaderStatistic::start_packets,  &PacketReaderStatistic::term_packets,
    &PacketReaderStatistic::data_packets,   &PacketReaderStatistic::ctrl_packets,
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
  constexpr std::size_t marker = 0, type = 4, version = 5, flags = 7, num = 48, id_length = 78;
  const Datagram data = call.data(0, 1, std::array<int16_t, 10>{});
  ASSERT_EQ(data.size(), 70u);
  StartFields fields;
  fields.call_id = "call";
  const Datagram start = call.start(fields);
  const Datagram term = call.terminate();
  const Datagram update = call.feature_update(0x3C);
  using S = PacketReaderStatistic;
  struct Case {
    const char* name;
    Datagram datagram;
    PacketCounter counted;
  };
  const Case table[] = {
      {"start", start, &S::start_packets},
      {"start without a call id", sized(with(start, id_length, 0), 80), &S::start_packets},
      {"start a byte short", sized(start, 83), &S::corrupted_size},
      {"start a byte long", sized(start, 85), &S::corrupted_size},
      {"start cut before its length field", sized(start, 40), &S::corrupted_size},
      {"start of a length beyond any datagram", with(start, id_length + 1, 0xFF),
       &S::corrupted_size},
      {"term", term, &S::term_packets},
      {"term with a tail", sized(term, 41), &S::corrupted_size},
      {"data", data, &S::data_packets},
      {"data without samples", call.data(0, 1), &S::data_packets},
      {"data a byte short", sized(data, 69), &S::corrupted_size},
      {"data a byte long", sized(data, 71), &S::corrupted_size},
      {"data cut before its count", sized(data, 40), &S::corrupted_size},
      {"data of 65535 samples", with(with(data, num, 0xFF), num + 1, 0xFF), &S::corrupted_size},
      {"feature update", update, &S::ctrl_packets},
      {"feature update without features", sized(update, 40), &S::corrupted_size},
      {"command 1 with the update flag", with(call.control(1), flags, 0x80), &S::ctrl_packets},
      {"command 1 with the flag and a tail", with(sized(call.control(1), 41), flags, 0x80),
       &S::corrupted_size},
      {"command 0 without the flag", call.control(0), &S::ctrl_packets},
      {"wrong marker", with(term, marker + 3, 1), &S::bad_marker},
      {"wrong marker and version", with(with(term, marker, 0), version, 1), &S::bad_marker},
      {"version 1", with(term, version, 1), &S::bad_version},
      {"version 3 of an unknown type", with(with(term, version, 3), type, 0x85), &S::bad_version},
      {"type 0x85", with(term, type, 0x85), &S::unknown_type},
      {"type 0x80", with(term, type, 0x80), &S::unknown_type},
  };
  for (const Case& c : table) {
    std::vector<uint64_t> expected;
    for (PacketCounter counter : check_counters) {
      expected.push_back((statistic.*counter).get() + (counter == c.counted ? 1 : 0));
    }
    deliver(c.datagram);
    std::vector<uint64_t> counted;
    for (PacketCounter counter : check_counters) counted.push_back((statistic.*counter).get());
    EXPECT_EQ(counted, expected) << c.name;
  }
  EXPECT_EQ(listener.events, (std::vector<std::string>{"START5", "START5", "TERM5", "DATA5",
                                                       "DATA5", "CTRL5", "CTRL5", "CTRL5"}));
  reader.on_queue_read(rc_ptr<PacketBuffer>());  // a wait that passed
  EXPECT_EQ(listener.packets, 8);
}

TEST_F(PacketReaderTest, RefusesDatagramsOutsideTheLengthsBeforeTheQueue) {
  for (std::size_t size : {0, 1, 39}) read(Datagram(size));
  for (std::size_t size : {1377, 65536}) read(Datagram(size));
  EXPECT_EQ(statistic.passed.get(), 0u);
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
  EXPECT_STREQ(PacketBuffer::BadAlloc().what(), "Cannot allocate memory for PacketBuffer");
}

TEST_F(PacketReaderTest, DeliversInOrderOnItsOwnThreadAndLendsItToTheListener) {
  listener.idle_work = 3;
  EXPECT_EQ(reader.stop(), 0) << "not started: says nothing";
  ASSERT_EQ(reader.start(), 0);
  read(call.start());
  for (uint32_t seq = 1; seq <= 100; ++seq) read(call.data(0, seq));
  read(call.control(1));
  read(call.terminate());
  while (listener.packets < 103 || listener.idle_work > 0) std::this_thread::yield();
  EXPECT_EQ(reader.stop(), 0);

  EXPECT_NE(listener.thread, std::this_thread::get_id());
  EXPECT_EQ(listener.events.front(), "START5");
  EXPECT_EQ(listener.last_seq, 100u);
  EXPECT_EQ(listener.events[101], "CTRL5");
  EXPECT_EQ(listener.events.back(), "TERM5");
  EXPECT_EQ(statistic.idle_hits.get(), 3u);
  EXPECT_GE(listener.tries, 103);

  const auto lines = log.texts();
  const std::string self = std::to_string(cv::kernel_thread_id());
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(lines[0].starts_with("SYSTEM media_packet_reader PACKETS_READER: thread ["));
  EXPECT_TRUE(lines[0].ends_with("] started"));
  EXPECT_EQ(lines[0].find("[" + self + "]"), std::string::npos) << "the reader's thread, not ours";
  EXPECT_EQ(lines[1], "SYSTEM media_packet_reader PACKETS_READER: thread [" + self + "] stopped");
}

TEST_F(PacketReaderTest, TracesGoToSyslogWhateverTheSink) {
  for (auto level : {cv::log::Level::ERROR, cv::log::Level::DEBUG, cv::log::Level::TRACE}) {
    cv::log::Logger::m_instance.level = level;
    for (const auto& packet : {call.start(), call.data(0, 1), call.control(1), call.terminate()}) {
      deliver(packet);
    }
  }
  const std::vector<std::string> expected = {"START", "CTRL ", "TERM ", "START", "CTRL ",
                                             "TERM ", "START", "DATA ", "CTRL ", "TERM "};
  std::vector<std::string> traced;
  for (const auto& line : syslog.lines()) {
    traced.push_back(line.text.substr(line.text.find(" | mt: ") - 5, 5));
    const bool data = traced.back() == "DATA ";
    EXPECT_EQ(line.facility, data ? LOG_LOCAL7 : LOG_LOCAL1);
    EXPECT_EQ(line.severity, data ? LOG_DEBUG : LOG_NOTICE);
    EXPECT_TRUE(line.text.starts_with(data ? "TRACE   | media_packet_reader:"
                                           : "SYSTEM  | media_packet_reader:"));
  }
  EXPECT_EQ(traced, expected);
  EXPECT_TRUE(log.lines().empty());
}

}  // namespace
