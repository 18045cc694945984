// Calls and samples made by hand, for tests of what is said about them.
#pragma once

#include <arpa/inet.h>
#include <cstdint>
#include <string>

#include "audio/audio_samples_detector.h"
#include "medianode/media_session.h"
#include "support/packet_builder.h"

namespace cv::test {

/// A call whose reports go to this port of this machine (host byte order; 0: nowhere).
inline rc_ptr<mn::MediaSession> make_session(uint16_t report_port = 0) {
  Viewed<media::StartPacket> start(CallPackets(0xFF).start({.features = 0x3C,
                                                            .ts = 1635500000,
                                                            .rule = 5,
                                                            .report_addr = htonl(INADDR_LOOPBACK),
                                                            .report_port = htons(report_port)}));
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

}  // namespace cv::test
