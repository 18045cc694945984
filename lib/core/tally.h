// Counts what happens too often to be said each time, and says when a line about it is due: at once
// for the first, then at most once in a period for all that came since.
//
// One thread, but for total(). Pure: the caller brings the time and writes the line.
#pragma once

#include <cstdint>
#include <optional>
#include <utility>

#include "core/counter.h"

namespace cv {

class Tally {
 public:
  static constexpr int64_t period_us = 5000000;

  void add(uint64_t count) {
    m_unsaid += count;
    m_total.add(count);
  }

  /// All that was ever added. Any thread.
  uint64_t total() const { return m_total.get(); }

  /// How many have not been said yet.
  uint64_t unsaid() const { return m_unsaid; }

  /// When the unsaid ones are due, on the clock that take() is given.
  int64_t due_us() const { return m_due_us; }

  /// The count that is to be said now; nothing while there is none, or the period is not over.
  std::optional<uint64_t> take(int64_t now_us) {
    if (m_unsaid == 0 || now_us < m_due_us) return std::nullopt;
    m_due_us = now_us + period_us;
    return take_rest();
  }

  /// All that is unsaid, due or not: for the end.
  uint64_t take_rest() { return std::exchange(m_unsaid, 0); }

 private:
  Counter m_total;
  uint64_t m_unsaid = 0;
  int64_t m_due_us = INT64_MIN;
};

}  // namespace cv
