#include "audio/audio_sample_packet.h"

#include <cstring>
#include <gtest/gtest.h>
#include <vector>

namespace {

using cv::audio::HashPoint;
using cv::audio::SamplePacket;
using Bytes = std::vector<unsigned char>;
using Status = SamplePacket::Status;

const Bytes two_points = {'G', 'H', 0,   0,   2,    0,    0,    0,  //
                          1,   2,   3,   4,   5,    6,    7,    0,  //
                          255, 255, 255, 255, 0xFE, 0xFF, 0xFF, 0xFF};
const std::vector<HashPoint> points = {{0x00070605, 0x04030201}, {0xFFFFFFFE, 0xFFFFFFFF}};

TEST(SamplePacket, WritesAndReadsTheSameBytes) {
  EXPECT_EQ(cv::audio::write_sample_packet(points), two_points);
  EXPECT_EQ(cv::audio::write_sample_packet({}), (Bytes{'G', 'H', 0, 0, 0, 0, 0, 0}));
  SamplePacket packet;
  ASSERT_EQ(SamplePacket::parse(two_points.data(), two_points.size(), packet), Status::Ok);
  EXPECT_EQ(packet.flags(), 0);
  EXPECT_EQ(packet.count(), 2u);
  EXPECT_EQ(packet.points(), points);
  EXPECT_EQ(packet.point(1), points[1]);
}

TEST(SamplePacket, RefusesWhatIsNotWhole) {
  struct Case {
    const char* name;
    Bytes bytes;
    Status status;
  };
  const Bytes cut(two_points.begin(), two_points.begin() + 23);
  Bytes longer = two_points;
  longer.push_back(1);
  const Case cases[] = {
      {"nothing", {}, Status::TooShort},
      {"a byte short of a header", {'G', 'H', 0, 0, 0, 0, 0}, Status::TooShort},
      {"a short one with another magic", {'H', 'G', 0, 0, 0, 0, 0}, Status::TooShort},
      {"magic the other way round", {'H', 'G', 0, 0, 0, 0, 0, 0}, Status::BadMagic},
      {"another magic and a count", {'G', 'I', 0, 0, 9, 0, 0, 0}, Status::BadMagic},
      {"a point missing", {'G', 'H', 0, 0, 1, 0, 0, 0}, Status::CountExceedsBytes},
      {"the highest count", {'G', 'H', 0, 0, 255, 255, 255, 255}, Status::CountExceedsBytes},
      {"a byte missing", cut, Status::CountExceedsBytes},
      {"bytes behind the points", longer, Status::Ok},
      {"unknown flags are the receiver's matter", {'G', 'H', 1, 128, 0, 0, 0, 0}, Status::Ok},
  };
  for (const Case& c : cases) {
    SamplePacket packet;
    EXPECT_EQ(SamplePacket::parse(c.bytes.data(), c.bytes.size(), packet), c.status) << c.name;
    if (c.status == Status::Ok) continue;
    EXPECT_EQ(packet.count(), 0u) << c.name << " leaves it untouched";
  }
  SamplePacket packet;
  SamplePacket::parse(cases[9].bytes.data(), 8, packet);
  EXPECT_EQ(packet.flags(), 0x8001);
}

TEST(SamplePacket, ReadsAtAnyAlignment) {
  for (std::size_t shift = 0; shift < 8; ++shift) {
    Bytes bytes(shift, 0xEE);
    bytes.insert(bytes.end(), two_points.begin(), two_points.end());
    SamplePacket packet;
    ASSERT_EQ(SamplePacket::parse(bytes.data() + shift, two_points.size(), packet), Status::Ok);
    EXPECT_EQ(packet.points(), points) << shift;
  }
}

}  // namespace
