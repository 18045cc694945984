// The thread that plays all calls of a load, each packet on its time.
//
// It follows the plan tick by tick. When it falls behind it sends what is due at once and without
// pauses until it is back on time: nothing is left out, and how late it was is told.
// Threads: start() and stop() by the owner; after stop() the results may be read.
#pragma once

#include <cstdint>
#include <vector>

#include "core/thread.h"
#include "tools/load/call_script.h"
#include "tools/load/load_plan.h"
#include "tools/load/packet_batch.h"
#include "tools/play/call_schedule.h"

namespace cv::tools {

/// What every call of a load has in common.
struct LoadCalls : StartSettings {
  uint64_t run = 0;  // tells the calls of one run from those of another
};

/// The number of the call in its run is in the last eight bytes.
media::Uuid load_uuid(uint64_t run, uint32_t call);

class LoadSender : public Thread {
 public:
  /// Borrows plan and scripts. `descriptor`: a UDP socket connected to the node, borrowed.
  /// `start_us`: tick 0 on steady_clock().
  LoadSender(const LoadPlan& plan, const std::vector<CallScript>& scripts, const LoadCalls& calls,
             int descriptor, int64_t start_us);

  void run() override;
  /// Any thread: ends every call at the next tick.
  void break_off() { m_broken_off.store(true, std::memory_order_relaxed); }
  /// Any thread: whether the last TERM is sent.
  bool done() const { return m_done.load(std::memory_order_acquire); }

  // After done().
  /// At which every call had ended.
  int64_t end_tick() const { return m_end_tick; }
  uint64_t packets_sent() const { return m_batch.sent(); }
  uint64_t packets_refused() const { return m_batch.refused(); }
  int error() const { return m_batch.error(); }
  /// Audio packets that were not sent, and those that a node drops because it has had their successor or
  /// themselves already.
  uint64_t packets_left_out() const { return m_left_out; }
  uint64_t packets_repeated() const { return m_repeated; }
  /// The longest that a tick's packets were behind their time.
  int64_t latest_us() const { return m_latest_us; }

 private:
  struct Slot {
    uint32_t number;
    int64_t start_tick;
    bool in_call = false;
    uint32_t call = 0;
    media::CallKey key{};
    const CallScript* script = nullptr;
    std::size_t switches = 0;  // of the script, done
  };

  void send_tick(int64_t tick);
  void send_block(Slot& slot, int64_t tick);
  void send_switches(Slot& slot, uint32_t block);
  void send_side(const Slot& slot, uint16_t side, uint32_t block);
  void send_data(const Slot& slot, uint16_t side, uint32_t block);
  void begin_call(Slot& slot, uint32_t call);
  void end_call(Slot& slot, uint64_t media_us);
  void end_all(int64_t tick);

  const LoadPlan& m_plan;
  const std::vector<CallScript>& m_scripts;
  const LoadCalls m_calls;
  const int64_t m_start_us;
  std::vector<std::vector<Slot>> m_phases;  // by phase_of() the slot's start
  PacketBatch m_batch;
  int64_t m_end_tick = 0;
  int64_t m_latest_us = 0;
  uint64_t m_left_out = 0;
  uint64_t m_repeated = 0;
  std::atomic<bool> m_broken_off{false};
  std::atomic<bool> m_done{false};
};

}  // namespace cv::tools
