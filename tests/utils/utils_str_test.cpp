#include "utils/utils_str.h"

#include <gtest/gtest.h>

namespace {

namespace str = cv::utils::str;
using Pieces = std::vector<std::string>;

TEST(Split, DividesByOneCharacterByATextAndByASet) {
  Pieces by_character, by_text, by_any;
  str::split(",a;b,", ',', by_character, true);
  str::split(",a;b,", ",", by_text, true);
  str::split_any(",a;b,", ",;", by_any, true);
  EXPECT_EQ(by_character, (Pieces{"", "a;b"}));
  EXPECT_EQ(by_text, (Pieces{"", "a;b", ""}));
  EXPECT_EQ(by_any, (Pieces{"", "a", "b", ""}));
  by_any = {"before"};
  str::split_any(",;e;,f,", ",;", by_any, false);
  EXPECT_EQ(by_any, (Pieces{"before", "e", "f"})) << "appended";
}

TEST(TrimAndReplace, KnowFourKindsOfWhiteSpaceAndNeverReplaceWhatTheyBroughtIn) {
  EXPECT_EQ(str::trim("\r\n\t \vx y\f \t\r\n"), "\vx y\f");
  EXPECT_EQ(str::trim(" \t\r\n"), "");
  const std::string commas = ",,,,,x";
  EXPECT_EQ(str::replace(commas, ",,", ","), ",,,x");
}

template <typename T>
void check(const char* text, str::try_parse_status status, T expected) {
  T value = 77;
  EXPECT_EQ((str::try_parse_value<T, 10>(text, value).status()), status) << text;
  EXPECT_EQ(value, expected) << text;
}

// 77 stands for untouched.
TEST(TryParseValue, TellsWhatIsWrongAndWritesOnlyNumbersInRange) {
  using enum str::try_parse_status;
  const struct {
    const char* text;
    str::try_parse_status status;
    unsigned short value;
  } cases[] = {
      {"65535", ok, 65535}, {"65536", out_of_range, 77}, {"-1", out_of_range, 77},
      {" +8", ok, 8},       {"80 ", bad_format, 80},     {"0x10", bad_format, 0},
      {"", bad_format, 77}, {nullptr, null_input, 77},
  };
  for (const auto& c : cases) check(c.text, c.status, c.value);
  check("4294967296", out_of_range, 77u);
  check("18446744073709551616", out_of_range, 77ul);
  check("-1e3", ok, -1000.0);
  check("1e999", out_of_range, 77.0);
  check("0.5.", bad_format, 0.5);
}

}  // namespace
