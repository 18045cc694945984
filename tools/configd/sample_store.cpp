#include "tools/configd/sample_store.h"

#include <utility>

#include "audio/audio_sample_packet.h"
#include "log/log.h"
#include "tools/configd/event_texts.h"
#include "tools/json_text.h"

namespace cv::tools {

std::string packet_complaint(const std::string& name, const std::vector<unsigned char>& packet) {
  if (!is_utf8(name)) return "its name is not UTF-8";
  if (packet.size() <= audio::SamplePacket::header_size_bytes) {
    return "nothing to recognise in it (silence, shorter than 32 ms, or hashes too often repeated)";
  }
  const std::size_t body_bytes = event_body(sample_event(UINT32_MAX, packet)).size();
  if (body_bytes <= max_body_bytes) return {};
  return "too long: its fingerprint takes " + std::to_string(body_bytes) + " bytes of the " +
         std::to_string(max_body_bytes) + " that a Kafka message may have";
}

bool SampleStore::load(const std::string& name) {
  std::string error;
  std::vector<unsigned char> packet = m_read(name, error);
  if (!packet.empty()) error = packet_complaint(name, packet);
  if (error.empty()) {
    m_packets[name] = std::move(packet);
    return true;
  }
  CV_LOG(ErrorMessage) << "CONFIGD: recording [" << name << "]: " << error
                       << (m_packets.count(name) ? "; the previous fingerprint stays"
                                                 : "; left out");
  return false;
}

SampleStore::ReadPacket fingerprint_reader(const std::string& directory,
                                           const FingerprintSettings& settings) {
  return [=](const std::string& name, std::string& error) -> std::vector<unsigned char> {
    const auto fingerprint = fingerprint_file(directory + "/" + name, settings, error);
    if (!fingerprint) return {};
    return audio::write_sample_packet(fingerprint->points);
  };
}

}  // namespace cv::tools
