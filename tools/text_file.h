// Whole small files at once: read, and replaced so that a reader or a power cut never meets a half.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace cv::tools {

/// Empty, with the reason (path included) in `error`, when the file cannot be read or is larger than
/// 64 MiB.
std::optional<std::string> read_file(const std::string& path, std::string& error);

/// Writes a temporary file beside `path`, syncs it, renames it over `path` and syncs the directory:
/// after any crash the file holds either the old or the new content. An old file's permissions stay, its
/// owner and group where this user may set them; a link's target is replaced, not the link; a device or
/// a pipe is just written to. False, with the reason in `error`; an old file is then untouched.
bool replace_file(const std::string& path, std::string_view content, std::string& error);

/// Whether replace_file() would get as far as writing now: to be asked before long work whose result goes
/// there. False, with the reason in `error`.
bool can_replace_file(const std::string& path, std::string& error);

}  // namespace cv::tools
