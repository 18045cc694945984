#include "utils/utils_bytes.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "utils/utils_str.h"

namespace {

namespace bytes = cv::utils::bytes;

TEST(Decode, TakesPairsOfDigitsOrNothing) {
  const struct {
    const char* text;
    std::vector<uint8_t> expected;
  } cases[] = {
      {"0aFf", {0x0A, 0xFF}},
      {"4748", {0x47, 0x48}},
      {"", {}},
      {"abc", {}},
      {"zz", {}},
      {"0g", {}},
      {" 0", {}},
      {"00:0", {}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(bytes::decode(c.text, strlen(c.text)), c.expected) << c.text;
  EXPECT_EQ(bytes::decode("0aFf", 2), std::vector<uint8_t>{0x0A})
      << "the length counts, not the NUL";
}

TEST(DecodeUuid, ReadsBothFormsAndDashesOnlyInTheirPlaces) {
  const std::string dashed = "00112233-4455-6677-8899-aabbccddeeff";
  const struct {
    const char* text;
    bool accepted;
  } cases[] = {
      {"00112233-4455-6677-8899-aabbccddeeff", true},
      {"00112233-4455-6677-8899-AABBCCDDEEFF", true},
      {"00112233445566778899aabbccddeeff", true},
      {"00112233-4455-6677-8899-aabbccddeeff and more", true},
      {"0011-2233-4455-6677-8899-aabbccddeeff", false},
      {"00112233--4455-6677-8899-aabbccddeeff", false},
      {"00112233-4455-6677-8899-aabbccddeef", false},
      {"00112233-4455-6677-8899-aabbccddeegg", false},
      {"", false},
  };
  for (const auto& c : cases) {
    uint8_t uuid[16] = {};
    EXPECT_EQ(bytes::decode_uuid(c.text, uuid, cv::tag::direct_update), c.accepted) << c.text;
    EXPECT_EQ(cv::utils::str::print_uuid(uuid) == dashed, c.accepted);
  }
}

}  // namespace
