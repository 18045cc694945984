#include "app/app.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <fcntl.h>
#include <functional>
#include <iostream>
#include <iterator>
#include <poll.h>
#include <string_view>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "app/app_daemon.h"
#include "conf/conf_configuration.h"
#include "core/thread.h"
#include "log/log.h"
#include "log/log_sinks.h"
#include "log/log_syslog_thread.h"
#include "utils/utils_path.h"

namespace cv::app {

static constexpr int exit_ok = 0;
static constexpr int exit_failure = 1;
static constexpr int exit_already_running = 10;

static constexpr int stop_signals[] = {SIGINT, SIGQUIT, SIGTERM};

static constexpr int parse_help = 1;
static constexpr int parse_unknown_word = -1;
static constexpr int parse_value_missing = -2;

std::atomic<int> ServiceBase::m_signal_stop{0};
std::atomic<bool> ServiceBase::m_signal_update{false};
std::atomic<bool> ServiceBase::m_signal_user1{false};
std::atomic<bool> ServiceBase::m_signal_user2{false};
constinit SignalRecord ServiceBase::m_signals;

ServiceBase::ServiceBase(std::string name)
    : m_config_file(conf::default_directory + "/" + name + conf::default_conf_ext),
      m_name(std::move(name)),
      m_service_name("corvanth" + m_name) {}

int ServiceBase::parse_arg(WordIterator&, WordIterator) { return parse_unknown_word; }

bool ServiceBase::pre_parse_arg(const std::string&, int&, char**&) { return false; }

void ServiceBase::on_logger_open() {
  if (m_daemon) {
    log::open_syslog(m_service_name.c_str());
  } else {
    log::open_stdlog();
  }
}

void ServiceBase::on_logger_close() { log::close_log(); }

static void report_thrown(const std::string& text) {
  // Before the log is open its lines vanish, and the operator would be left with a bare status.
  if (log::Logger::m_instance.write == &log::LoggerImpl::dummy_write) {
    std::cerr << "SERVICE: " << text << '\n';
  } else {
    CV_LOG(ErrorMessage) << "SERVICE: " << text;
  }
}

/// The hook's answer, or false when it threw.
static bool guarded(const std::function<bool()>& hook) {
  try {
    return hook();
  } catch (const std::exception& thrown) {
    report_thrown(thrown.what());
  } catch (const std::string& thrown) {
    report_thrown(thrown);
  } catch (const char* thrown) {
    report_thrown(thrown);
  } catch (...) {
    report_thrown("unknown exception");
  }
  return false;
}

/// A standard descriptor that came closed would be the next socket's, and log lines would go into that.
static void fill_standard_descriptors() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    // The lowest free one is taken: this one, for those below are in use by now.
    if (fcntl(descriptor, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0) return;
  }
}

int ServiceBase::start(int argc, char** argv) {
  if (m_started.exchange(true)) return exit_already_running;
  fill_standard_descriptors();
  int status = exit_failure;
  guarded([&] {
    const std::optional<int> ended = prepare(argc, argv);
    status = ended ? *ended : run();
    return true;
  });
  log::SyslogThread::instance().stop();
  on_logger_close();
  alarm(0);
  m_started = false;
  return status;
}

std::optional<int> ServiceBase::prepare(int argc, char** argv) {
  std::vector<std::string> words = pre_parse_args(argc, argv);
  on_logger_open();
  const int parsed = parse_args(std::move(words));
  if (parsed == parse_help) {
    help();
    return exit_ok;
  }
  if (parsed != 0) return exit_failure;
  log_command_line(argc, argv);
  on_pre_start();
  if (m_daemon_supported && m_daemon) go_to_background();
  signals_subscribe();
  // Not before the fork, which takes the calling thread along and no other.
  log::SyslogThread::instance().start();
  return std::nullopt;
}

int ServiceBase::run() {
  const long thread_id = kernel_thread_id();
  CV_LOG(SystemMessage) << "SERVICE: [" << m_service_name << "] main thread [" << thread_id
                        << "] started";
  const bool clean = guarded([this] { return do_start() && on_start(); });
  report_signals();
  CV_LOG(SystemMessage) << "SERVICE: [" << m_service_name << "] main thread [" << thread_id
                        << "] stopped";
  return clean ? exit_ok : exit_failure;
}

void ServiceBase::log_command_line(int argc, char** argv) const {
  if (!m_pid_file.empty()) CV_LOG(SystemMessage) << "SERVICE:  pid file: " << m_pid_file;
  CV_LOG(SystemMessage) << "SERVICE: exec path: " << m_exec_path;
  if (argc < 2) return;
  std::string words;
  for (int i = 1; i < argc; ++i) words.append(" [").append(argv[i]).append("]");
  CV_LOG(SystemMessage) << "SERVICE: exec args:" << words;
}

void ServiceBase::go_to_background() {
  const auto close_log = [this] { on_logger_close(); };
  const auto enter_child = [this] {
    m_daemonized = true;
    on_logger_open();
  };
  const std::string log_file = std::string(log::default_directory) + "/" + m_name + "_daemon.log";
  switch_to_daemon_mode({m_pid_file, log_file, enter_child, close_log, close_log});
}

std::vector<std::string> ServiceBase::pre_parse_args(int argc, char** argv) {
  std::vector<std::string> words;
  if (argc < 1) return words;
  m_exec_path = utils::path::get_absolute_path(argv[0]);
  int remaining = argc - 1;
  char** next = argv + 1;
  while (remaining > 0) {
    --remaining;
    const std::string word = *next++;
    if (word == "--daemon" || word == "-d") {
      if (m_daemon_supported) m_daemon = true;
    } else if (pre_parse_arg(word, remaining, next)) {
      continue;
    }
    words.push_back(word);
  }
  return words;
}

