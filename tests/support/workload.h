// How much a test that compares at length does.
#pragma once

#include <cstddef>

namespace cv::test {

/// Instrumented or unoptimised code is about this much slower.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(__OPTIMIZE__)
inline constexpr std::size_t slowdown = 8;
#else
inline constexpr std::size_t slowdown = 1;
#endif

/// `amount`, less where the code is slow, so that the test takes as long.
constexpr std::size_t scaled(std::size_t amount) { return (amount + slowdown - 1) / slowdown; }

}  // namespace cv::test
