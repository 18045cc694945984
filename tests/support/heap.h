// The heap under a test's control: every form of operator new, and malloc, calloc and realloc as the
// executable's own code calls them, are counted, and one may be made to fail.
//
// Per thread: what other threads allocate is neither counted nor failed. Link cv_test_heap, which
// replaces the global operators of the whole executable, and the functions of what is linked into it:
// shared libraries keep the C library's.
#pragma once

#include <cstddef>

namespace cv::test::heap {

struct Counts {
  std::size_t plain = 0;
  std::size_t aligned = 0;  // asked for with an alignment: tables of votes are
  std::size_t deletes = 0;  // free() too

  std::size_t news() const { return plain + aligned; }
};

/// Of this thread, since its start. Its own blocks are all given back when news() == deletes.
Counts counts();

/// While it lives, allocations fail: `count` of them, from the `first` (1: the next) on.
class Failing {
 public:
  Failing(std::size_t first, std::size_t count);
  ~Failing();
  Failing(const Failing&) = delete;
  Failing& operator=(const Failing&) = delete;

  /// How many have failed.
  std::size_t failed() const;
};

/// While it lives, nothing is counted or failed: the test's own work.
class Exempt {
 public:
  Exempt();
  ~Exempt();
  Exempt(const Exempt&) = delete;
  Exempt& operator=(const Exempt&) = delete;
};

}  // namespace cv::test::heap
