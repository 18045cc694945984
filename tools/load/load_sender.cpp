#include "tools/load/load_sender.h"

#include <algorithm>
#include <ctime>
#include <span>
#include <string>

#include "core/clock.h"
#include "tools/crc64.h"

namespace cv::tools {

namespace {

/// steady_clock() counts in the same clock.
void sleep_until(int64_t time_us) {
  const timespec time{time_us / 1000000, time_us % 1000000 * 1000};
  clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr);
}

}  // namespace

media::Uuid load_uuid(uint64_t run, uint32_t call) {
  media::Uuid uuid{};
  for (std::size_t i = 0; i < 8; ++i) {
    uuid[i] = static_cast<uint8_t>(run >> (56 - 8 * i));
    uuid[8 + i] = static_cast<uint8_t>(uint64_t{call} >> (56 - 8 * i));
  }
  return uuid;
}

LoadSender::LoadSender(const LoadPlan& plan, const std::vector<CallScript>& scripts,
                       const LoadCalls& calls, int descriptor, int64_t start_us)
    : m_plan(plan),
      m_scripts(scripts),
      m_calls(calls),
      m_start_us(start_us),
      m_phases(block_ticks),
      m_batch(descriptor) {
  for (uint32_t number = 0; number < plan.slots; ++number) {
    const int64_t start_tick = plan.slot_start(number);
    m_phases[static_cast<std::size_t>(LoadPlan::phase_of(start_tick))].push_back(
        {.number = number, .start_tick = start_tick});
  }
}

void LoadSender::run() {
  name_this_thread("load sender");
  int64_t tick = 0;
  for (; tick < m_plan.end_tick && !m_broken_off.load(std::memory_order_relaxed); ++tick) {
    const int64_t due_us = m_start_us + tick * tick_us;
    if (steady_clock().now_us() < due_us) sleep_until(due_us);
    send_tick(tick);
    m_latest_us = std::max(m_latest_us, steady_clock().now_us() - due_us);
  }
  end_all(tick);
  m_end_tick = tick;
  m_done.store(true, std::memory_order_release);
}

void LoadSender::send_tick(int64_t tick) {
  for (Slot& slot : m_phases[static_cast<std::size_t>(LoadPlan::phase_of(tick))]) {
    if (tick >= slot.start_tick) send_block(slot, tick);
  }
  m_batch.flush();
}

void LoadSender::send_block(Slot& slot, int64_t tick) {
  const int64_t slot_block = (tick - slot.start_tick) / block_ticks;
  const auto block = static_cast<uint32_t>(slot_block % m_plan.call_blocks);
  if (block == 0) {
    if (slot.in_call) end_call(slot, uint64_t{m_plan.call_blocks} * block_us);
    begin_call(slot, m_plan.call_number(slot.number, slot_block / m_plan.call_blocks));
  }
  send_switches(slot, block);
  for (uint16_t side = 0; side < 2; ++side) send_side(slot, side, block);
}

void LoadSender::send_switches(Slot& slot, uint32_t block) {
  const auto& switches = slot.script->switches;
  for (; slot.switches < switches.size() && switches[slot.switches].block == block;
       ++slot.switches) {
    media::write_feature_update(slot.key, uint64_t{block} * block_us,
                                switches[slot.switches].features, m_batch.next());
  }
}

void LoadSender::send_side(const Slot& slot, uint16_t side, uint32_t block) {
  const Fate fate = slot.script->fate(side, block);
  if (fate == Fate::lost) ++m_left_out;
  if (is_heard(fate)) send_data(slot, side, block);
  if (fate == Fate::twice) {
    send_data(slot, side, block);
    ++m_repeated;
  }
  if (block != 0 && slot.script->fate(side, block - 1) == Fate::late) {
    send_data(slot, side, block - 1);
    ++m_repeated;
  }
}

void LoadSender::send_data(const Slot& slot, uint16_t side, uint32_t block) {
  media::DataFields fields;
  fields.side = side;
  fields.seq = block + 1;  // 0 stands for "nothing seen yet"
  fields.off = static_cast<uint32_t>(block * block_samples);
  fields.samples =
      std::span(slot.script->sides[side]).subspan(block * block_samples, block_samples);
  media::write_data(slot.key, uint64_t{block} * block_us, fields, m_batch.next());
}

void LoadSender::begin_call(Slot& slot, uint32_t call) {
  const std::string call_id =
      "corvanth-load-" + std::to_string(m_calls.run) + "-" + std::to_string(call);
  slot.key = {crc64(call_id), load_uuid(m_calls.run, call)};
  slot.script = &m_scripts[m_plan.script_of(call)];
  slot.switches = 0;
  slot.in_call = true;
  slot.call = call;
  write_start(slot.key, call_id, m_calls, m_batch.next());
}

void LoadSender::end_call(Slot& slot, uint64_t media_us) {
  media::write_terminate(slot.key, media_us, m_batch.next());
  slot.in_call = false;
}

void LoadSender::end_all(int64_t tick) {
  for (std::vector<Slot>& slots : m_phases) {
    for (Slot& slot : slots) {
      if (!slot.in_call) continue;
      end_call(slot, static_cast<uint64_t>((tick - m_plan.call_start(slot.call)) * tick_us));
    }
  }
  m_batch.flush();
}

}  // namespace cv::tools
