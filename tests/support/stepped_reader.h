// The packet reader without its thread.
#pragma once

#include "media/media_packet_reader.h"
#include "media/media_packet_writer.h"

namespace cv::test {

struct SteppedReader : media::PacketReader {
  using PacketReader::PacketReader;

  /// What the reader's thread does in a turn.
  void step() {
    on_queue_try();
    if (!m_queue.empty()) on_queue_read(m_queue.take());
    store_depth();
  }
  void take(const media::Datagram& datagram) {
    read_from(datagram.data(), datagram.size());
    step();
  }
};

}  // namespace cv::test
