// What a packet of a call under way takes from the heap: nothing, but for tables of votes and the points
// behind them. In an executable of its own, since it replaces the global operators.
#include <cstdlib>
#include <gtest/gtest.h>
#include <malloc.h>
#include <new>

#include "audio/audio_fingerprint.h"
#include "media/media_packet_reader.h"
#include "support/pipeline.h"
#include "support/recordings.h"

namespace {

// Of this test's only thread.
std::size_t plain_news = 0;
std::size_t aligned_news = 0;  // tables of votes are the only ones that ask for an alignment
std::size_t deletes = 0;

void* checked(void* block) {
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

// Not inline: seen from where a block is deleted, free() would not match the operator that gave it.
[[gnu::noinline]] void release(void* block) {
  if (block != nullptr) ++deletes;
  std::free(block);
}

}  // namespace

void* operator new(std::size_t size) {
  ++plain_news;
  return checked(std::malloc(size));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  ++plain_news;
  return std::malloc(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  ++aligned_news;
  const auto unit = static_cast<std::size_t>(alignment);
  return checked(std::aligned_alloc(unit, (size + unit - 1) / unit * unit));
}
void operator delete(void* block) noexcept { release(block); }
void operator delete(void* block, std::size_t) noexcept { release(block); }
void operator delete(void* block, std::align_val_t) noexcept { release(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { release(block); }

namespace cv::test {

namespace {

/// The packet reader without its thread.
struct SteppedReader : media::PacketReader {
  using PacketReader::PacketReader;
  void take(const media::Datagram& datagram) {
    read_from(datagram.data(), datagram.size());
    on_queue_try();
    on_queue_read(m_queue.take());
  }
};

/// The datagrams of a side, made before anything is counted; `seq` counts on.
std::vector<media::Datagram> packets_of(const CallPackets& call, std::span<const int16_t> audio,
                                        uint32_t& seq) {
  std::vector<media::Datagram> packets;
  for (std::size_t at = 0; at + 160 <= audio.size(); at += 160) {
    packets.push_back(call.data(0, ++seq, audio.subspan(at, 160)));
  }
  return packets;
}

TEST(PacketPath, AllocatesNothingForAWarmStreamButVotes) {
  const auto prompts = english_prompts(16000);
  const auto unknown = french_prompts(16000);
  ASSERT_GE(prompts.size(), 50u);
  ASSERT_GE(unknown.size(), 20u);
  std::vector<KnownSample> samples;
  for (uint32_t i = 0; i < 50; ++i) {
    samples.push_back({i, "prompt", audio::fingerprint(prompts[i].samples)});
  }
  std::vector<int16_t> speech;
  for (std::size_t i = 0; i < 20; ++i) {
    speech.insert(speech.end(), unknown[i].samples.begin(), unknown[i].samples.end());
  }

  Pipeline node;
  node.publish(1, 0, samples);
  media::PacketReaderStatistic statistic;
  SteppedReader reader(statistic, node.media.manager());
  const CallPackets call;
  reader.take(call.start());
  uint32_t seq = 0;
  for (const auto& packet : packets_of(call, speech, seq)) reader.take(packet);
  node.reports.texts();  // what is found is found now: the second time it is nothing new

  const auto again = packets_of(call, speech, seq);
  const std::size_t points = audio::fingerprint(speech).size();
  const auto before = mallinfo2();
  plain_news = aligned_news = deletes = 0;
  for (const auto& packet : again) reader.take(packet);
  const std::size_t allocated = plain_news, freed = deletes;
  const auto after = mallinfo2();

  EXPECT_EQ(statistic.data_packets.get(), 2 * again.size());
  EXPECT_EQ(aligned_news, 0u) << "the same sounds need no more tables";
  // The log of points grows by blocks of 64, and now and then by the table of these blocks.
  EXPECT_LE(allocated, points / 64 + 4) << "of " << again.size() << " packets";
  EXPECT_LE(freed, 4u);
  EXPECT_EQ(after.hblks, before.hblks) << "memory was mapped";
  EXPECT_GT(allocated, 0u)
      << "nothing was counted: the operators were not replaced, or no point voted";
}

}  // namespace

}  // namespace cv::test
