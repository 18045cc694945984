// The frame of a service process: its command line, its log output, daemon mode, signals, and the
// order in which a concrete service's hooks are called.
//
// Everything runs on the main thread. Signals reach only that thread, provided every other one is
// created with signals blocked (core/thread.h); the handler sets the static flags and records the
// number, and the lines about it are written by report_signals() in order of arrival.
//
// The first stop signal asks: the service ends by itself. It has stop_limit_s for that, then the process
// ends with status 1; a second stop signal ends the process at once, by that signal.
#pragma once

#include <atomic>
#include <optional>
#include <signal.h>
#include <string>
#include <vector>

#include "app/app_signals.h"

namespace cv::app {

class ServiceBase {
 public:
  using WordIterator = std::vector<std::string>::iterator;

  /// Seconds; an operator is promised 15.
  static constexpr unsigned stop_limit_s = 14;

  /// `name` is the short name: of the configuration file, and behind the product's in the log.
  explicit ServiceBase(std::string name);
  virtual ~ServiceBase() = default;
  ServiceBase(const ServiceBase&) = delete;
  ServiceBase& operator=(const ServiceBase&) = delete;

  /// Before the process goes into the background; logging is open.
  virtual void on_pre_start() {}
  /// The service's work; returns when it is to end. True: a clean end.
  virtual bool on_start() { return true; }
  virtual void help() = 0;
  /// Loads the configuration and prepares; false ends the process with status 1.
  virtual bool do_start() = 0;
  /// A command-line word that parse_args() does not know, at `current`; may move `current` over
  /// value words. Non-zero ends the parsing.
  virtual int parse_arg(WordIterator& current, WordIterator end);
  /// A raw command-line word, before logging is open; `remaining` words follow it at `next`, and
  /// both may be moved over value words. True: the word is consumed.
  virtual bool pre_parse_arg(const std::string& word, int& remaining, char**& next);
  virtual void on_logger_open();
  virtual void on_logger_close();

  /// The whole life of the service; the exit status: 0 after help or a clean run, 10 while another
  /// start() of this object runs, else 1. What a hook throws is logged and ends in status 1.
  int start(int argc, char** argv);

  /// Looks for the daemon flag, for the log output depends on it. The words left for parse_args().
  std::vector<std::string> pre_parse_args(int argc, char** argv);
  /// 0 to go on, 1 for help, anything else for bad arguments.
  int parse_args(std::vector<std::string> words);
  /// Adds settings in the syntax of conf::Configuration::parse_args, in front or behind.
  void push_config_args(const std::string& text, bool append);

  /// Clears the flags and installs the handler. Throws std::system_error.
  void signals_subscribe();
  static void signals_handler(int number, siginfo_t* info, void* context);

  /// Writes the lines of the signals recorded since the last call. Main thread; cheap without any.
  static void report_signals();
  /// Main thread: sleeps until a signal or wake_main_thread(), or for `timeout_ms` (-1: no limit).
  /// Reports signals. True when woken. A wake-up that came before the call counts.
  static bool wait_for_signal(int timeout_ms);
  /// Any thread: ends the present or the next wait_for_signal().
  static void wake_main_thread() { m_signals.wake(); }
  /// Readable while a signal or a wake-up waits to be acknowledged; for net::Socket::set_interrupt.
  static int wake_descriptor() { return m_signals.wake_descriptor(); }
  /// Main thread: makes the wake descriptor unreadable and reports signals.
  static void acknowledge_wake();
  static bool stop_requested() { return m_signal_stop.load(std::memory_order_relaxed) != 0; }

  static std::atomic<int> m_signal_stop;     // SIGINT, SIGQUIT, SIGTERM
  static std::atomic<bool> m_signal_update;  // SIGHUP
  static std::atomic<bool> m_signal_user1;   // SIGUSR1
  static std::atomic<bool> m_signal_user2;   // SIGUSR2

 protected:
  bool m_daemon_supported = true;
  std::string m_exec_path;
  std::string m_args;
  std::string m_config_file;
  std::atomic<bool> m_started{false};
  std::string m_name;
  std::string m_service_name;
  std::string m_pid_file;
  bool m_daemonized = false;  // this is the daemon process
  bool m_daemon = false;      // the command line asks for one

 private:
  /// Everything before the main thread's run; a status when the process is to end instead.
  std::optional<int> prepare(int argc, char** argv);
  int run();
  int parse_word(WordIterator& current, WordIterator end);
  int parse_value_option(WordIterator& current, WordIterator end);
  void log_command_line(int argc, char** argv) const;
  void go_to_background();

  static SignalRecord m_signals;
};

}  // namespace cv::app
