// Which call is where at which time: N slots, each of which plays one call after another. Pure.
//
// Time is in ticks of a millisecond since the run's start. A slot starts within the ramp and then has
// a packet of each side every 20 ms; its calls follow one another without a gap, the last one ends
// with the run. A call's number is unique within the run.
#pragma once

#include <algorithm>
#include <cstdint>

#include "tools/play/call_schedule.h"

namespace cv::tools {

inline constexpr int64_t tick_us = 1000;
inline constexpr int64_t block_ticks = block_us / tick_us;

struct LoadPlan {
  uint32_t slots = 0;
  uint32_t scripts = 0;
  uint32_t call_blocks = 0;  // length of a whole call
  int64_t ramp_ticks = 0;    // the slots' starts are spread over it
  int64_t end_tick = 0;      // of the run: every call has ended before or at it

  /// Slots whose packets fall on the same tick of every 20 ms.
  static int64_t phase_of(int64_t tick) { return tick % block_ticks; }

  /// Neighbours differ in their phase, so that every tick has its share of the packets whatever the
  /// number of slots and the length of the ramp.
  int64_t slot_start(uint32_t slot) const {
    const int64_t in_ramp = ramp_ticks * slot / std::max(slots, 1U);
    return in_ramp / block_ticks * block_ticks + slot % block_ticks;
  }

  uint32_t call_number(uint32_t slot, int64_t round) const {
    return static_cast<uint32_t>(round) * slots + slot;
  }
  uint32_t slot_of(uint32_t call) const { return call % slots; }

  int64_t call_start(uint32_t call) const {
    return slot_start(slot_of(call)) + int64_t{call / slots} * call_blocks * block_ticks;
  }
  /// Blocks of a call that begins before `end`, an end of the run that came earlier than planned, say.
  uint32_t blocks_until(uint32_t call, int64_t end) const {
    const int64_t left_ticks = end - call_start(call);
    const int64_t left = std::max<int64_t>(left_ticks + block_ticks - 1, 0) / block_ticks;
    return static_cast<uint32_t>(std::min<int64_t>(left, call_blocks));
  }
  /// Calls that begin before `end` have numbers below this; some of those may begin later.
  uint32_t calls_until(int64_t end) const {
    const int64_t rounds = end / (call_blocks * block_ticks) + 1;
    return static_cast<uint32_t>(rounds) * slots;
  }

  /// A slot plays another script each time.
  uint32_t script_of(uint32_t call) const { return (call + call / slots) % scripts; }
};

}  // namespace cv::tools
