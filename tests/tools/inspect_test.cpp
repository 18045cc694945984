#include <gtest/gtest.h>

#include "audio/audio_sample_packet.h"
#include "tools/fingerprint.h"
#include "tools/inspect/inspect_command.h"

namespace cv::tools {
namespace {

// Positions 1, 2, 3, 4 and 5, 6, 7, 8, strongest first.
constexpr uint32_t low = 1 | 2 << 6 | 3 << 12 | 4 << 18;
constexpr uint32_t high = 5 | 6 << 6 | 7 << 12 | 8 << 18;
constexpr uint32_t other = 9 | 10 << 6 | 11 << 12 | 12 << 18;

TEST(PacketFile, ReadsBytesAndLinesOfDigits) {
  const Points one = {{low, 0}, {high, 3}}, two = {{low, 7}};
  const auto first = audio::write_sample_packet(one), second = audio::write_sample_packet(two);
  EXPECT_EQ(to_hex(second), "47480000010000000700000081301000") << "docs' order of bytes";
  std::string error;
  const auto raw = parse_packets("a", std::string(first.begin(), first.end()) + "tail", error);
  ASSERT_TRUE(raw) << error;
  EXPECT_EQ(raw->at(0).points, one);
  EXPECT_EQ(raw->at(0).unused_bytes, 4u);
  const auto lines = parse_packets("a", to_hex(first) + "\r\n\n" + to_hex(second), error);
  ASSERT_TRUE(lines) << error;
  ASSERT_EQ(lines->size(), 2u);
  EXPECT_EQ(lines->at(1).points, two);
  EXPECT_EQ(lines->at(1).name, "a:3");
}

TEST(PacketFile, SaysWhatIsWrongAndWhere) {
  using namespace std::string_literals;
  const std::pair<std::string, const char*> table[] = {
      {"", "byte 0: ends within the header of 8 bytes"},
      {"RIFF....WAVE", "byte 0: no sample packet"},
      {"0123456789abcdef", "byte 0: no sample packet"},
      {"GH\1\0\0\0\0\0"s, "byte 2: flags 0x0001"},
      {"GH\0\0\xFF\xFF\xFF\xFF"s, "byte 4: a count of 4294967295 points needs 34359738368 bytes"},
      {"4748000000000000\n47480x", "line 2, column 6: no hexadecimal digit"},
      {"474800000000000", "line 1, column 15: half a byte"},
      {"4748000001000000", "line 1, byte 4: a count of 1"},
  };
  for (const auto& [content, expected] : table) {
    std::string error;
    EXPECT_FALSE(parse_packets("a", content, error)) << expected;
    EXPECT_EQ(error.find(expected), 0u) << error;
  }
}

TEST(Inspect, PointsThatNoNodeWouldMakeAreForeign) {
  const PacketFacts facts = packet_facts(
      {{low, 0}, {low, 3}, {high, 3}, {other, 3}, {low, 5}, {0, 4}, {low | 1u << 24, 13}}, 2);
  EXPECT_EQ(facts.foreign_points, 2u);
  EXPECT_EQ(facts.first_foreign_point, 5u);
  EXPECT_EQ(facts.least_spacing_frames, 2u);
  EXPECT_EQ(facts.commonest, (std::vector<HashCount>{{low, 3}, {0, 1}}));
}

TEST(Inspect, VotesComeFromTheSpeechOrTheOtherPackets) {
  const std::vector<NamedPacket> packets = {{"one", {{low, 0}, {low, 2}, {high, 4}}, 32, 0},
                                            {"two", {{low, 0}, {high, 1}}, 24, 0}};
  const Inspection others = inspect_packets(packets, {}, {});
  EXPECT_DOUBLE_EQ(others.packets[0].votes_a_point, 1.5);
  EXPECT_DOUBLE_EQ(others.packets[1].votes_a_point, 1);
  EXPECT_DOUBLE_EQ(others.packets[0].share_of_votes, 0.6);
  InspectOptions options;
  options.speech = {"some.wav"};
  const Inspection speech = inspect_packets(packets, {{low, 0}, {other, 1}}, options);
  EXPECT_DOUBLE_EQ(speech.packets[0].votes_a_point, 1);
}

TEST(Inspect, ThePeakIsTheHighestScoreOfTheNodesDetector) {
  // Eight hashes in a row, heard from stream frame 100 on, then votes for other shifts only.
  Points sample, stream;
  for (uint32_t i = 0; i < 8; ++i) sample.push_back({low + i, i});
  for (uint32_t i = 0; i < 8; ++i) stream.push_back({low + i, 100 + i});
  for (uint32_t i = 0; i < 40; ++i) stream.push_back({low, 300 + 10 * i});
  const PacketComparison comparison = compare_packets(sample, stream, 1);
  EXPECT_EQ(comparison.common_hashes, 8u);
  EXPECT_EQ(comparison.first_in_second->shift, -100);
  const auto& peak = comparison.second_in_first;
  ASSERT_TRUE(peak);
  EXPECT_DOUBLE_EQ(peak->score, 3);  // eight votes and no other shift
  EXPECT_EQ(peak->shift, 100);
  EXPECT_EQ(peak->reached_frame, 107u);
  EXPECT_EQ(peak->end_frame, 8u);
  EXPECT_FALSE(peak_match(sample, {{high, 0}}, 1));
}

}  // namespace
}  // namespace cv::tools
