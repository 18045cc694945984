// The spectrum stage: audio of a call side in, spectrum frames out to the analysers.
//
// A listener that throws std::bad_alloc misses its frame. The others do not, nor does any later frame:
// the exception goes on when the packet's samples are all in, so that the side's time stays right.
//
// Threads: subscription before the packet reader starts, everything else on the reader's thread.
#pragma once

#include <new>
#include <vector>

#include "audio/audio_spectrum_generator.h"
#include "medianode/media_listeners.h"
#include "medianode/stream_context.h"

namespace cv::mn {

struct SpectrumGeneratorState {
  audio::SpectrumGenerator m_generator;

  void prefetch_samples() const { m_generator.prefetch_samples(); }
};

template <typename M>
class SpectrumGenerator final : public MediaStreamPacketListener,
                                private audio::SpectrumGeneratorCallback {
 public:
  /// Not owned; listeners are called in the order they were added.
  void add_listener(SpectrumGeneratorListener* listener) { m_listeners.push_back(listener); }

  void on_stream_media(rc_ptr<media::Stream> stream, rc_ptr<MediaSession> session,
                       const media::DataPacket& packet) override {
    StreamContext context{stream, session};
    m_out_of_memory = false;
    M::template stream_state<SpectrumGeneratorState>(stream).m_generator.compute_spectrum(
        packet.samples(), packet.num, *this, &context);
    if (m_out_of_memory) throw std::bad_alloc();
  }

 private:
  void on_spectrum_data(const audio::SpectrumFrame& frame, void* user) override {
    const StreamContext& context = StreamContext::of(user);
    for (auto* listener : m_listeners) {
      try {
        listener->on_spectrum_frame(context.stream, context.session, frame);
      } catch (const std::bad_alloc&) {
        m_out_of_memory = true;
      }
    }
  }

  std::vector<SpectrumGeneratorListener*> m_listeners;
  bool m_out_of_memory = false;  // of the packet in hand
};

}  // namespace cv::mn
