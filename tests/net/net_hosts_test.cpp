#include "net/net_hosts.h"

#include <arpa/inet.h>
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

namespace {

using Records = std::vector<std::string>;

/// "a.b.c.d:port" of a socket address.
std::string text_of(const sockaddr_in& address) {
  std::string text = inet_ntoa(address.sin_addr);
  return text.append(":").append(std::to_string(ntohs(address.sin_port)));
}

Records hosts_in(const std::string& text) {
  std::list<cv::net::Host> hosts;
  cv::net::parse_hosts(text, hosts);
  Records records;
  for (const auto& host : hosts) records.push_back(host.host + ":" + std::to_string(host.port));
  return records;
}

/// Each record as "host:port", and its socket address behind it where the host is not dotted.
Records addrs_in(const std::string& text) {
  std::list<cv::net::HostAddr> hosts;
  cv::net::parse_addrs(text, hosts);
  Records records;
  for (const auto& host : hosts) {
    EXPECT_EQ(host.addr.sin_family, AF_INET);
    std::string record = host.host + ":" + std::to_string(host.port);
    if (text_of(host.addr) != record) record.append(" ").append(text_of(host.addr));
    records.push_back(record);
  }
  return records;
}

TEST(HostLists, ReadRangesAndSkipBadEntriesEachInItsWay) {
  const struct {
    const char* text;
    Records hosts, addrs;
  } cases[] = {
      {"10.0.0.1:5000-5002, 10.0.0.2:6000",
       {"10.0.0.1:5000", "10.0.0.1:5001", "10.0.0.1:5002", "10.0.0.2:6000"},
       {"10.0.0.1:5000", "10.0.0.1:5001", "10.0.0.1:5002", "10.0.0.2:6000"}},
      {"", {}, {}},
      {",,", {}, {}},
      {"h1:80,h2", {"h1:80"}, {"h1:80 0.0.0.0:80", "h2:0 0.0.0.0:0"}},
      {"1.2.3.4", {}, {"1.2.3.4:0"}},
      {"1.2.3.4:", {}, {"1.2.3.4:0"}},
      {"1.2.3.4::", {}, {}},
      {"1.2.3.4:5:6", {}, {"1.2.3.4:0"}},
      {"1.2.3.4:80 ", {"1.2.3.4:80"}, {}},
      {" 1.2.3.4 : 80", {"1.2.3.4:80"}, {"1.2.3.4:80"}},
      {"1.2.3.4:x,1.2.3.5:1", {"1.2.3.4:0", "1.2.3.5:1"}, {"1.2.3.5:1"}},
      {"1.2.3.4:12x", {"1.2.3.4:12"}, {}},
      {"1.2.3.4:70000", {"1.2.3.4:0"}, {}},
      {"1.2.3.4:9-7", {}, {}},
      {"1.2.3.4:7-7", {"1.2.3.4:7"}, {"1.2.3.4:7"}},
      {"1.2.3.4:7-8-99", {"1.2.3.4:7", "1.2.3.4:8"}, {"1.2.3.4:7", "1.2.3.4:8"}},
      {"1.2.3.4:7-", {"1.2.3.4:7"}, {"1.2.3.4:7"}},
      {"1.2.3.4:7-x", {}, {}},
      {"1.2.3.4:-1", {"1.2.3.4:0", "1.2.3.4:1"}, {}},
      {"1.2.3.4:65534-65535",
       {"1.2.3.4:65534", "1.2.3.4:65535"},
       {"1.2.3.4:65534", "1.2.3.4:65535"}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(hosts_in(c.text), c.hosts) << c.text;
    EXPECT_EQ(addrs_in(c.text), c.addrs) << c.text;
  }
}

TEST(ParseAddr, ReadsAddressAndPortInEveryForm) {
  const struct {
    const char* text;
    const char* expected;  // null: refused
  } cases[] = {
      {"", "127.0.0.1:0"},         {" \t\r\n", "127.0.0.1:0"},
      {"1.2.3.4", "1.2.3.4:0"},    {"  1.2.3.4:5060", "1.2.3.4:5060"},
      {":5060", "127.0.0.1:5060"}, {"1.2.3.4:", "1.2.3.4:0"},
      {":", "127.0.0.1:0"},        {"5060", "127.0.0.1:5060"},
      {"1.2.3.4:65536", nullptr},  {"1.2.3.4:5060 ", nullptr},
      {"1.2.3.4:x", nullptr},      {"1.2.3:5060", nullptr},
      {"name:5060", nullptr},      {"name", nullptr},
      {"1.2.3.4:5:6", nullptr},
  };
  for (const auto& c : cases) {
    sockaddr_in address{};
    ASSERT_EQ(cv::net::parse_addr(c.text, nullptr, address), c.expected != nullptr) << c.text;
    if (c.expected == nullptr) continue;
    EXPECT_EQ(text_of(address), c.expected) << c.text;
    EXPECT_EQ(address.sin_family, AF_INET);
  }
}

TEST(ParseAddr, ReadsNothingBehindTheEndAndLeavesItsOutputAloneOnFailure) {
  const char text[] = "1.2.3.4:50609999";
  sockaddr_in address{};
  ASSERT_TRUE(cv::net::parse_addr(text, text + 12, address));
  EXPECT_EQ(text_of(address), "1.2.3.4:5060");
  EXPECT_FALSE(cv::net::parse_addr(nullptr, nullptr, address));
  EXPECT_FALSE(cv::net::parse_addr("9.9.9.9:x", nullptr, address));
  const char with_nul[] = "5.6.7.8\0:90";
  EXPECT_FALSE(cv::net::parse_addr(with_nul, with_nul + sizeof with_nul - 1, address));
  EXPECT_EQ(text_of(address), "1.2.3.4:5060");
}

TEST(HostIp, IsTheLocalEndTowardsAnAddressOrTheFallback) {
  EXPECT_EQ(cv::net::get_host_ip(0, "x"), "x");
  EXPECT_EQ(cv::net::get_host_ip(0xFFFFFFFF, "y"), "y");
  EXPECT_EQ(cv::net::get_host_ip(htonl(INADDR_LOOPBACK), "x"), "127.0.0.1");
}

}  // namespace
