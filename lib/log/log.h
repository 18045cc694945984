// Logging: the one way a line of text leaves the process for the operator.
//
// A call site builds a Message of a fixed Level, streams text into it and hands it, with its module
// name and line, to the process-wide Logger::m_instance. CV_LOG does all of that in one statement:
//
//   CV_LOG(ErrorMessage) << "SOCKET[" << fd << "]: failed to bind a socket";
//
// Threads: the logger record is written only while the process is single-threaded (start-up and
// shut-down); every thread reads it without a lock, and each sink emits a line in one call.
// Failure: logging never fails to its caller. Before it is opened and after it is closed, lines
// vanish; without memory for its text a line ends early or is missing. Only what the call site makes
// itself, a string to be streamed, may throw there.
#pragma once

#include <array>
#include <cstdint>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>

namespace cv::log {

/// From the most severe to the least; a message is written when its level is <= the threshold.
enum class Level : int32_t { SYSTEM = 0, ERROR, WARNING, INFO, DEBUG, TRACE };

inline constexpr std::array<const char*, 6> level_to_string = {"SYSTEM", "ERROR", "WARNING",
                                                               "INFO",   "DEBUG", "TRACE"};
/// Fills every level name to 7 characters, so that the columns behind it line up.
inline constexpr std::array<const char*, 6> level_to_spaces = {" ", "  ", "", "   ", "  ", "  "};
/// syslog priorities: notice, err, warning, info, debug, debug.
inline constexpr std::array<int, 6> level_to_syslevel = {5, 3, 4, 6, 7, 7};

inline constexpr const char* message_delimiter = " | ";
/// Where the daemon-mode log file goes.
inline constexpr const char* default_directory = "/var/log/tarnwell/corvanth";

/// One line in the making: a level, and the text streamed into it.
class Message {
 public:
  explicit Message(Level message_level) : level(message_level) {}
  virtual ~Message() = default;
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;

  std::string text() const { return stream.str(); }

  const Level level;
  std::ostringstream stream;
};

template <Level L>
class LevelMessage : public Message {
 public:
  LevelMessage() : Message(L) {}
};

class SystemMessage : public LevelMessage<Level::SYSTEM> {};
class ErrorMessage : public LevelMessage<Level::ERROR> {};
class WarningMessage : public LevelMessage<Level::WARNING> {};
class InfoMessage : public LevelMessage<Level::INFO> {};
class DebugMessage : public LevelMessage<Level::DEBUG> {};
class TraceMessage : public LevelMessage<Level::TRACE> {};

/// The logger record: where lines go, and from which level on.
struct LoggerImpl {
  using Write = void (*)(void* context, const char* file, int line, const Message& message);
  using Close = void (*)(void* context);

  ~LoggerImpl();

  static void dummy_write(void* context, const char* file, int line, const Message& message);

  void* context = nullptr;
  Close close = nullptr;
  Write write = &dummy_write;
  Level level = Level::INFO;
};

struct Logger {
  static LoggerImpl m_instance;
};

/// Local wall-clock time, "%Y.%m.%d %X" and ".uuuuuu".
std::string format_time();

/// Writes level, module, line and text, without a line end. A null `file` sets the stream's badbit.
std::ostream& format_message(std::ostream& out, const char* file, int line, const Message& message);

/// Exact, case-sensitive match with the six names; leaves `level` alone when there is none.
bool try_parse_level(const std::string& text, Level& level);

/// The base name of a source path without its extension, "media/media_packet_reader.cpp" giving
/// "media_packet_reader". Null-terminated, fixed size, so that it can be a constant at a call site.
struct ModuleName {
  char text[48] = {};

  consteval explicit ModuleName(std::string_view path) {
    if (const auto slash = path.rfind('/'); slash != path.npos) path.remove_prefix(slash + 1);
    path = path.substr(0, path.find('.'));
    for (std::size_t i = 0; i < path.size(); ++i) text[i] = path[i];
  }
};

/// Hands a message to the logger.
void emit(const char* file, int line, const Message& message) noexcept;

/// Does so when the full expression of its CV_LOG statement ends.
template <typename MessageType>
class Entry {
 public:
  Entry(const char* file, int line) : m_file(file), m_line(line) {}
  ~Entry() { emit(m_file, m_line, m_message); }
  Entry(const Entry&) = delete;
  Entry& operator=(const Entry&) = delete;

  std::ostream& stream() { return m_message.stream; }

 private:
  const char* m_file;
  int m_line;
  MessageType m_message;
};

}  // namespace cv::log

/// The calling module's name as a NUL-terminated string of static storage.
#define CV_LOG_MODULE                                                  \
  ([]() -> const char* {                                               \
    static constexpr ::cv::log::ModuleName module_name_here(__FILE__); \
    return module_name_here.text;                                      \
  }())

/// CV_LOG(InfoMessage) << "text" << value; The text is formatted even below the threshold: hot
/// paths test Logger::m_instance.level first.
#define CV_LOG(MessageType) \
  ::cv::log::Entry<::cv::log::MessageType>(CV_LOG_MODULE, __LINE__).stream()
