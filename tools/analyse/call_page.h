// A call's trace as one self-contained page: what its tables hold, to look at. docs/analyse.md says how
// it is read. Pure; any thread.
#pragma once

#include <string>

#include "tools/analyse/call_trace.h"

namespace cv::tools {

/// HTML. Long calls are thinned so that the page still opens: beyond 70 minutes frames are drawn together
/// to their lowest and highest values, and of a sample with many points those are left out that are neither
/// the highest for a while nor within 10 s of what matters.
std::string call_page(const CallTrace& trace);

}  // namespace cv::tools
