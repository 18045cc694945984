// Calls, samples and voted detectors made by hand, for tests of what is said about them.
#pragma once

#include <arpa/inet.h>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "audio/audio_samples_detector.h"
#include "medianode/media_session.h"
#include "support/packet_builder.h"

namespace cv::test {

/// A call whose reports go to this port of this machine (host byte order; 0: nowhere).
inline rc_ptr<mn::MediaSession> make_session(uint16_t report_port = 0) {
  media::StartFields fields;
  fields.features = media::features_sample_detection | media::features_activity_detection;
  fields.ts = 1635500000;
  fields.rule = 5;
  fields.report_addr = htonl(INADDR_LOOPBACK);
  fields.report_port = htons(report_port);
  Viewed<media::StartPacket> start(CallPackets(0xFF).start(fields));
  return new mn::MediaSession(*start, 0);
}

inline rc_ptr<audio::SampleMetadata> make_sample(uint32_t id, const std::string& name,
                                                 const std::string& event_object) {
  rc_ptr<audio::SampleMetadata> sample(new audio::SampleMetadata);
  sample->id = id;
  sample->name = name;
  sample->event_object = event_object;
  return sample;
}

/// A detector that has seen whole samples named id_N, each of so many points (score log2(points)),
/// from frame 100 of the stream on.
struct VotedDetector : private audio::SamplesDetectorCallback {
  explicit VotedDetector(const std::vector<std::pair<uint32_t, uint32_t>>& points_by_sample) {
    std::vector<audio::HashSample> samples;
    for (const auto& [id, points] : points_by_sample) {
      rc_ptr<audio::HashSamplePayload> payload(new audio::HashSamplePayload);
      for (uint32_t i = 0; i < points; ++i) payload->points.push_back({id << 8 | i, i});
      samples.push_back({make_sample(id, "id_" + std::to_string(id), "{}"), payload});
    }
    detector.set_database(new audio::HashDatabase(samples));
    for (const auto& sample : samples) {
      for (const auto& point : sample.payload->points) {
        detector.handle_hash({point.hash, point.offset + 100}, *this, nullptr);
      }
    }
  }

  audio::SamplesDetector detector;

 private:
  void on_sample_detected(audio::Match, void*) override {}
};

}  // namespace cv::test
