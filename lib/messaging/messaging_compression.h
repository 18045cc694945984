// zlib streams that every receiver of a message can inflate.
//
// A receiver makes room for ten times the size of the compressed body and drops what needs more.
// zlib's own output of a regular text, such as a configuration of 50 alike entries, shrinks further
// than that.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace cv::messaging {

/// The largest ratio of plain to compressed size that a receiver accepts.
inline constexpr std::size_t max_inflation = 10;

/// A zlib stream (RFC 1950) of `plain` with plain.size() <= max_inflation * result.size(): zlib's own
/// where that holds, else the same with empty stored blocks (RFC 1951, 3.2.4) before its end, as few
/// as bring it there. Weaker compression would hold the bound too, but makes the body up to six times
/// larger than it has to be, and a body has a limit of its own.
/// Empty when zlib fails. Any thread.
std::vector<unsigned char> compress_bounded(std::span<const unsigned char> plain);

}  // namespace cv::messaging
