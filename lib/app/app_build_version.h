// What this executable was built from, written into the build tree when the source's revision changes.
#pragma once

namespace cv::app {

/// 16 hexadecimal digits of the revision, "@" and the branch; zeros and "unknown" when the sources
/// are not a repository.
const char* build_identifier();

/// When this revision was first built, UTC, "yymmdd:hhmmss".
const char* build_time();

}  // namespace cv::app
