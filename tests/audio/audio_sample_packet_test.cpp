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

}  // namespace
}  // namespace cv::audio
