#include "log/log_syslog_thread.h"

#include <pthread.h>
#include <signal.h>
#include <sstream>
#include <syslog.h>
#include <utility>

#include "log/log.h"

namespace cv::log {

namespace {

// The kernel takes no datagram above net.core.wmem_default, 208 KiB: the C library would write such a line to
// the console instead, which may take long, and nobody would look for it there.
constexpr int longest_bytes = 128 * 1024;

/// The text may be anything, the system's own format must not be.
void hand_over(int priority, const std::string& text) {
  if (text.size() <= longest_bytes) return syslog(priority, "%s", text.c_str());
  syslog(priority, "%.*s... (of %zu bytes)\n", longest_bytes, text.c_str(), text.size());
}

void hand_over_lost(uint64_t count) {
  ErrorMessage message;
  message.stream << "SYSLOG: (" << count << ") lines were lost here: they were not taken in time";
  std::ostringstream text;
  format_message(text, CV_LOG_MODULE, __LINE__, message) << '\n';
  hand_over(LOG_USER | LOG_ERR, text.str());
}

}  // namespace

SyslogThread& SyslogThread::instance() {
  static SyslogThread* const immortal = new SyslogThread;
  return *immortal;
}

void SyslogThread::start() {
  const std::lock_guard lock(m_mutex);
  if (m_state != State::direct) return;
  m_lines.resize(max_lines);
  // Signals are for the main thread.
  sigset_t all;
  sigset_t previous;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &previous);
  try {
    m_thread = std::thread(&SyslogThread::run, this);
    m_state = State::running;
  } catch (...) {
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    throw;
  }
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

void SyslogThread::stop() {
  std::unique_lock lock(m_mutex);
  if (m_state != State::running) return;
  m_state = State::stopping;
  m_changed.notify_all();
  if (!wait_until_out(lock)) {
    m_state = State::given_up;
    m_thread.detach();
    return;
  }
  lock.unlock();
  m_thread.join();
  lock.lock();
  m_state = State::direct;
}

bool SyslogThread::flush() {
  std::unique_lock lock(m_mutex);
  return m_state == State::running ? wait_until_out(lock) : m_state != State::given_up;
}

bool SyslogThread::wait_until_out(std::unique_lock<std::mutex>& lock) {
  return m_changed.wait_for(lock, patience, [this] { return idle(); });
}

bool SyslogThread::given_up() {
  const std::lock_guard lock(m_mutex);
  return m_state == State::given_up;
}

void SyslogThread::write(int priority, std::string text) {
  std::unique_lock lock(m_mutex);
  if (m_state == State::direct) {
    lock.unlock();
    return hand_over(priority, text);
  }
  if (m_state == State::given_up) return;
  const std::size_t bytes = text.size();
  // A line that is longer than all may be is taken when nothing else waits.
  if (m_count == max_lines || (m_count != 0 && m_bytes + bytes > max_bytes)) {
    ++m_lost;
    return;
  }
  m_lines[(m_first + m_count) % max_lines] = {priority, std::move(text), std::exchange(m_lost, 0)};
  ++m_count;
  m_bytes += bytes;
  lock.unlock();
  m_changed.notify_all();
}

void SyslogThread::note_lost() noexcept {
  const std::lock_guard lock(m_mutex);
  if (m_state != State::running) return;
  ++m_lost;
  m_changed.notify_all();
}

void SyslogThread::run() {
  pthread_setname_np(pthread_self(), "syslog");
  std::unique_lock lock(m_mutex);
  while (m_state == State::running || m_state == State::stopping) {
    if (m_count != 0 || m_lost != 0) {
      deliver_next(lock);
    } else if (m_state == State::stopping) {
      return;
    } else {
      m_changed.wait(lock);
    }
  }
}

/// A line, or the word that some are missing. The lock is not held while the daemon is waited for.
void SyslogThread::deliver_next(std::unique_lock<std::mutex>& lock) {
  Line line{};
  uint64_t lost = 0;
  if (m_count != 0) {
    line = std::exchange(m_lines[m_first], Line{});
    m_first = (m_first + 1) % max_lines;
    --m_count;
    m_bytes -= line.text.size();
    lost = line.lost_before;
  } else {
    lost = std::exchange(m_lost, 0);
  }
  m_delivering = true;
  lock.unlock();
  try {
    if (lost != 0) hand_over_lost(lost);
  } catch (const std::bad_alloc&) {
    // The lines are gone, and so is the line about them.
  }
  if (!line.text.empty()) hand_over(line.priority, line.text);
  lock.lock();
  m_delivering = false;
  m_changed.notify_all();
}

}  // namespace cv::log
