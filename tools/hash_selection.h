// Which points of a fingerprint are worth the votes they cost.
//
// A hash that a call's speech has often votes at every place where the samples have it: the cost of a
// hash is how often calls have it times how often the samples do. A sound that lasts gives the same
// hash frame after frame; those votes fall on neighbouring shifts, which the node counts together, so
// that a few of them look like a recognition.
//
// Points in, points out, in the order they came; the same input always gives the same output. What
// was measured about each step is in docs/recognition.md. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "audio/audio_hash_generator.h"

namespace cv::tools {

/// A sample's points, by ascending frame, each (frame, hash) once.
using Points = std::vector<audio::HashPoint>;

/// Keeps a point only when it lies `spacing_frames` or more behind the last point kept that has its
/// hash. 0 and 1 keep all.
Points space_out(Points points, uint32_t spacing_frames);

/// Drops every hash that occurs in more than `max_repeat` frames. 0 keeps all.
Points drop_repeated(Points points, std::size_t max_repeat);

/// The hashes to drop from a set of samples: the `count` that occur most often in it (of those that
/// occur equally often the lower), ascending. `previous`, what was dropped so far, stays as long as it
/// is as large and costs calls nine tenths of the votes or more that the commonest would: samples whose
/// points change are new samples to every node, and one more recording should not renew them all.
std::vector<uint32_t> choose_common_hashes(std::span<const Points> samples, std::size_t count,
                                           const std::vector<uint32_t>& previous);

/// Drops the points whose hash is in `hashes`, which ascend.
Points drop_hashes(Points points, std::span<const uint32_t> hashes);

}  // namespace cv::tools
