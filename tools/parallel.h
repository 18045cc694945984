// The same work on many things, on all processors.
#pragma once

#include <cstddef>
#include <functional>

namespace cv::tools {

/// Calls `work` with every index below `count`, on as many threads as there are processors, in any
/// order. `progress`, if not empty, is called on the calling thread with (done, count) now and then.
/// An exception of `work` ends the process.
void for_each_index(std::size_t count, const std::function<void(std::size_t)>& work,
                    const std::function<void(std::size_t done, std::size_t total)>& progress);

}  // namespace cv::tools
