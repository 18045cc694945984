// Which call side an analyser's callback is about: what its opaque user pointer designates.
#pragma once

#include "core/reference_countable.h"
#include "media/media_session.h"
#include "medianode/media_session.h"

namespace cv::mn {

/// Borrows the references of the call that made it, and is gone with that call.
struct StreamContext {
  static const StreamContext& of(void* user) { return *static_cast<const StreamContext*>(user); }

  const rc_ptr<media::Stream>& stream;
  const rc_ptr<MediaSession>& session;
};

}  // namespace cv::mn
