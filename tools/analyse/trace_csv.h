// A call's trace as tables: comma-separated, one heading line, RFC 4180 quoting, a point for decimals.
// docs/analyse.md describes the columns. Pure; any thread.
#pragma once

#include <string>

#include "tools/analyse/call_trace.h"

namespace cv::tools {

/// A row a frame and side.
std::string frames_csv_heading();
std::string frames_csv(const CallTrace& trace);

/// A row for each point of each track.
std::string scores_csv_heading();
std::string scores_csv(const CallTrace& trace);

}  // namespace cv::tools
