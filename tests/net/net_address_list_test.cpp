#include "net/net_address_list.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

namespace {

using cv::net::AddressList;

TEST(AddressList, HoldsExactlyTheAddressesOfItsEntries) {
  const struct {
    const char *list, *in, *out;  // addresses separated by blanks
  } cases[] = {
      {"10.0.0.1", "10.0.0.1", "10.0.0.0 10.0.0.2 1.0.0.10 0.0.0.0"},
      {"10.1.0.0/16", "10.1.0.0 10.1.255.255", "10.0.255.255 10.2.0.0"},
      {"0.0.0.0/0", "0.0.0.0 127.0.0.1 255.255.255.255", ""},
      {"255.255.255.255, 0.0.0.0/32", "255.255.255.255 0.0.0.0", "255.255.255.254 0.0.0.1"},
      // Beside, inside and over each other, in any order.
      {"10.0.1.0/24,10.0.0.0/24,10.0.0.7,10.0.3.0/24 ,\t10.0.0.0/25",
       "10.0.0.0 10.0.0.200 10.0.1.255 10.0.3.9", "9.255.255.255 10.0.2.0 10.0.2.255 10.0.4.0"},
      {"128.0.0.0/1,0.0.0.0/1", "127.255.255.255 128.0.0.0", ""},
  };
  for (const auto& c : cases) {
    AddressList list;
    std::string error, address;
    ASSERT_TRUE(list.parse(c.list, error)) << c.list << ": " << error;
    for (std::istringstream in(c.in); in >> address;)
      EXPECT_TRUE(list.contains(inet_addr(address.c_str()))) << c.list << " " << address;
    for (std::istringstream out(c.out); out >> address;)
      EXPECT_FALSE(list.contains(inet_addr(address.c_str()))) << c.list << " " << address;
  }
  EXPECT_FALSE(AddressList().contains(0));
}

TEST(AddressList, NamesTheEntryThatIsBadAndStaysAsItWas) {
  const struct {
    const char *list, *error;
  } cases[] = {
      {"10.0.0.2,10.0.0.300", "[10.0.0.300] is no IPv4 address or network"},
      {"10.0.0.2/", "[10.0.0.2/] is no IPv4 address or network"},
      {"10.0.0.0/33", "[10.0.0.0/33] is no IPv4 address or network"},
      {"10.0.0.0/ 8", "[10.0.0.0/ 8] is no IPv4 address or network"},
      {"10.0.0.0/-1", "[10.0.0.0/-1] is no IPv4 address or network"},
      {"10.0.0.0/8/8", "[10.0.0.0/8/8] is no IPv4 address or network"},
      {"::1", "[::1] is no IPv4 address or network"},
      {"10.0.0.2, ,10.0.0.3", "[] is no IPv4 address or network"},
      {"192.168.1.255/23",
       "[192.168.1.255/23] has bits behind its network, which is "
       "[192.168.0.0/23]"},
      {"10.0.0.1/0", "[10.0.0.1/0] has bits behind its network, which is [0.0.0.0/0]"},
      {",,", "no address or network in [,,]"},
  };
  for (const auto& c : cases) {
    AddressList list;
    std::string error;
    ASSERT_TRUE(list.parse("10.0.0.1", error));
    EXPECT_FALSE(list.parse(c.list, error)) << c.list;
    EXPECT_EQ(error, c.error);
    EXPECT_TRUE(list.contains(inet_addr("10.0.0.1")) && !list.contains(inet_addr("10.0.0.2")));
  }
}

}  // namespace
