// Hosts, addresses and ports out of text, and the names of this machine.
//
// Nothing here logs or resolves names: an address is a dotted IPv4 text. Any thread.
#pragma once

#include <cstdint>
#include <list>
#include <netinet/in.h>
#include <string>

namespace cv::net {

struct HOST_PORT_SEPARATOR {
  static constexpr char CHAR = ':';
};

struct Host {
  std::string host;   // as written, trimmed
  uint16_t port = 0;  // host byte order
};

struct HostAddr {
  std::string host;    // as written, trimmed
  uint16_t port = 0;   // host byte order
  sockaddr_in addr{};  // 0.0.0.0 when the host text is not a dotted IPv4 address
};

/// Empty when the machine has no readable name.
std::string get_host_name();

/// The dotted local address from which this machine reaches `address` (network byte order), found
/// without sending anything. `fallback` for address 0 or 255.255.255.255, or without a route.
std::string get_host_ip(uint32_t address, std::string fallback);

/// Reads "address", "address:port", ":port", "address:" or "port" from the characters up to `end`
/// (null: up to the NUL). A missing address is 127.0.0.1, a missing port 0. On false, `out` is
/// untouched.
bool parse_addr(const char* begin, const char* end, sockaddr_in& out);

/// Lists such as "10.0.0.1:5000-5002, 10.0.0.2:6000": entries split at ',', each a host and a port or
/// an inclusive range of ports, a record a port. Records are appended in reading order; a bad entry
/// is skipped without a word. The two differ in what is bad:
///
/// parse_hosts  an entry needs a port; a port that does not read is 0.
/// parse_addrs  an entry without a port (or with two) has port 0; a port that does not read, or has
///              anything behind it ("80 "), skips the entry.
void parse_hosts(const std::string& text, std::list<Host>& out);
void parse_addrs(const std::string& text, std::list<HostAddr>& out);

}  // namespace cv::net
