#include "tools/endpoint.h"

#include <charconv>
#include <cstdint>
#include <cstring>
#include <memory>
#include <netdb.h>
#include <sys/socket.h>

namespace cv::tools {

namespace {

bool parse_port(const std::string& text, uint16_t& port) {
  const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), port);
  return code == std::errc() && end == text.data() + text.size() && port != 0;
}

}  // namespace

std::optional<sockaddr_in> parse_endpoint(const std::string& text, std::string& error) {
  const auto colon = text.rfind(':');
  uint16_t port = 0;
  if (colon == text.npos || colon == 0 || !parse_port(text.substr(colon + 1), port)) {
    error = "\"" + text + "\" is not HOST:PORT";
    return std::nullopt;
  }
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_DGRAM;
  addrinfo* found = nullptr;
  const int code = ::getaddrinfo(text.substr(0, colon).c_str(), nullptr, &hints, &found);
  if (code != 0) {
    error = "\"" + text + "\": " + ::gai_strerror(code);
    return std::nullopt;
  }
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, &::freeaddrinfo);
  sockaddr_in address{};
  std::memcpy(&address, found->ai_addr, sizeof address);
  address.sin_port = htons(port);
  return address;
}

}  // namespace cv::tools
