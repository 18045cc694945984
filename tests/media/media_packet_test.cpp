#include "media/media_packet.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "support/packet_builder.h"

namespace {

using namespace cv::media;
using cv::test::CallPackets;

constexpr Uuid uuid = {0xA0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xFF};
const CallPackets call(0x0807060504030201, uuid);

constexpr uint64_t mt = 0x0A0B0C0D;

std::string hex(const Datagram& datagram) {
  std::string text;
  for (unsigned char byte : datagram) {
    for (int nibble : {byte >> 4, byte & 15}) text += "0123456789abcdef"[nibble];
  }
  return text;
}

/// The bytes of a header after type, param and flags have been filled in.
std::string header(const std::string& type, const std::string& param, const std::string& flags) {
  return "ff00ff00" + type + "02" + param + flags + "0102030405060708" +
         "a00102030405060708090a0b0c0d0eff" + "0d0c0b0a00000000";
}

// The wire format byte for byte: it is what sources of another make send.
TEST(MediaPacket, LiesOnTheWireAsDocumented) {
  const StartFields fields{.features = 0xD8,
                           .flags = 0xC1,
                           .ts = 0x1112131415161718,
                           .sync_ts = 3,
                           .sync_mt = 4,
                           .rule = 5,
                           .report_addr = htonl(0x0A000102),
                           .report_port = htons(0x1F90),
                           .call_id = "ab"};
  EXPECT_EQ(hex(call.start(fields, mt)),
            header("81", "d8", "c1") + "1817161514131211" + "0300000000000000" +
                "0400000000000000" + "0500000000000000" + "0a000102" + "1f90" + "0200" + "6162");
  EXPECT_EQ(hex(call.data(1, 0x01020304, std::array<int16_t, 2>{-2, -32768}, mt)),
            header("83", "00", "01") + "04030201" + "00000000" + "0200" + "feff" + "0080");
  EXPECT_EQ(hex(call.terminate(mt)), header("82", "00", "00"));
  EXPECT_EQ(hex(call.control(7, mt)), header("84", "07", "00"));
  EXPECT_EQ(hex(call.feature_update(0x3C, mt)), header("84", "00", "80") + "3c");
}

}  // namespace
