// How many bytes of the heap are in use through new and delete, counted, in whole blocks of the
// allocator. For executables that link heap_count.cpp: it replaces the global operators.
#pragma once

#include <cstddef>

namespace cv::bench {

/// Of all threads; exact when only one allocates.
std::size_t heap_bytes();

}  // namespace cv::bench
