// The node's analysis pipeline without its threads, for benchmarks and counting tests: packets in by hand,
// reports kept in a list.
#pragma once

#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "audio/audio_fingerprint.h"
#include "medianode/media_pipeline.h"
#include "support/fake_clock.h"
#include "support/packet_builder.h"

namespace cv::test {

/// Keeps what it is given; unlike the real one it may be read by the pushing thread.
class KeptReports : public mn::ReportManager {
 public:
  using mn::ReportManager::ReportManager;

  bool push(rc_ptr<mn::Report> report) override {
    m_reports.push_back(std::move(report));
    return true;
  }

  /// The texts of all reports since the last call, empty ones included.
  std::vector<std::string> texts() {
    std::vector<std::string> written;
    for (const auto& report : m_reports) {
      std::ostringstream out;
      report->serialize(out, m_counters);
      written.push_back(out.str());
    }
    m_reports.clear();
    return written;
  }

 private:
  std::vector<rc_ptr<mn::Report>> m_reports;
  mn::ReportManagerStatistic m_counters;
};

struct KnownSample {
  uint32_t id;
  std::string name;
  std::vector<audio::HashPoint> points;
};

template <typename Reports>
struct BasicPipeline {
  explicit BasicPipeline(rc_ptr<mn::Configuration> settings = new mn::Configuration)
      : configuration(std::move(settings)) {}

  /// Builds and publishes a database in which one rule looks for these samples.
  void publish(uint64_t version, uint64_t rule, const std::vector<KnownSample>& samples) {
    mn::SampleConfig config(version);
    for (const KnownSample& sample : samples) {
      rc_ptr<audio::SampleMetadata> metadata(new audio::SampleMetadata);
      metadata->id = sample.id;
      metadata->name = sample.name;
      metadata->threshold = 4.5;
      metadata->event_object = "{}";
      config.add(rule, metadata);
    }
    std::unordered_set<uint32_t>* missing = nullptr;
    database.on_config_received(config, missing);
    for (const KnownSample& sample : samples) {
      const auto bytes = audio::write_sample_packet(sample.points);
      audio::SamplePacket packet;
      audio::SamplePacket::parse(bytes.data(), bytes.size(), packet);
      database.on_sample_received(sample.id, packet);
    }
  }

  void send(const media::Datagram& datagram) { deliver(media.manager(), datagram); }

  /// Sends audio of one side in packets of so many samples; `seq` counts on.
  void play(const CallPackets& call, uint16_t side, std::span<const int16_t> samples, uint32_t& seq,
            std::size_t packet_samples = 160) {
    while (!samples.empty()) {
      const std::size_t count = std::min(packet_samples, samples.size());
      send(call.data(side, ++seq, samples.first(count)));
      samples = samples.subspan(count);
    }
  }

  FakeClock clock;
  rc_ptr<mn::Configuration> configuration;
  mn::DatabaseDispatcher database{clock};
  mn::DeadAirDispatcher dead_air;
  Reports reports{configuration};
  media::StreamManagerStatistic statistic;
  mn::MediaPipeline media{configuration, database, dead_air, reports, statistic, clock};
};

using Pipeline = BasicPipeline<KeptReports>;

}  // namespace cv::test
