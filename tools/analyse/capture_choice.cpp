// Which streams of a capture are a call's.

#include <algorithm>

#include "tools/analyse/capture.h"

namespace cv::tools {

namespace {

using Streams = std::vector<const CapturedStream*>;

/// Of one source: the next begins when the one before has ended.
bool follows(const CapturedStream& next, const CapturedStream& before) {
  return next.key.from.address == before.key.from.address &&
         next.key.to.address == before.key.to.address && next.first_us >= before.last_us;
}

bool opposite(const CapturedStream& a, const CapturedStream& b) {
  return a.key.from.address == b.key.to.address && a.key.to.address == b.key.from.address;
}

/// Each group is one stream, or several that follow one another. Takes and keeps their order.
std::vector<Streams> group(const Streams& streams) {
  std::vector<Streams> groups;
  for (const CapturedStream* stream : streams) {
    const auto own = std::find_if(groups.begin(), groups.end(), [&](const Streams& before) {
      return follows(*stream, *before.back());
    });
    if (own == groups.end()) {
      groups.push_back({stream});
    } else {
      own->push_back(stream);
    }
  }
  return groups;
}

std::vector<RtpKey> keys(const Streams& streams) {
  std::vector<RtpKey> keys;
  for (const CapturedStream* stream : streams) keys.push_back(stream->key);
  return keys;
}

/// Empty, with the reason in `error`, when it is not one.
std::vector<RtpKey> choose_one(const Capture& capture, const std::string& choice_text,
                               std::string& error) {
  const auto choice = StreamChoice::parse(choice_text);
  if (!choice) {
    error = "\"" + choice_text + "\" names no stream; --list shows how they are written";
    return {};
  }
  Streams matching, audio;
  for (const CapturedStream& stream : capture.streams) {
    if (!choice->matches(stream.key)) continue;
    matching.push_back(&stream);
    if (stream.has_g711()) audio.push_back(&stream);
  }
  const auto groups = group(audio);
  if (groups.size() == 1) return keys(groups[0]);
  if (matching.size() == 1) {
    error = stream_text(matching[0]->key) + " carries payload type " + matching[0]->payload_text() +
            "; mu-law (0) and A-law (8) are";
    return {};
  }
  error = "\"" + choice_text + "\" is " + std::to_string(matching.size()) + " streams";
  for (const CapturedStream* stream : matching)
    error.append("\n  ").append(stream_text(stream->key));
  return {};
}

}  // namespace

std::optional<CallStreams> choose_streams(const Capture& capture,
                                          const std::array<std::string, 2>& choices,
                                          std::string& error) {
  CallStreams chosen;
  if (!choices[0].empty() || !choices[1].empty()) {
    for (std::size_t side = 0; side < 2; ++side) {
      if (choices[side].empty()) continue;
      chosen[side] = choose_one(capture, choices[side], error);
      if (chosen[side].empty()) return std::nullopt;
    }
    const auto& other = chosen[1];
    const bool shared = std::any_of(chosen[0].begin(), chosen[0].end(), [&](const RtpKey& key) {
      return std::find(other.begin(), other.end(), key) != other.end();
    });
    if (!shared) return chosen;
    error = "both sides are one stream";
    return std::nullopt;
  }
  Streams audio;
  for (const CapturedStream& stream : capture.streams) {
    if (stream.has_g711()) audio.push_back(&stream);
  }
  const auto groups = group(audio);
  const bool call = groups.size() == 2 && opposite(*groups[0].front(), *groups[1].front());
  if (groups.size() == 1 || call) {
    for (std::size_t i = 0; i < groups.size(); ++i) chosen[i] = keys(groups[i]);
    return chosen;
  }
  if (audio.empty()) {
    error = "there is no stream of G.711 in it";
  } else {
    error = "there are ";
    error += std::to_string(audio.size());
    error += " streams in it: pick with --originator and --terminator; --list shows them";
  }
  return std::nullopt;
}

}  // namespace cv::tools
