#include "utils/utils_str.h"

#include <gtest/gtest.h>

namespace {

namespace str = cv::utils::str;
using Pieces = std::vector<std::string>;

TEST(Split, DividesByOneCharacterByATextAndByASet) {
  const struct {
    const char* text;
    Pieces by_character, by_text, by_any;  // ',' "," ",;", empty ones kept
  } cases[] = {
      {"", {}, {""}, {}},
      {"a,b,", {"a", "b"}, {"a", "b", ""}, {"a", "b", ""}},
      {",a,,b", {"", "a", "", "b"}, {"", "a", "", "b"}, {"", "a", "", "b"}},
      {"a;b", {"a;b"}, {"a;b"}, {"a", "b"}},
  };
  for (const auto& c : cases) {
    Pieces by_character, by_text, by_any;
    str::split(c.text, ',', by_character, true);
    str::split(c.text, ",", by_text, true);
    str::split_any(c.text, ",;", by_any, true);
    EXPECT_EQ(by_character, c.by_character) << c.text;
    EXPECT_EQ(by_text, c.by_text) << c.text;
    EXPECT_EQ(by_any, c.by_any) << c.text;
  }
  Pieces pieces = {"before"};
  str::split("x:::::y:z", "::", pieces, true);
  EXPECT_EQ(pieces, (Pieces{"before", "x", "", ":y:z"})) << "appended, and cut left to right";
  pieces.clear();
  str::split(",,a,,b,", ',', pieces, false);
  str::split("::c::::d::", "::", pieces, false);
  str::split_any(",;e;,f,", ",;", pieces, false);
  EXPECT_EQ(pieces, (Pieces{"a", "b", "c", "d", "e", "f"}));
}

TEST(TrimAndReplace, KnowFourKindsOfWhiteSpaceAndNeverReplaceWhatTheyBroughtIn) {
  const std::string text = "\r\n\t \vx y\f \t\r\n";
  EXPECT_EQ(str::trim_left(text), "\vx y\f \t\r\n");
  EXPECT_EQ(str::trim_right(text), "\r\n\t \vx y\f");
  EXPECT_EQ(str::trim(text), "\vx y\f");
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
