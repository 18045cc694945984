// The way of a packet written down as it reads, with standard containers: a buffer from the heap, a
// queue, the checks, a hash map of calls, a list of them in order of activity, two streams a call. The
// yardstick of the packet reader and the managers behind it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <memory>
#include <unordered_map>
#include <vector>

#include "audio/audio_spectrum_generator.h"
#include "media/media_packet.h"

namespace cv::bench {

class PlainPacketPath {
 public:
  void add_session(uint64_t id);
  void read_from(const void* data, std::size_t size);
  /// Takes the oldest packet as far as the first of its samples.
  void step(audio::SpectrumGeneratorCallback& callback);

 private:
  struct Session;
  using Sessions = std::list<std::shared_ptr<Session>>;

  struct Stream {
    uint64_t start_mt = 0;
    audio::SpectrumGenerator generator;
  };

  struct Session {
    uint64_t id = 0;
    int64_t created_us = 0;
    int64_t last_activity_us = 0;
    uint64_t start_mt = 0;
    std::array<uint32_t, 2> last_seq{};
    std::array<std::shared_ptr<Stream>, 2> streams;
    Sessions::iterator audit_position;
  };

  void audit();
  void on_data(const media::DataPacket& packet, audio::SpectrumGeneratorCallback& callback);

  std::deque<std::shared_ptr<std::vector<unsigned char>>> m_queue;
  std::unordered_map<uint64_t, std::shared_ptr<Session>> m_sessions;
  Sessions m_audit_list;
};

}  // namespace cv::bench
