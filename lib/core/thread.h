// A worker thread: a class derives from Thread, puts its loop into run(), and polls m_running.
//
// Signals are for the main thread alone: every other thread of the process is created with all
// signals blocked (BlockedSignals), so that no library call on a worker is ever cut short by one.
#pragma once

#include <atomic>
#include <pthread.h>
#include <signal.h>

namespace cv {

/// Blocks every signal on this thread while it lives; threads made meanwhile inherit that for good.
class BlockedSignals {
 public:
  BlockedSignals();
  ~BlockedSignals();
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

 private:
  sigset_t m_previous;
};

/// The kernel's id of the calling thread, as it stands in log lines.
long kernel_thread_id();

/// What tools that list threads show for the calling thread; at most 15 characters.
void name_this_thread(const char* name);

/// Not started, then running from start() to stop(). Owner: whoever calls start() and stop(), on
/// one thread; the destructor does not stop.
class Thread {
 public:
  Thread() = default;
  virtual ~Thread() = default;
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  virtual void run() = 0;
  /// 0, or the error number of creating the thread.
  virtual int start();
  /// Clears m_running and joins; 0, or the error number of joining.
  virtual int stop();

 protected:
  bool running() const { return m_running.load(std::memory_order_acquire); }

  pthread_t m_handle{};
  std::atomic<bool> m_running{false};

 private:
  static void* thread_func(void* self);
};

}  // namespace cv
