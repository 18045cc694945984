// One packet from the receiving thread's read_from() to the first of its samples in the stream's
// spectrum generator: checks, queue, call, sequence, stream. The product's classes and a plain form of
// them side by side, both on one thread. Pin it to one processor.
//
// Packets come in batches, as the socket gives them, and find a batch waiting. The sides of all calls are taken in turn, in an order that has nothing to do with that of the calls'
// starts: with many of them nothing of a side is left in a cache when its next packet comes.
#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "medianode/media_pipeline.h"
#include "net/net_datagram_batch.h"
#include "plain_packet_path.h"
#include "ratio_main.h"
#include "stopwatch.h"
#include "support/packet_builder.h"
#include "support/stepped_reader.h"

namespace cv::bench {

namespace {

constexpr std::size_t packet_samples = 160;  // 20 ms
constexpr std::size_t batch_packets = net::DatagramBatch::max_datagrams;

struct NoFrames : audio::SpectrumGeneratorCallback {
  void on_spectrum_data(const audio::SpectrumFrame& frame, void*) override {
    benchmark::DoNotOptimize(&frame);
  }
};

/// The keys of calls are checksums: spread evenly.
uint64_t key_of(std::size_t call) { return (call + 1) * 0x9E3779B97F4A7C15; }

test::CallPackets packets_of(std::size_t call) {
  media::Uuid uuid{};
  std::memcpy(uuid.data(), &call, sizeof call);
  return {key_of(call), uuid};
}

class Fast {
 public:
  void add_session(std::size_t call) { test::deliver(m_manager, packets_of(call).start()); }
  void read_from(const void* data, std::size_t size) { m_reader.read_from(data, size); }
  void step() { m_reader.step(); }

 private:
  using Manager = mn::MediaPipeline::Manager;

  /// Stands for the spectrum stage.
  struct FirstSample final : mn::MediaStreamPacketListener {
    void on_stream_media(rc_ptr<media::Stream> stream, rc_ptr<mn::MediaSession>,
                         const media::DataPacket& packet) override {
      Manager::stream_state<mn::SpectrumGeneratorState>(stream).m_generator.compute_spectrum(
          packet.samples(), 1, no_frames, nullptr);
    }
    NoFrames no_frames;
  };

  struct ListenedManager : Manager {
    ListenedManager(media::StreamManagerStatistic& statistic, FirstSample& listener)
        : Manager(statistic) {
      add_stream_packet_listener(&listener);
    }
  };

  media::StreamManagerStatistic m_statistic;
  media::PacketReaderStatistic m_reader_statistic;
  FirstSample m_listener;
  ListenedManager m_manager{m_statistic, m_listener};
  test::SteppedReader m_reader{m_reader_statistic, m_manager, &m_manager};
};

class Plain {
 public:
  void add_session(std::size_t call) { m_path.add_session(key_of(call)); }
  void read_from(const void* data, std::size_t size) { m_path.read_from(data, size); }
  void step() { m_path.step(m_no_frames); }

 private:
  PlainPacketPath m_path;
  NoFrames m_no_frames;
};

/// The packets of all call sides in turn, written into one buffer as the socket does.
template <typename Form>
class Source {
 public:
  Source(Form& form, std::size_t calls) : m_form(form) {
    for (std::size_t i = 0; i < 2 * calls; ++i) {
      m_sides.push_back({key_of(i / 2), static_cast<uint8_t>(i % 2)});
    }
    std::shuffle(m_sides.begin(), m_sides.end(), std::mt19937_64(1));
    const std::array<int16_t, packet_samples> samples{};
    m_datagram = test::CallPackets().data(0, 1, samples);
  }

  void fill() {
    for (std::size_t i = 0; i < batch_packets; ++i) send_next();
  }

  void send_batch() {
    fill();
    for (std::size_t i = 0; i < batch_packets; ++i) m_form.step();
  }

 private:
  struct Side {
    uint64_t key;
    uint8_t side;
  };

  void send_next() {
    auto& packet = *reinterpret_cast<media::DataPacket*>(m_datagram.data());
    packet.id = m_sides[m_next].key;
    packet.flags = m_sides[m_next].side;
    packet.seq = m_seq;
    m_form.read_from(m_datagram.data(), m_datagram.size());
    if (++m_next < m_sides.size()) return;
    m_next = 0;
    ++m_seq;
  }

  Form& m_form;
  std::vector<Side> m_sides;
  media::Datagram m_datagram;
  std::size_t m_next = 0;
  uint32_t m_seq = 1;
};

template <typename Form>
void take_packets(benchmark::State& state, std::size_t calls) {
  constexpr std::size_t least_packets = 200000;
  const auto form = std::make_unique<Form>();
  for (std::size_t call = 0; call < calls; ++call) form->add_session(call);
  Source<Form> source(*form, calls);
  const std::size_t batches = std::max(2 * calls, least_packets) / batch_packets;
  source.fill();
  for (std::size_t i = 0; i < batches; ++i) source.send_batch();
  for (auto _ : state) {
    const Stopwatch stopwatch;
    for (std::size_t i = 0; i < batches; ++i) source.send_batch();
    state.SetIterationTime(stopwatch.seconds() / static_cast<double>(batches * batch_packets));
  }
}

template <typename Form>
void add(const std::string& name, std::size_t calls) {
  benchmark::RegisterBenchmark(
      name.c_str(), [calls](benchmark::State& state) { take_packets<Form>(state, calls); })
      ->UseManualTime()
      ->Iterations(3);
}

void add_all() {
  for (const std::size_t calls : {1, 1000, 100000}) {
    const std::string name = "packet/" + std::to_string(calls);
    add<Plain>(name + "/plain", calls);
    add<Fast>(name + "/fast", calls);
  }
  add_ratio("packet/100000/fast", "packet/1/fast");
  add_ratio("packet/100000/plain", "packet/1/plain");
}

}  // namespace

}  // namespace cv::bench

int main(int argc, char** argv) {
  cv::bench::add_all();
  return cv::bench::run(argc, argv);
}
