#include "core/thread.h"

#include <unistd.h>

namespace cv {

BlockedSignals::BlockedSignals() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &m_previous);
}

BlockedSignals::~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &m_previous, nullptr); }

long kernel_thread_id() { return static_cast<long>(gettid()); }

void name_this_thread(const char* name) { pthread_setname_np(pthread_self(), name); }

int Thread::start() {
  const BlockedSignals blocked;
  m_running.store(true, std::memory_order_release);
  const int error = pthread_create(&m_handle, nullptr, &Thread::thread_func, this);
  // Without a thread there is nothing for stop() to join.
  if (error != 0) m_running.store(false, std::memory_order_release);
  return error;
}

int Thread::stop() {
  m_running.store(false, std::memory_order_release);
  return pthread_join(m_handle, nullptr);
}

void* Thread::thread_func(void* self) {
  static_cast<Thread*>(self)->run();
  return nullptr;
}

}  // namespace cv
