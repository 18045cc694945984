// What a packet of a call under way takes from the heap: nothing, but for tables of votes and the points
// behind them. In an executable of its own, since it replaces the global operators.
#include <gtest/gtest.h>
#include <malloc.h>

#include "audio/audio_fingerprint.h"
#include "media/media_packet_reader.h"
#include "support/heap.h"
#include "support/pipeline.h"
#include "support/recordings.h"
#include "support/stepped_reader.h"

namespace cv::test {

namespace {

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
  ASSERT_GE(prompts.size(), 20u);
  ASSERT_GE(unknown.size(), 8u);
  std::vector<KnownSample> samples;
  for (uint32_t i = 0; i < 20; ++i) {
    samples.push_back({i, "prompt", audio::fingerprint(prompts[i].samples)});
  }
  std::vector<int16_t> speech;
  for (std::size_t i = 0; i < 8; ++i) {
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
  const auto counted = heap::counts();
  for (const auto& packet : again) reader.take(packet);
  const auto now = heap::counts();
  const std::size_t allocated = now.plain - counted.plain, freed = now.deletes - counted.deletes;
  const auto after = mallinfo2();

  EXPECT_EQ(statistic.data_packets.get(), 2 * again.size());
  EXPECT_EQ(now.aligned - counted.aligned, 0u) << "the same sounds need no more tables";
  // The log of points grows by blocks of 64, and now and then by the table of these blocks.
  EXPECT_LE(allocated, points / 64 + 4) << "of " << again.size() << " packets";
  EXPECT_LE(freed, 4u);
  EXPECT_EQ(after.hblks, before.hblks) << "memory was mapped";
  EXPECT_GT(allocated, 0u)
      << "nothing was counted: the operators were not replaced, or no point voted";
}

}  // namespace

}  // namespace cv::test
