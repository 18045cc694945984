#include "core/reference_countable.h"

#include "log/log.h"

namespace cv {

void ReferenceCountable::release() const {
  const int32_t left = m_references.fetch_sub(1, std::memory_order_acq_rel) - 1;
  if (left == 0) {
    delete this;
  } else if (left < 0) {
    CV_LOG(ErrorMessage) << "RC_PTR: possibly a memory leak: impossible to release pointer with "
                            "negative reference count";
  }
}

}  // namespace cv
