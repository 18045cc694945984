// Many independent jobs on all processors, their results taken in the jobs' order on the calling
// thread: what is printed does not depend on how many threads there are or who is done first.
//
// Threads: `deliver` and `wait` run on the calling thread; `make_worker` and its worker on the thread
// they serve, each of which has a worker of its own. A thread gets ahead of the results taken by at most
// `window_a_thread` results, so that memory stays bounded however unlike the jobs are.
// Failure: what a worker throws is thrown on the calling thread once all threads have ended.
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <map>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "core/thread.h"

namespace cv::tools {

inline constexpr std::size_t window_a_thread = 4;

/// The processors' number, 1 when it is not known.
inline unsigned processors() { return std::max(1U, std::thread::hardware_concurrency()); }

template <typename Result>
class OrderedJobs {
 public:
  OrderedJobs(std::size_t count, unsigned threads)
      : m_count(count),
        m_threads(static_cast<unsigned>(std::min<std::size_t>(std::max(1U, threads), count))) {}

  unsigned threads() const { return m_threads; }

  /// `make_worker()` gives something to call with a job's number, which gives its Result.
  /// `deliver(number, result)` is called for each in order; it, or `wait()`, which is called at least
  /// every 100 ms, returns false to end early: jobs under way are ended, the others never begun.
  template <typename MakeWorker, typename Deliver, typename Wait>
  void run(const MakeWorker& make_worker, const Deliver& deliver, const Wait& wait) {
    std::vector<std::thread> threads;
    {
      const BlockedSignals blocked;
      for (unsigned i = 0; i < m_threads; ++i) threads.emplace_back([&] { work(make_worker); });
    }
    try {
      take_all(deliver, wait);
    } catch (...) {
      fail(std::current_exception());
    }
    end();
    for (std::thread& thread : threads) thread.join();
    if (m_error) std::rethrow_exception(m_error);
  }

 private:
  template <typename MakeWorker>
  void work(const MakeWorker& make_worker) {
    try {
      auto worker = make_worker();
      std::size_t job = 0;
      while (begin_job(job)) {
        Result result = worker(job);
        const std::lock_guard lock(m_mutex);
        m_done.emplace(job, std::move(result));
        m_changed.notify_all();
      }
    } catch (...) {
      fail(std::current_exception());
    }
  }

  bool begin_job(std::size_t& job) {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [&] {
      return m_ended || m_next == m_count || m_next < m_taken + m_threads * window_a_thread;
    });
    if (m_ended || m_next == m_count) return false;
    job = m_next++;
    return true;
  }

  template <typename Deliver, typename Wait>
  void take_all(const Deliver& deliver, const Wait& wait) {
    while (m_taken < m_count && wait()) {
      std::unique_lock lock(m_mutex);
      const auto ready = [&] { return m_ended || m_done.count(m_taken) != 0; };
      m_changed.wait_for(lock, std::chrono::milliseconds(100), ready);
      if (m_ended) return;
      const auto found = m_done.find(m_taken);
      if (found == m_done.end()) continue;
      Result result = std::move(found->second);
      m_done.erase(found);
      const std::size_t job = m_taken++;
      m_changed.notify_all();
      lock.unlock();
      if (!deliver(job, std::move(result))) return;
    }
  }

  void fail(std::exception_ptr error) {
    const std::lock_guard lock(m_mutex);
    if (!m_error) m_error = std::move(error);
    m_ended = true;
    m_changed.notify_all();
  }

  void end() {
    const std::lock_guard lock(m_mutex);
    m_ended = true;
    m_changed.notify_all();
  }

  const std::size_t m_count;
  const unsigned m_threads;
  std::mutex m_mutex;  // of everything below; m_taken is written by the calling thread alone
  std::condition_variable m_changed;
  std::size_t m_next = 0;   // the first job that nobody has begun
  std::size_t m_taken = 0;  // the first whose result has not been taken
  std::map<std::size_t, Result> m_done;
  bool m_ended = false;
  std::exception_ptr m_error;
};

}  // namespace cv::tools
