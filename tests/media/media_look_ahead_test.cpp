// Packets that wait are looked at before they are checked: whatever they are, they are handled in the
// end as if nobody had looked.

#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "media/media_packet_reader.h"
#include "media/media_stream_manager.h"
#include "support/packet_builder.h"

namespace {

using namespace cv::media;
using cv::rc_ptr;

constexpr std::size_t calls = SessionManager::look_ahead_sessions + 100;

cv::test::CallPackets packets_of(std::size_t call) { return {call * 77, Uuid{}}; }

class Node : StreamManager {
 public:
  explicit Node(bool look_ahead)
      : StreamManager(m_statistic),
        m_reader(m_reader_statistic, *this, look_ahead ? this : nullptr) {}

  void send(const Datagram& datagram) { m_reader.read_from(datagram.data(), datagram.size()); }
  void take_all() {
    while (m_reader.step()) {
    }
  }

  std::vector<uint32_t> events;  // of DATA in sequence: call, side and number
  StreamManagerStatistic m_statistic;
  PacketReaderStatistic m_reader_statistic;

 private:
  struct Reader : PacketReader {
    using PacketReader::PacketReader;
    bool step() {
      if (m_queue.empty()) return false;
      on_queue_read(m_queue.take());
      return true;
    }
  };

  void on_stream_media(rc_ptr<Stream> stream, rc_ptr<Session>, DataPacket& packet) override {
    events.push_back(static_cast<uint32_t>(packet.id) * 64 + stream->m_side * 32 + packet.seq);
  }

  Reader m_reader;
};

/// Calls in disorder: some end, some were never there, some packets are no packets at all.
std::vector<Datagram> traffic() {
  std::mt19937 random(1);
  std::vector<Datagram> sent;
  for (std::size_t call = 0; call < calls; ++call) sent.push_back(packets_of(call).start());
  for (uint32_t i = 0; i < 20000; ++i) {
    const auto call = packets_of(random() % (calls + 50));
    const auto side = static_cast<uint16_t>(random() % 2);
    Datagram packet = random() % 100 == 0
                          ? call.terminate()
                          : call.data(side, static_cast<uint32_t>(1 + random() % 31));
    if (random() % 20 == 0) packet.resize(sizeof(PacketHeader) + random() % 20);
    if (random() % 20 == 0) packet[random() % packet.size()] = static_cast<unsigned char>(random());
    sent.push_back(packet);
  }
  return sent;
}

TEST(LookAhead, ChangesNothing) {
  Node ahead(true), plain(false);
  for (Node* node : {&ahead, &plain}) {
    for (const Datagram& packet : traffic()) node->send(packet);
    node->take_all();
  }
  EXPECT_GT(plain.events.size(), 1000u);
  EXPECT_EQ(ahead.events, plain.events);
  EXPECT_EQ(ahead.m_statistic.sessions.get(), plain.m_statistic.sessions.get());
  EXPECT_GT(plain.m_statistic.zombies.get(), 0u);
  EXPECT_EQ(ahead.m_statistic.zombies.get(), plain.m_statistic.zombies.get());
  EXPECT_EQ(ahead.m_reader_statistic.corrupted_size.get(),
            plain.m_reader_statistic.corrupted_size.get());
}

}  // namespace
