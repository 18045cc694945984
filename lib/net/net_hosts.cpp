#include "net/net_hosts.h"

#include <arpa/inet.h>
#include <cstring>
#include <sstream>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "utils/utils_str.h"

namespace cv::net {

namespace str = utils::str;

std::string get_host_name() {
  char name[65] = {};  // the longest name there can be, and its NUL
  if (gethostname(name, sizeof name) != 0) return {};
  return name;
}

/// The local end of a datagram socket connected to `address`; false when there is no way there.
static bool local_end_towards(uint32_t address, sockaddr_in& local) {
  const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
  if (descriptor < 0) return false;
  sockaddr_in remote{};
  remote.sin_family = AF_INET;
  remote.sin_port = htons(9);  // discard: nothing is ever sent there
  remote.sin_addr.s_addr = address;
  socklen_t length = sizeof local;
  const bool found =
      connect(descriptor, reinterpret_cast<const sockaddr*>(&remote), sizeof remote) == 0 &&
      getsockname(descriptor, reinterpret_cast<sockaddr*>(&local), &length) == 0;
  shutdown(descriptor, SHUT_RDWR);
  close(descriptor);
  return found;
}

std::string get_host_ip(uint32_t address, std::string fallback) {
  sockaddr_in local{};
  if (address == INADDR_ANY || address == INADDR_NONE || !local_end_towards(address, local)) {
    return fallback;
  }
  return inet_ntoa(local.sin_addr);
}

bool parse_addr(const char* begin, const char* end, sockaddr_in& out) {
  if (begin == nullptr) return false;
  const std::string text = str::trim_left(end == nullptr ? begin : std::string(begin, end));
  // The conversions below stop at a NUL and would not see what follows it.
  if (text.find('\0') != std::string::npos) return false;
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const std::size_t separator = text.rfind(HOST_PORT_SEPARATOR::CHAR);
  std::string address = text.substr(0, separator);
  std::string port = separator == std::string::npos ? "" : text.substr(separator + 1);
  if (separator == std::string::npos && inet_pton(AF_INET, text.c_str(), &result.sin_addr) != 1) {
    port.swap(address);
  }
  unsigned short port_number = 0;
  if (!port.empty() && !str::try_parse_value<unsigned short, 10>(port.c_str(), port_number)) {
    return false;
  }
  if (!address.empty() && inet_pton(AF_INET, address.c_str(), &result.sin_addr) != 1) return false;
  result.sin_port = htons(port_number);
  out = result;
  return true;
}

namespace {

struct PortRange {
  uint16_t first = 0;
  uint16_t last = 0;
};

/// How a list reads one port text; false skips the entry.
using PortReader = bool (*)(const std::string& text, uint16_t& port);

bool read_port_leniently(const std::string& text, uint16_t& port) {
  std::istringstream stream(str::trim(text));
  // A failed extraction of a number too large leaves the largest one behind.
  if (!(stream >> port)) port = 0;
  return true;
}

bool read_port_strictly(const std::string& text, uint16_t& port) {
  return static_cast<bool>(str::try_parse_value<unsigned short, 10>(text.c_str(), port));
}

/// "p" or "p1-p2". An empty text has no port to read and is refused.
bool read_ports(const std::string& text, PortReader read, PortRange& range) {
  std::vector<std::string> bounds;
  str::split(text, '-', bounds, true);
  if (bounds.empty() || !read(bounds[0], range.first)) return false;
  range.last = range.first;
  return bounds.size() < 2 || read(bounds[1], range.last);
}

/// The entries of a list, each as its pieces between colons.
std::vector<std::vector<std::string>> entries_of(const std::string& text) {
  std::vector<std::string> entries;
  str::split(text, ',', entries, false);
  std::vector<std::vector<std::string>> result;
  for (const std::string& entry : entries) {
    str::split(entry, HOST_PORT_SEPARATOR::CHAR, result.emplace_back(), true);
  }
  return result;
}

}  // namespace

void parse_hosts(const std::string& text, std::list<Host>& out) {
  for (const auto& pieces : entries_of(text)) {
    PortRange range;
    if (pieces.size() != 2 || !read_ports(pieces[1], &read_port_leniently, range)) continue;
    const std::string host = str::trim(pieces[0]);
    for (unsigned int port = range.first; port <= range.last; ++port) {
      out.push_back({host, static_cast<uint16_t>(port)});
    }
  }
}

void parse_addrs(const std::string& text, std::list<HostAddr>& out) {
  for (const auto& pieces : entries_of(text)) {
    PortRange range;
    if (pieces.size() == 2 && !read_ports(pieces[1], &read_port_strictly, range)) continue;
    HostAddr record;
    record.host = str::trim(pieces[0]);
    record.addr.sin_family = AF_INET;
    inet_pton(AF_INET, record.host.c_str(), &record.addr.sin_addr);
    for (unsigned int port = range.first; port <= range.last; ++port) {
      record.port = static_cast<uint16_t>(port);
      record.addr.sin_port = htons(record.port);
      out.push_back(record);
    }
  }
}

}  // namespace cv::net
