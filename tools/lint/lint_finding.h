// What `corvanth lint` has to say, one thing each.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace cv::tools {

/// The kinds, by the names that users select them with; docs/lint.md describes each.
namespace lint_kind {
inline constexpr const char* unusable = "unusable";
inline constexpr const char* too_short = "short";
inline constexpr const char* quiet = "quiet";
inline constexpr const char* clipped = "clipped";
inline constexpr const char* silence = "silence";
inline constexpr const char* leading_silence = "leading-silence";
inline constexpr const char* tone = "tone";
inline constexpr const char* rate = "rate";
inline constexpr const char* missing = "missing";
inline constexpr const char* name = "name";
inline constexpr const char* duplicate = "duplicate";
inline constexpr const char* threshold = "threshold";
inline constexpr const char* missed = "missed";
inline constexpr const char* contains = "contains";
inline constexpr const char* alike = "alike";

inline constexpr std::array all = {unusable,        too_short, quiet,  clipped,  silence,
                                   leading_silence, tone,      rate,   missing,  name,
                                   duplicate,       threshold, missed, contains, alike};
}  // namespace lint_kind

struct LintFinding {
  std::string_view kind;  // of lint_kind
  std::string recording{};
  std::optional<uint64_t> rule{};
  std::string other{};            // the second recording, of a pair
  std::optional<double> score{};  // how far above or below what was wanted
  std::string text{};
};

}  // namespace cv::tools