int ServiceBase::parse_args(std::vector<std::string> words) {
  const auto end = words.end();
  for (auto current = words.begin(); current != end; ++current) {
    if (*current == "--help" || *current == "-h") return parse_help;
    const int result = parse_word(current, end);
    if (result != 0) return result;
    if (current == end) break;
  }
  return 0;
}

int ServiceBase::parse_word(WordIterator& current, WordIterator end) {
  const std::string& word = *current;
  if (word == "--daemon" || word == "-d") {
    if (!m_daemon_supported) {
      CV_LOG(WarningMessage) << "SERVICE: daemon mode is not supported, ignoring option [" << word
                             << "]";
    }
    return 0;
  }
  if (word == "--pid-file-default") {
    m_pid_file = m_exec_path + ".pid";
    return 0;
  }
  if (word == "--config" || word == "-c" || word == "--pid-file" || word == "--args") {
    return parse_value_option(current, end);
  }
  return parse_arg(current, end);
}

int ServiceBase::parse_value_option(WordIterator& current, WordIterator end) {
  const std::string& option = *current;
  if (++current == end) {
    CV_LOG(ErrorMessage) << "SERVICE: value if not specified for option [" << option << "]";
    return parse_value_missing;
  }
  if (option == "--args") {
    push_config_args(*current, false);
  } else {
    std::string& path = option == "--pid-file" ? m_pid_file : m_config_file;
    path = utils::path::get_absolute_path(*current);
  }
  return 0;
}

void ServiceBase::push_config_args(const std::string& text, bool append) {
  if (text.empty()) return;
  if (m_args.empty()) {
    m_args = text;
  } else {
    m_args = append ? m_args + "," + text : text + "," + m_args;
  }
}

void ServiceBase::signals_subscribe() {
  m_signal_stop = 0;
  m_signal_update = false;
  m_signal_user1 = false;
  m_signal_user2 = false;
  m_signals.open();
  signal(SIGPIPE, SIG_IGN);
  struct sigaction action {};
  action.sa_sigaction = &ServiceBase::signals_handler;
  action.sa_flags = SA_SIGINFO;
  sigemptyset(&action.sa_mask);
  sigset_t heard;
  sigemptyset(&heard);
  sigaddset(&heard, SIGALRM);
  for (const int number : {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGUSR1, SIGUSR2}) {
    if (sigaction(number, &action, nullptr) != 0) {
      throw std::system_error(errno, std::generic_category(), "impossible to handle signals");
    }
    sigaddset(&heard, number);
  }
  // Whoever starts the node may have blocked them, and its mask is inherited.
  pthread_sigmask(SIG_UNBLOCK, &heard, nullptr);
}

/// Ends the process whatever its threads wait for, a name server or a full pipe behind standard error.
/// Async-signal-safe, so past the log.
static void end_unfinished_stop(int) {
  constexpr std::string_view text = "SERVICE: the stop takes too long, ending at once\n";
  pollfd output{STDERR_FILENO, POLLOUT, 0};
  if (poll(&output, 1, 0) == 1) {
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
  }
  _exit(exit_failure);
}

/// From the first stop signal on the next one has its default effect, the end of the process, and
/// the stop has a limited time. Async-signal-safe.
static void insist_on_stop() {
  struct sigaction action {};
  sigemptyset(&action.sa_mask);
  action.sa_handler = &end_unfinished_stop;
  sigaction(SIGALRM, &action, nullptr);
  alarm(ServiceBase::stop_limit_s);
  action.sa_handler = SIG_DFL;
  for (const int number : stop_signals) sigaction(number, &action, nullptr);
}

void ServiceBase::signals_handler(int number, siginfo_t*, void*) {
  if (number == SIGHUP) m_signal_update = true;
  if (std::find(std::begin(stop_signals), std::end(stop_signals), number) !=
      std::end(stop_signals)) {
    m_signal_stop = 1;
    insist_on_stop();
  }
  if (number == SIGUSR1) m_signal_user1 = true;
  if (number == SIGUSR2) m_signal_user2 = true;
  m_signals.on_signal(number);
}

/// What the signal asks for, as its second line says it; null when it has none.
static const char* request_of(int number) {
  switch (number) {
    case SIGHUP:
      return "update has been requested";
    case SIGINT:
    case SIGQUIT:
    case SIGTERM:
      return "application stop has been requested";
    case SIGUSR1:
      return "user action #1 has been requested";
    case SIGUSR2:
      return "user action #2 has been requested";
    default:
      return nullptr;
  }
}

void ServiceBase::report_signals() {
  if (!m_signals.pending()) return;
  // A storm of signals may come faster than lines are written, and must not hold up the stop.
  for (std::size_t n = 0; n < SignalRecord::capacity; ++n) {
    const int number = m_signals.take();
    if (number == 0) break;
    CV_LOG(SystemMessage) << "SERVICE: signal " << number << " has been received";
    if (const char* request = request_of(number)) CV_LOG(SystemMessage) << "SERVICE: " << request;
  }
  if (const uint64_t lost = m_signals.take_lost()) {
    CV_LOG(WarningMessage) << "SERVICE: " << lost << " more signals have been received before";
  }
}

void ServiceBase::acknowledge_wake() {
  m_signals.clear_wake();
  report_signals();
}

bool ServiceBase::wait_for_signal(int timeout_ms) {
  pollfd wake{m_signals.wake_descriptor(), POLLIN, 0};
  const bool woken = poll(&wake, 1, timeout_ms) != 0;
  acknowledge_wake();
  return woken;
}

}  // namespace cv::app
