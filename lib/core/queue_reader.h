// A bounded queue with a thread of its own that reads it.
//
// QueueReader sleeps when the queue is empty and, once stopped, delivers what is still queued.
// QueueIdleReader does background work when the queue is empty and, once stopped, leaves the rest.
//
// Threads: push() belongs to the one producer; every on_... operation runs on the reader's thread.
// Ownership: the queue owns its items; those never delivered are released with it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "core/counter.h"
#include "core/queue.h"
#include "core/statistic_container.h"
#include "core/thread.h"

namespace cv {

struct QueueReaderStatistic {
  Counter elements;  // queue depth after the last delivery (reader thread)
  Counter passed;    // items accepted (producer thread)
  Counter dropped;   // items refused because the queue was full (producer thread)
};

struct QueueIdleReaderStatistic : QueueReaderStatistic {
  Counter empty_checks;  // times the queue was found empty (reader thread)
  Counter idle_hits;     // times on_queue_idle() did work (reader thread)
};

template <typename T, std::size_t N, uint64_t WaitNs>
class QueueReader : public StatisticContainer<QueueReaderStatistic>, public Thread {
 public:
  using StatisticContainer::StatisticContainer;

  /// Producer thread. False when the queue is full: the item is released and counted as dropped.
  virtual bool push(T item) {
    if (!m_queue.push(std::move(item))) {
      m_statistic->dropped.increment();
      return false;
    }
    m_statistic->passed.increment();
    return true;
  }

  void run() override {
    while (running() || !m_queue.empty()) deliver_next();
    store_depth();
  }

  /// Called for every item, and with an empty T when WaitNs pass with nothing to read.
  virtual void on_queue_read(T item) = 0;

  int stop() override {
    m_running.store(false, std::memory_order_release);
    // Spares the caller the rest of the reader's wait.
    m_queue.wake();
    return Thread::stop();
  }

 protected:
  /// Waits for an item if there is none, then delivers it (or an empty T).
  void deliver_next() {
    const bool available = !m_queue.empty() || m_queue.wait(WaitNs, m_running);
    on_queue_read(available ? m_queue.take() : T());
    store_depth();
  }

  void store_depth() { m_statistic->elements.set(m_queue.depth()); }

  Queue<T, N, true> m_queue;
};

template <typename T, std::size_t N, uint64_t WaitNs>
class QueueIdleReader : public QueueReader<T, N, WaitNs> {
 public:
  /// `external` is not owned and outlives the reader.
  explicit QueueIdleReader(QueueIdleReaderStatistic& external)
      : QueueReader<T, N, WaitNs>(&external) {}
  QueueIdleReader()
      : QueueReader<T, N, WaitNs>(
            std::shared_ptr<QueueReaderStatistic>(std::make_shared<QueueIdleReaderStatistic>())) {}

  /// True: it did work, and the queue is to be looked at again at once. False: the reader may
  /// sleep.
  virtual bool on_queue_idle() = 0;
  /// Once per turn, before the queue is looked at.
  virtual void on_queue_try() = 0;

  void run() override {
    while (this->running()) turn();
    this->store_depth();
  }

 private:
  QueueIdleReaderStatistic& idle_statistic() {
    return static_cast<QueueIdleReaderStatistic&>(*this->m_statistic);
  }

  void turn() {
    on_queue_try();
    if (!this->m_queue.empty()) {
      this->on_queue_read(this->m_queue.take());
      this->store_depth();
      return;
    }
    idle_statistic().empty_checks.increment();
    if (on_queue_idle()) {
      idle_statistic().idle_hits.increment();
      this->store_depth();
    } else {
      this->deliver_next();
    }
  }
};

}  // namespace cv
