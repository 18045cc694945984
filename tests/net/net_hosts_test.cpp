#include "net/net_hosts.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

namespace {

std::string text_of(const sockaddr_in& address) {
  EXPECT_EQ(address.sin_family, AF_INET);
  return std::string(inet_ntoa(address.sin_addr)) + ":" + std::to_string(ntohs(address.sin_port));
}

template <typename Records>
std::string text_of(const Records& records) {
  std::string text;
  for (const auto& one : records) text += one.host + ":" + std::to_string(one.port) + " ";
  return text;
}

TEST(HostLists, ReadRangesAndSkipBadEntriesEachInItsWay) {
  const struct {
    const char *text, *hosts, *addrs;
  } cases[] = {
      {"h:65534-65535, g", "h:65534 h:65535 ", "h:65534 h:65535 g:0 "},
      {" 1.2.3.4 : 80,1.2.3.5:80 ", "1.2.3.4:80 1.2.3.5:80 ", "1.2.3.4:80 "},
      {"1.2.3.4:x,1.2.3.5:1", "1.2.3.4:0 1.2.3.5:1 ", "1.2.3.5:1 "},
      {"1.2.3.4:9-7,1.2.3.4:7-8-99", "1.2.3.4:7 1.2.3.4:8 ", "1.2.3.4:7 1.2.3.4:8 "},
  };
  for (const auto& c : cases) {
    std::list<cv::net::Host> hosts;
    cv::net::parse_hosts(c.text, hosts);
    EXPECT_EQ(text_of(hosts), c.hosts) << c.text;
    std::list<cv::net::HostAddr> addrs;
    cv::net::parse_addrs(c.text, addrs);
    EXPECT_EQ(text_of(addrs), c.addrs) << c.text;
    for (const auto& one : addrs)
      EXPECT_EQ(text_of(one.addr),
                (one.host.size() < 2 ? "0.0.0.0" : one.host) + ":" + std::to_string(one.port));
  }
}

TEST(ParseAddr, ReadsAddressAndPortInEveryFormUpToTheEnd) {
  const char* const cases[][2] = {{"", "127.0.0.1:0"},
                                  {" 1.2.3.4:5060", "1.2.3.4:5060"},
                                  {"5060", "127.0.0.1:5060"},
                                  {"1.2.3.4:65536", "9.9.9.9:9"},
                                  {"name:5060", "9.9.9.9:9"}};
  const char before[] = "9.9.9.9:90";
  for (const auto& [text, expected] : cases) {
    sockaddr_in address{};
    ASSERT_TRUE(cv::net::parse_addr(before, before + 9, address));
    EXPECT_EQ(cv::net::parse_addr(text, nullptr, address), *expected != '9') << text;
    EXPECT_EQ(text_of(address), expected) << text << ": untouched when refused";
  }
}

}  // namespace
