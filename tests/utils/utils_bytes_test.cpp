#include "utils/utils_bytes.h"

#include <cstring>
#include <gtest/gtest.h>

#include "utils/utils_str.h"

namespace {

TEST(Decode, TakesPairsOfDigitsAndDashesOfAUuidOnlyInTheirPlaces) {
  EXPECT_EQ(cv::utils::bytes::decode("0aFf9", 4), (std::vector<uint8_t>{0x0A, 0xFF}));
  for (const char* text : {"", "abc", "0g", "g0", " 0", "00:0", "99@`", "G/"})
    EXPECT_TRUE(cv::utils::bytes::decode(text, strlen(text)).empty()) << text;

  const char* const cases[] = {
      "00112233-4455-6677-8899-AABBccddeeff", "00112233445566778899aabbccddeeff and more",
      "0011-2233-4455-6677-8899-aabbccddeeff", "00112233-4455-6677-8899-aabbccddeef"};
  for (int i = 0; i < 4; ++i) {
    uint8_t uuid[16] = {};
    const bool accepted = cv::utils::bytes::decode_uuid(cases[i], uuid, cv::tag::direct_update);
    EXPECT_EQ(accepted, i < 2) << cases[i];
    EXPECT_EQ(cv::utils::str::print_uuid(uuid) == "00112233-4455-6677-8899-aabbccddeeff", i < 2);
  }
}

}  // namespace
