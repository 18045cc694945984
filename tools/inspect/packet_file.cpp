#include "tools/inspect/packet_file.h"

#include <utility>

#include "audio/audio_sample_packet.h"
#include "tools/text_file.h"

namespace cv::tools {

namespace {

using audio::SamplePacket;

constexpr std::string_view magic = "GH";
constexpr std::string_view magic_digits = "4748";

int digit_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string hex(unsigned value) {
  std::string text = "0x";
  for (int shift = 12; shift >= 0; shift -= 4) text += "0123456789abcdef"[value >> shift & 15];
  return text;
}

/// Empty, with "column C: ..." in `error`.
std::optional<std::string> decode_line(std::string_view line, std::string& error) {
  std::string bytes;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const int value = digit_value(line[i]);
    if (value < 0) {
      error = "column " + std::to_string(i + 1) + ": no hexadecimal digit";
      return std::nullopt;
    }
    if (i % 2 == 0) {
      bytes.push_back(static_cast<char>(value << 4));
    } else {
      bytes.back() = static_cast<char>(bytes.back() | value);
    }
  }
  if (line.size() % 2 != 0) {
    error = "column " + std::to_string(line.size()) + ": half a byte at the end";
    return std::nullopt;
  }
  return bytes;
}

std::string size_complaint(std::string_view bytes) {
  // The count's own bytes: the parser has no packet to show.
  uint32_t count = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    count |= uint32_t{static_cast<unsigned char>(bytes[4 + i])} << (8 * i);
  }
  return "byte 4: a count of " + std::to_string(count) + " points needs " +
         std::to_string(SamplePacket::header_size_bytes +
                        uint64_t{count} * SamplePacket::point_size_bytes) +
         " bytes, there are " + std::to_string(bytes.size());
}

std::optional<NamedPacket> parse_packet(std::string_view bytes, std::string& error) {
  SamplePacket packet;
  switch (SamplePacket::parse(bytes.data(), bytes.size(), packet)) {
    case SamplePacket::Status::Ok:
      break;
    case SamplePacket::Status::TooShort:
      error = "byte " + std::to_string(bytes.size()) + ": ends within the header of " +
              std::to_string(SamplePacket::header_size_bytes) + " bytes";
      return std::nullopt;
    case SamplePacket::Status::BadMagic:
      error = "byte 0: no sample packet, which begins with \"GH\"";
      return std::nullopt;
    case SamplePacket::Status::CountExceedsBytes:
      error = size_complaint(bytes);
      return std::nullopt;
  }
  if (packet.flags() != 0) {
    error = "byte 2: flags " + hex(packet.flags()) + ", nodes take no others than 0";
    return std::nullopt;
  }
  const std::size_t used =
      SamplePacket::header_size_bytes + packet.count() * SamplePacket::point_size_bytes;
  return NamedPacket{{}, packet.points(), bytes.size(), bytes.size() - used};
}

/// Without what ends it on other systems.
std::string_view next_line(std::string_view& rest) {
  const std::size_t end = rest.find('\n');
  std::string_view line = rest.substr(0, end);
  rest = end == rest.npos ? std::string_view() : rest.substr(end + 1);
  while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.remove_suffix(1);
  return line;
}

std::optional<std::vector<NamedPacket>> parse_digits(const std::string& name,
                                                     std::string_view content, std::string& error) {
  std::vector<NamedPacket> packets;
  for (std::size_t number = 1; !content.empty(); ++number) {
    const std::string_view line = next_line(content);
    if (line.empty()) continue;
    const auto bytes = decode_line(line, error);
    auto packet = bytes ? parse_packet(*bytes, error) : std::nullopt;
    if (!packet) {
      error.insert(0, "line " + std::to_string(number) + ", ");
      return std::nullopt;
    }
    packet->name = name + ":" + std::to_string(number);
    packets.push_back(std::move(*packet));
  }
  if (packets.size() == 1) packets.front().name = name;
  return packets;
}

}  // namespace

std::optional<std::vector<NamedPacket>> parse_packets(const std::string& name,
                                                      std::string_view content,
                                                      std::string& error) {
  // Digits never begin with a G.
  if (content.substr(0, magic_digits.size()) == magic_digits) {
    return parse_digits(name, content, error);
  }
  if (content.substr(0, magic.size()) != magic && !content.empty() &&
      digit_value(content.front()) >= 0) {
    error = "byte 0: no sample packet, which begins with \"GH\" or, in hexadecimal, with 4748";
    return std::nullopt;
  }
  auto packet = parse_packet(content, error);
  if (!packet) return std::nullopt;
  packet->name = name;
  return std::vector<NamedPacket>{std::move(*packet)};
}

std::optional<std::vector<NamedPacket>> read_packets(const std::string& path, std::string& error) {
  const auto content = read_file(path, error);
  if (!content) return std::nullopt;
  auto packets = parse_packets(path, *content, error);
  if (!packets) error = path + ": " + error;
  return packets;
}

}  // namespace cv::tools
