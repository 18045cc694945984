// "HOST:PORT" as a person writes it.
#pragma once

#include <netinet/in.h>
#include <optional>
#include <string>

namespace cv::tools {

/// The IPv4 address of a name or a dotted address and a port of 1 to 65535. May ask a name server.
/// Empty, with the reason in `error`, otherwise.
std::optional<sockaddr_in> parse_endpoint(const std::string& text, std::string& error);

}  // namespace cv::tools
