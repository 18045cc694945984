#include "audio/audio_sample_packet.h"

#include <gtest/gtest.h>
#include <vector>

namespace cv::audio {
namespace {

using Bytes = std::vector<unsigned char>;
using Status = SamplePacket::Status;

const Bytes two_points = {'G', 'H', 0,   0,   2,    0,    0,    0,  //
                          1,   2,   3,   4,   5,    6,    7,    0,  //
                          255, 255, 255, 255, 0xFE, 0xFF, 0xFF, 0xFF};
const std::vector<HashPoint> points = {{0x00070605, 0x04030201}, {0xFFFFFFFE, 0xFFFFFFFF}};

TEST(SamplePacket, WritesAndReadsTheSameBytesAtAnyAlignment) {
  EXPECT_EQ(write_sample_packet(points), two_points);
  Bytes shifted = {0xEE};
  shifted.insert(shifted.end(), two_points.begin(), two_points.end());
  SamplePacket packet;
  ASSERT_EQ(SamplePacket::parse(shifted.data() + 1, two_points.size(), packet), Status::Ok);
  EXPECT_EQ(packet.points(), points);
}

TEST(SamplePacket, RefusesWhatIsNotWhole) {
  struct Case {
    const char* name;
    Bytes bytes;
    Status status;
    unsigned points = 0;
    unsigned flags = 0;
  };
  Bytes longer = two_points;
  longer.push_back(1);
  const Case cases[] = {
      {"nothing", {}, Status::TooShort},
      {"magic the other way round", {'H', 'G', 0, 0, 0, 0, 0, 0}, Status::BadMagic},
      {"the highest count", {'G', 'H', 0, 0, 255, 255, 255, 255}, Status::CountExceedsBytes},
      {"a byte missing", {two_points.begin(), two_points.end() - 1}, Status::CountExceedsBytes},
      {"bytes behind the points", longer, Status::Ok, 2},
      {"flags are the receiver's matter", {'G', 'H', 1, 128, 0, 0, 0, 0}, Status::Ok, 0, 0x8001},
  };
  for (const Case& c : cases) {
    SamplePacket packet;
    EXPECT_EQ(SamplePacket::parse(c.bytes.data(), c.bytes.size(), packet), c.status) << c.name;
    EXPECT_EQ(packet.count(), c.points) << c.name;
    EXPECT_EQ(packet.flags(), c.flags) << c.name;
  }
}

}  // namespace
}  // namespace cv::audio
