// flood: relays the packets of good calls to a node and floods it at the same time.
//
// It stands where somebody on the packets' way would stand: what it relays it also copies, cuts and
// imitates. The flood begins some seconds behind the first good packet; SIGTERM ends both, and then what was
// sent is printed as one JSON object. One last datagram follows the flood after a pause, because a kernel
// tells of datagrams that it dropped only with the next one that it delivers.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <csignal>
#include <cstring>
#include <ctime>
#include <iostream>
#include <map>
#include <random>
#include <span>
#include <sys/socket.h>

#include "core/clock.h"
#include "media/media_packet.h"
#include "media/media_packet_writer.h"
#include "net/net_datagram_batch.h"
#include "net/net_socket.h"
#include "tools/endpoint.h"
#include "tools/load/packet_batch.h"

namespace cv::test {

namespace {

constexpr int64_t turn_us = 1000;
// Of the flood in one turn: whoever is behind must not keep the good packets waiting.
constexpr uint64_t max_turn_datagrams = 500;
constexpr int64_t last_pause_us = 500000;
constexpr int receive_buffer_bytes = 32 << 20;
constexpr std::size_t max_datagram_bytes = 1472;  // unfragmented on an Ethernet
constexpr uint64_t few_calls = 4096;

volatile std::sig_atomic_t stop_requested = 0;

/// Whose calls the spoofed packets are of.
enum class SpoofedCalls : uint8_t {
  /// Calls that nobody has, each named once: what a node must hold of them is a session.
  fresh,
  /// The same few thousand calls that nobody has, over and over, with audio, absurd media times and
  /// report addresses anywhere: what a node can be made to hold is a call with all its analysers.
  few,
  /// The good calls themselves: ended, switched off, and carried to the last sequence number there is.
  good
};

struct Options {
  uint16_t listen = 0;
  std::string to;
  std::string source = "127.0.0.1";
  double rate = 50000;
  double after_s = 0;
  SpoofedCalls calls = SpoofedCalls::fresh;
};

/// The datagrams of a flood, deterministic for the packets it has seen.
class FloodMaker {
 public:
  explicit FloodMaker(SpoofedCalls calls) : m_calls(calls) {}

  /// A packet that has just been sent. Copied; older ones are forgotten after a while, and all of them
  /// when a call ends: its packets sent once more behind its end are another call to a node, with
  /// findings of its own, and nothing can tell that from a call that is made twice.
  void see(std::span<const unsigned char> packet) {
    constexpr std::size_t type = offsetof(media::PacketHeader, type);
    if (packet.size() > type && packet[type] == media::PACKET_TERM) m_seen_count = 0;
    m_seen[m_seen_count++ % m_seen.size()].assign(packet.begin(), packet.end());
  }
  /// Whether there is a packet to copy from.
  bool ready() const { return m_seen_count != 0; }

  /// Replaces `out` by the next datagram. When ready.
  void make(media::Datagram& out) {
    const std::size_t kind = m_made++ % 4;
    if (kind == 0) return make_noise(out);
    if (kind == 3) return make_spoofed(out);
    out = any_seen();
    if (kind == 1) out.resize(1 + draw(out.size() - 1));
  }

 private:
  /// Random bytes; for the greater part those that the first checks look at are right.
  void make_noise(media::Datagram& out) {
    out.resize(1 + draw(max_datagram_bytes));
    for (std::size_t at = 0; at + sizeof(uint64_t) <= out.size(); at += sizeof(uint64_t)) {
      const uint64_t noise = m_random();
      std::memcpy(out.data() + at, &noise, sizeof noise);
    }
    if (out.size() < sizeof(media::PacketHeader)) return;
    const std::size_t right = draw(4);
    const auto type = static_cast<uint8_t>(media::PACKET_START + draw(4));
    const auto put = [&](std::size_t at, const void* value, std::size_t size) {
      std::memcpy(out.data() + at, value, size);
    };
    if (right > 0) put(offsetof(media::PacketHeader, marker), &media::packet_marker, 4);
    if (right > 1) put(offsetof(media::PacketHeader, version), &media::packet_version, 1);
    if (right > 2) put(offsetof(media::PacketHeader, type), &type, 1);
  }

