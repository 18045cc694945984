// The calls of an evaluation, each with what is played in it: recordings that a truth file labels, or
// calls made up of the samples themselves and of background speech.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/audio_file.h"
#include "tools/evaluate/sample_set.h"
#include "tools/evaluate/truth.h"

namespace cv::tools {

/// A sample played on a side from the sample `begin` of its audio on.
struct PlayedSample {
  uint32_t position = 0;  // in the set
  std::size_t begin = 0;
};

/// A side with nothing played is background.
struct EvaluatedSide {
  TruthSide side = TruthSide::every;
  std::vector<PlayedSample> plays;
};

struct EvaluatedCall {
  std::string name;
  std::vector<EvaluatedSide> sides;
  /// The same every time; any thread. Throws std::runtime_error, naming the recording.
  std::function<AudioChannels()> read;
};

/// The channel of `channels` (1 or 2) that each side of `call` is in. Throws std::runtime_error when
/// the truth says something of a side that is not there.
struct SideChannel {
  const EvaluatedSide* side;
  std::size_t channel;
};
std::vector<SideChannel> channels_of(const EvaluatedCall& call, std::size_t channels);

/// `folder` is where the recordings' paths begin. Empty, with "line L: ..." in `error`, when a sample
/// is none of the set or a recording is not there.
std::optional<std::vector<EvaluatedCall>> labelled_calls(const std::vector<TruthLine>& truth,
                                                         const std::string& folder,
                                                         const SampleSet& set, std::string& error);

struct PlantedPlan {
  std::size_t calls = 0;
  double least_s = 0;  // of the samples to play
  double most_s = 0;
  double background_call_s = 120;
  double background_hours = 0;  // at least; all speech is used in any case
  uint64_t seed = 1;
};

/// Background speech, and calls in each of which a sample is played: after 1 to 5 seconds of background
/// speech, at a place that is no multiple of the frames' hop, and followed by 2 seconds more. Every
/// sample of a fitting length is played before one is played again. The background is also there in calls
/// of its own: its recordings in random order, joined without pauses until a call is `background_call_s`
/// long. Where it is shorter than `background_hours`, all of it comes again, in another order and at other
/// places within the hop; that is less to go by than other speech, but more than nothing.
/// Empty, with the reason in `error`, when no sample or no background is long enough.
std::optional<std::vector<EvaluatedCall>> planted_calls(
    const PlantedPlan& plan, const SampleSet& set,
    const std::vector<std::vector<int16_t>>& background, std::string& error);

}  // namespace cv::tools
