// IPv4 addresses and networks that something is allowed to.
//
// Read from text when the node starts, then only looked up: a look-up is a binary search over ranges
// that do not touch, and allocates nothing. Any thread while nobody assigns.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace cv::net {

class AddressList {
 public:
  /// Replaces the list by what `text` names: dotted IPv4 addresses, or networks as "10.1.0.0/16",
  /// separated by commas, with blanks around them or not. False, with the reason naming the bad entry
  /// in `error` and the list as it was, when an entry is neither, when an address has bits behind its
  /// network's (10.1.2.3/16: one of the two is not what was meant), or when there is no entry at all.
  bool parse(const std::string& text, std::string& error);

  bool empty() const { return m_ranges.empty(); }

  /// `address` in network byte order. An empty list contains nothing.
  bool contains(uint32_t address) const;

 private:
  // Host byte order, both ends included.
  struct Range {
    uint32_t first;
    uint32_t last;
  };

  static bool parse_entry(const std::string& entry, Range& out, std::string& error);
  static std::vector<Range> joined(std::vector<Range> ranges);

  std::vector<Range> m_ranges;  // ascending, none touches the next
};

}  // namespace cv::net