  void make_spoofed(media::Datagram& out) {
    const bool few = m_calls == SpoofedCalls::few, good = m_calls == SpoofedCalls::good;
    media::CallKey call;
    if (good) {
      const unsigned char* seen = any_seen().data();
      std::memcpy(&call.id, seen + offsetof(media::PacketHeader, id), sizeof call.id);
      std::memcpy(call.uuid.data(), seen + offsetof(media::PacketHeader, uuid), sizeof call.uuid);
    } else {
      call.id = few ? draw(few_calls) : m_random();
      std::memcpy(call.uuid.data(), &call.id, sizeof call.id);
    }
    // Far ahead, a session seems active for ever; of a call of one packet it does not matter.
    const uint64_t mt_us = few && draw(2) == 0 ? m_random() : 0;
    const std::size_t kind = draw(good ? 3 : 4);  // nobody starts a good call once more
    if (kind == 0) {
      media::write_terminate(call, mt_us, out);
    } else if (kind == 1) {
      media::write_feature_update(call, mt_us, good ? 0 : all_features, out);
    } else if (kind == 2) {
      make_spoofed_data(call, mt_us, out);
    } else {
      media::StartFields fields;
      fields.features = all_features;
      fields.flags = media::StartPacket::flag_rule;
      fields.rule = few ? 1 : m_random();
      fields.report_addr = static_cast<uint32_t>(m_random());
      fields.report_port = static_cast<uint16_t>(m_random());
      media::write_start(call, mt_us, fields, out);
    }
  }

  /// With noise: no sample is recognised in it, but every analyser has its work.
  void make_spoofed_data(const media::CallKey& call, uint64_t mt_us, media::Datagram& out) {
    std::array<int16_t, 160> audio;
    for (int16_t& sample : audio) sample = static_cast<int16_t>(m_random());
    media::DataFields fields;
    fields.side = static_cast<uint16_t>(draw(2));
    fields.seq = m_calls == SpoofedCalls::good ? UINT32_MAX : static_cast<uint32_t>(m_random());
    fields.samples = audio;
    media::write_data(call, mt_us, fields, out);
  }

  std::size_t draw(std::size_t below) { return static_cast<std::size_t>(m_random() % below); }
  const media::Datagram& any_seen() { return m_seen[draw(std::min(m_seen_count, m_seen.size()))]; }

  static constexpr uint8_t all_features =
      media::features_sample_detection | media::features_activity_detection;

  const SpoofedCalls m_calls;
  std::mt19937_64 m_random;
  std::array<media::Datagram, 4096> m_seen;
  std::size_t m_seen_count = 0;
  std::size_t m_made = 0;
};

void sleep_until(int64_t time_us) {
  const timespec time{time_us / 1000000, time_us % 1000000 * 1000};
  clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr);
}

/// A socket bound to `source` and connected to the node; its descriptor.
int connect_from(net::Socket& socket, const std::string& source, const std::string& to) {
  std::string error;
  const auto from = tools::parse_endpoint(source + ":1", error);
  const auto node = from ? tools::parse_endpoint(to, error) : std::nullopt;
  if (!node) throw std::runtime_error(error);
  if (!socket.open(0, ntohl(from->sin_addr.s_addr)) ||
      connect(socket.descriptor(), reinterpret_cast<const sockaddr*>(&*node), sizeof *node) != 0) {
    throw std::runtime_error(source + " to " + to + ": " + strerror(errno));
  }
  return socket.descriptor();
}

class Flood {
 public:
  explicit Flood(const Options& options)
      : m_options(options),
        m_maker(options.calls),
        m_good(connect_from(m_good_socket, "127.0.0.1", options.to)),
        m_flood(connect_from(m_flood_socket, options.source, options.to)) {
    if (!m_listener.open(options.listen, INADDR_LOOPBACK))
      throw std::runtime_error("cannot listen");
  }

