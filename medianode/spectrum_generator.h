// The spectrum stage: audio of a call side in, spectrum frames out to the analysers.
//
// Threads: subscription before the packet reader starts, everything else on the reader's thread.
#pragma once

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
    M::template stream_state<SpectrumGeneratorState>(stream).m_generator.compute_spectrum(
        packet.samples(), packet.num, *this, &context);
  }

 private:
  void on_spectrum_data(const audio::SpectrumFrame& frame, void* user) override {
    const StreamContext& context = StreamContext::of(user);
    for (auto* listener : m_listeners) {
      listener->on_spectrum_frame(context.stream, context.session, frame);
    }
  }

  std::vector<SpectrumGeneratorListener*> m_listeners;
};

}  // namespace cv::mn
