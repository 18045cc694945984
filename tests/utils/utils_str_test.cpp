#include "utils/utils_str.h"

#include <gtest/gtest.h>
#include <iomanip>
#include <limits>
#include <sstream>

namespace {

namespace str = cv::utils::str;
using str::try_parse_status;
using Pieces = std::vector<std::string>;

TEST(Split, DividesByOneCharacterByATextAndByASet) {
  const struct {
    const char* text;
    Pieces by_character, by_character_kept;  // ','
    Pieces by_text, by_text_kept;            // ","
    Pieces by_any, by_any_kept;              // ",;"
  } cases[] = {
      {"", {}, {}, {}, {""}, {}, {}},
      {"a", {"a"}, {"a"}, {"a"}, {"a"}, {"a"}, {"a"}},
      {"a,b,", {"a", "b"}, {"a", "b"}, {"a", "b"}, {"a", "b", ""}, {"a", "b"}, {"a", "b", ""}},
      {",a", {"a"}, {"", "a"}, {"a"}, {"", "a"}, {"a"}, {"", "a"}},
      {"a,,b", {"a", "b"}, {"a", "", "b"}, {"a", "b"}, {"a", "", "b"}, {"a", "b"}, {"a", "", "b"}},
      {",", {}, {""}, {}, {"", ""}, {}, {"", ""}},
      {"a;b", {"a;b"}, {"a;b"}, {"a;b"}, {"a;b"}, {"a", "b"}, {"a", "b"}},
  };
  for (const auto& c : cases) {
    for (const bool keep : {false, true}) {
      Pieces by_character, by_text, by_string, by_any;
      str::split(c.text, ',', by_character, keep);
      str::split(c.text, ",", by_text, keep);
      str::split(c.text, std::string(","), by_string, keep);
      str::split_any(c.text, ",;", by_any, keep);
      EXPECT_EQ(by_character, keep ? c.by_character_kept : c.by_character) << c.text << keep;
      EXPECT_EQ(by_text, keep ? c.by_text_kept : c.by_text) << c.text << keep;
      EXPECT_EQ(by_string, by_text) << c.text << keep;
      EXPECT_EQ(by_any, keep ? c.by_any_kept : c.by_any) << c.text << keep;
    }
  }
}

TEST(Split, AppendsAndSearchesJustBehindADelimiter) {
  Pieces pieces = {"before"};
  str::split("x::::y:z", "::", pieces, true);
  EXPECT_EQ(pieces, (Pieces{"before", "x", "", "y:z"}));
  pieces.clear();
  str::split("a:::b", "::", pieces, false);
  EXPECT_EQ(pieces, (Pieces{"a", ":b"}));
}

TEST(Trim, RemovesFourKindsOfWhiteSpaceAndNoOther) {
  const struct {
    const char *text, *left, *right, *both;
  } cases[] = {
      {"", "", "", ""},
      {" \t\r\n", "", "", ""},
      {"x \r\n", "x \r\n", "x", "x"},
      {"\t x y ", "x y ", "\t x y", "x y"},
      {"\v x\f", "\v x\f", "\v x\f", "\v x\f"},
      {" \v x", "\v x", " \v x", "\v x"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(str::trim_left(c.text), c.left);
    EXPECT_EQ(str::trim_right(c.text), c.right);
    EXPECT_EQ(str::trim(c.text), c.both);
  }
  EXPECT_EQ(str::trim_left("--a-", "-"), "a-");
  EXPECT_EQ(str::trim_right("-a b-x", "x-"), "-a b");
}

TEST(Replace, NeverReplacesWhatItBroughtIn) {
  const struct {
    const char *text, *from, *to, *expected;
  } cases[] = {
      {"a,,b", ",,", "_;", "a_;b"},       {",,,", ",,", ",", ",,"}, {"aaa", "a", "aa", "aaaaaa"},
      {"10.1.2.3", ".", "o", "10o1o2o3"}, {"abc", "abc", "", ""},   {"abc", "x", "y", "abc"},
  };
  for (const auto& c : cases) {
    const std::string original = c.text;
    EXPECT_EQ(str::replace(original, c.from, c.to), c.expected);
    std::string text = c.text;
    EXPECT_EQ(&str::replace(text, c.from, c.to), &text);
    EXPECT_EQ(text, c.expected);
  }
}

TEST(PrintUuid, WritesGroupsAndLeavesTheStreamAsItWas) {
  uint8_t bytes[16];
  for (int i = 0; i < 16; ++i) bytes[i] = static_cast<uint8_t>(i * 0x11);
  const std::string expected = "00112233-4455-6677-8899-aabbccddeeff";
  EXPECT_EQ(str::print_uuid(bytes), expected);
  std::ostringstream out;
  out << std::uppercase << std::setfill('*') << std::hex;
  str::print_uuid(out, bytes) << ' ' << std::setw(4) << 0xAB;
  EXPECT_EQ(out.str(), expected + " **AB");
}

template <typename T>
struct NumberCase {
  const char* text;
  try_parse_status status;
  T value;  // 77 stands for untouched
};

template <typename T>
void check(const std::vector<NumberCase<T>>& cases) {
  for (const auto& c : cases) {
    T value = 77;
    const auto result = str::try_parse_value<T, 10>(c.text, value);
    EXPECT_EQ(result.status(), c.status) << c.text;
    EXPECT_EQ(static_cast<bool>(result), c.status == try_parse_status::ok) << c.text;
    EXPECT_EQ(value, c.value) << c.text;
  }
}

TEST(TryParseValue, TellsWhatIsWrongAndWritesOnlyNumbersInRange) {
  using enum try_parse_status;
  check<unsigned short>({{"0", ok, 0},
                         {"65535", ok, 65535},
                         {"65536", out_of_range, 77},
                         {"99999999999999999999999", out_of_range, 77},
                         {"-1", out_of_range, 77},
                         {"12x", bad_format, 12},
                         {"80 ", bad_format, 80},
                         {" +8", ok, 8},
                         {"", bad_format, 77},
                         {"x", bad_format, 77},
                         {"0x10", bad_format, 0}});
  check<unsigned int>({{"4294967295", ok, 4294967295u}, {"4294967296", out_of_range, 77}});
  check<unsigned long>({{"18446744073709551615", ok, std::numeric_limits<unsigned long>::max()},
                        {"18446744073709551616", out_of_range, 77},
                        {"-1", ok, std::numeric_limits<unsigned long>::max()}});
  check<double>({{"0.75", ok, 0.75},
                 {"-1e3", ok, -1000},
                 {"1e999", out_of_range, 77},
                 {"0.5.", bad_format, 0.5},
                 {".", bad_format, 77}});
  unsigned int value = 77;
  EXPECT_EQ((str::try_parse_value<unsigned int, 10>(nullptr, value).status()), null_input);
  double number = 77;
  EXPECT_EQ((str::try_parse_value<double, 10>(nullptr, number).status()), null_input);
}

}  // namespace