  void run() {
    int64_t turn = steady_clock().now_us();
    while (stop_requested == 0) {
      relay();
      flood();
      turn = std::max(turn + turn_us, steady_clock().now_us());
      sleep_until(turn);
    }
    sleep_until(steady_clock().now_us() + last_pause_us);
    relay();
    m_flood.next().assign(1, 0);
    m_flood.flush();
    std::cout << "{\"good\": " << m_good.sent() << ", \"good_refused\": " << m_good.refused()
              << ", \"good_dropped\": " << m_dropped << ", \"flood\": " << m_flood.sent()
              << ", \"flood_refused\": " << m_flood.refused()
              << ", \"flood_seconds\": " << static_cast<double>(m_last_us - m_begin_us) / 1e6
              << "}\n";
  }

 private:
  void relay() {
    while (m_received.fill(m_listener.descriptor()) == 0 && !m_received.empty()) {
      m_dropped += m_received.take_dropped();
      while (!m_received.empty()) {
        const std::size_t size = m_received.take(m_packet, sizeof m_packet);
        m_good.next().assign(m_packet, m_packet + size);
        m_maker.see({m_packet, size});
      }
    }
    m_good.flush();
    if (m_begin_us == 0 && m_maker.ready()) {
      m_last_us = m_begin_us =
          steady_clock().now_us() + static_cast<int64_t>(m_options.after_s * 1e6);
    }
  }

  /// As many as are due by now, behind the packets that they are made from.
  void flood() {
    if (m_begin_us == 0) return;
    m_last_us = std::max(m_begin_us, steady_clock().now_us());
    const double due = static_cast<double>(m_last_us - m_begin_us) * m_options.rate / 1e6;
    const uint64_t end = m_made + max_turn_datagrams;
    for (; m_made != end && static_cast<double>(m_made) < due; ++m_made) {
      m_maker.make(m_flood.next());
    }
    m_flood.flush();
  }

  const Options m_options;
  FloodMaker m_maker;
  net::Socket m_listener{nullptr, receive_buffer_bytes};
  net::Socket m_good_socket;
  net::Socket m_flood_socket;
  net::DatagramBatch m_received;
  tools::PacketBatch m_good;
  tools::PacketBatch m_flood;
  unsigned char m_packet[65536];
  int64_t m_begin_us = 0;  // of the flood
  int64_t m_last_us = 0;
  uint64_t m_made = 0;
  uint64_t m_dropped = 0;
};

}  // namespace

}  // namespace cv::test

int main(int argc, char** argv) {
  using cv::test::SpoofedCalls;
  CLI::App app("Relays good calls to a node and floods it");
  cv::test::Options options;
  const std::map<std::string, SpoofedCalls> calls = {
      {"fresh", SpoofedCalls::fresh}, {"few", SpoofedCalls::few}, {"good", SpoofedCalls::good}};
  app.add_option("--listen", options.listen, "port that good packets come to")->required();
  app.add_option("--to", options.to, "the node's media port, HOST:PORT")->required();
  app.add_option("--source", options.source, "address that the flood comes from");
  app.add_option("--rate", options.rate, "datagrams a second")->check(CLI::Range(1.0, 1e6));
  app.add_option("--after", options.after_s, "seconds from the first good packet to the flood");
  app.add_option("--spoof", options.calls, "calls of the spoofed packets")
      ->transform(CLI::CheckedTransformer(calls));
  CLI11_PARSE(app, argc, argv);
  std::signal(SIGTERM, [](int) { cv::test::stop_requested = 1; });
  try {
    cv::test::Flood flood(options);
    std::cout << "ready" << std::endl;
    flood.run();
    return 0;
  } catch (const std::exception& failure) {
    std::cerr << "flood: " << failure.what() << "\n";
    return 1;
  }
}
