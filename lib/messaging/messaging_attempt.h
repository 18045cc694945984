// What the consumer thread and the library's callbacks do when memory does not suffice.
#pragma once

#include <new>

#include "log/log.h"

namespace cv::messaging {

/// False, after an ERROR line, when `work` ended with std::bad_alloc. No exception may leave a callback:
/// the library calls it from C, with its locks held.
template <typename Work>
bool attempt(Work work) {
  try {
    work();
    return true;
  } catch (const std::bad_alloc&) {
    CV_LOG(ErrorMessage) << "MESSAGE_BROKER: out of memory, a message or notice was not handled";
    return false;
  }
}

}  // namespace cv::messaging
