// flood: relays the packets of good calls to a node and floods it at the same time.
//
// It stands where somebody on the packets' way would stand: what it relays it also copies, cuts and
// imitates. The flood begins some seconds behind the first good packet; SIGTERM ends both, and then what was
// sent is printed as one JSON object. One last datagram follows the flood after a pause, because a kernel
// tells of datagrams that it dropped only with the next one that it delivers.
#include <CLI/CLI.hpp>
#include <arpa/inet.h>
#include <csignal>
#include <cstring>
#include <ctime>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/socket.h>

#include "core/clock.h"
#include "flood/flood_maker.h"
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

volatile std::sig_atomic_t stop_requested = 0;

struct Options {
  uint16_t listen = 0;
  std::string to;
  std::string source = "127.0.0.1";
  double rate = 50000;
  double after_s = 0;
  uint64_t seed = 1;
  SpoofedCalls calls = SpoofedCalls::fresh;
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
        m_maker(options.calls, options.seed),
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
      const int64_t now_us = steady_clock().now_us();
      turn = std::max(turn + turn_us, now_us);
      sleep_until(turn);
    }
    sleep_until(steady_clock().now_us() + last_pause_us);
    relay();
    m_flood.next().assign(1, 0);
    m_flood.flush();
  }

  std::string json() const {
    std::ostringstream out;
    const double seconds =
        m_last_us > m_begin_us ? static_cast<double>(m_last_us - m_begin_us) / 1e6 : 0;
    out << "{\"good\": " << m_good.sent() << ", \"good_refused\": " << m_good.refused()
        << ", \"good_dropped\": " << m_dropped << ", \"flood\": " << m_flood.sent()
        << ", \"flood_refused\": " << m_flood.refused() << ", \"flood_seconds\": " << seconds
        << "}";
    return out.str();
  }

 private:
  void relay() {
    for (;;) {
      if (m_received.fill(m_listener.descriptor()) != 0 || m_received.empty()) break;
      m_dropped += m_received.take_dropped();
      while (!m_received.empty()) {
        const std::size_t size = m_received.take(m_packet, sizeof m_packet);
        m_good.next().assign(m_packet, m_packet + size);
        m_maker.see({m_packet, size});
      }
    }
    m_good.flush();
    if (m_begin_us == 0 && m_maker.ready()) {
      m_begin_us = steady_clock().now_us() + static_cast<int64_t>(m_options.after_s * 1e6);
    }
  }

  /// As many as are due by now, behind the packets that they are made from.
  void flood() {
    if (m_begin_us == 0) return;
    m_last_us = steady_clock().now_us();
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
  app.add_option("--seed", options.seed, "of the flood");
  app.add_option("--spoof", options.calls, "calls of the spoofed packets")
      ->transform(CLI::CheckedTransformer(calls));
  CLI11_PARSE(app, argc, argv);
  std::signal(SIGTERM, [](int) { cv::test::stop_requested = 1; });
  try {
    cv::test::Flood flood(options);
    std::cout << "ready" << std::endl;
    flood.run();
    std::cout << flood.json() << std::endl;
    return 0;
  } catch (const std::exception& failure) {
    std::cerr << "flood: " << failure.what() << "\n";
    return 1;
  }
}
