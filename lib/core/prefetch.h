// Asking memory for something before it is needed. A hint: it changes nothing, never faults, and may be
// ignored.
#pragma once

#include <cstddef>

namespace cv {

inline constexpr std::size_t cache_line_bytes = 64;

/// The line that `address` is in.
inline void prefetch(const void* address) { __builtin_prefetch(address); }

/// All lines from `address` on that hold `size_bytes`.
inline void prefetch(const void* address, std::size_t size_bytes) {
  const auto* bytes = static_cast<const char*>(address);
  for (std::size_t i = 0; i < size_bytes; i += cache_line_bytes) __builtin_prefetch(bytes + i);
}

}  // namespace cv
