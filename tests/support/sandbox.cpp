#include "support/sandbox.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <sstream>
#include <stdexcept>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace cv::test {

namespace fs = std::filesystem;

namespace {

int bind_unix_datagram(const std::string& path) {
  const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  if (bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    throw std::runtime_error("sandbox: cannot bind " + path);
  }
  return descriptor;
}

bool write_small(const char* path, const char* text, size_t size) {
  const int descriptor = open(path, O_WRONLY);
  if (descriptor < 0) return false;
  const bool written = write(descriptor, text, size) == static_cast<ssize_t>(size);
  close(descriptor);
  return written;
}

}  // namespace

Sandbox::Sandbox() {
  for (const char* folder : {"dev", "etc/tarnwell/corvanth", "varlog", "files"}) {
    fs::create_directories(m_folder / folder);
  }
  for (const char* device : {"null", "zero", "full", "random", "urandom"}) {
    const std::string place = m_folder.write(std::string("dev/") + device, "");
    m_mounts.push_back({std::string("/dev/") + device, place});
  }
  start_syslog();
  m_mounts.push_back({m_folder / "dev", "/dev"});
  m_mounts.push_back({m_folder / "etc", "/etc"});
  m_mounts.push_back({m_folder / "varlog", "/var/log"});
}

Sandbox::~Sandbox() { end_syslog(); }

void Sandbox::start_syslog() {
  m_syslog_socket = bind_unix_datagram(m_folder / "dev/log");
  m_collector = std::thread([this] { collect_syslog(m_syslog_socket); });
}

void Sandbox::end_syslog() {
  if (!m_collector.joinable()) return;
  hang_syslog(false);
  // Ends the collector's wait.
  shutdown(m_syslog_socket, SHUT_RDWR);
  m_collector.join();
  close(m_syslog_socket);
  fs::remove(m_folder / "dev/log");
}

void Sandbox::hang_syslog(bool hangs) {
  const std::lock_guard lock(m_mutex);
  m_syslog_hangs = hangs;
  m_changed.notify_all();
}

std::string Sandbox::write_file(const std::string& name, const std::string& content) const {
  return m_folder.write("files/" + name, content);
}

std::string Sandbox::read_file(const std::string& name) const {
  std::ostringstream text;
  text << std::ifstream(m_folder / ("files/" + name)).rdbuf();
  return text.str();
}

void Sandbox::write_etc(const std::string& name, const std::string& content) const {
  m_folder.write("etc/tarnwell/corvanth/" + name, content);
}

std::string Sandbox::syslog() const {
  const std::lock_guard lock(m_mutex);
  return m_syslog;
}

void Sandbox::collect_syslog(int socket) {
  char datagram[65536];
  for (ssize_t size; (size = recv(socket, datagram, sizeof datagram, 0)) > 0;) {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return !m_syslog_hangs; });
    m_syslog.append(datagram, static_cast<size_t>(size));
    if (!m_syslog.ends_with('\n')) m_syslog += '\n';
  }
}

bool Sandbox::enter() const {
  if (unshare(CLONE_NEWNS) != 0) {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    if (!write_small("/proc/self/setgroups", "deny", 4)) return false;
  }
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
  for (const Mount& bind : m_mounts) {
    if (mount(bind.from.c_str(), bind.to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
      return false;
    }
  }
  return true;
}

}  // namespace cv::test
