#include "audio/audio_segment_detector.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace cv::audio {
namespace {

/// Writes each event as "<type><offset>@<frame>".
struct Events : SegmentDetectorCallback {
  void on_segment_data(const Segment& segment, void* user) override {
    const auto& frame = *static_cast<const SpectrumFrame*>(user);
    const char* type = segment.type == 1 ? "start " : segment.type == 3 ? "end " : "? ";
    texts.push_back(type + std::to_string(segment.offset) + "@" + std::to_string(frame.index));
  }
  std::vector<std::string> texts;
};

SegmentDetectionOptions with_hits(uint64_t activity_hits, uint64_t silence_hits) {
  SegmentDetectionOptions options;
  options.activity_hits = activity_hits;
  options.silence_hits = silence_hits;
  return options;
}

TEST(SegmentDetector, CountsRunsOfActiveAndSilentFrames) {
  struct Case {
    SegmentDetectionOptions options;
    uint64_t first_index;
    std::string frames;  // '#' active, '.' silent
    std::vector<std::string> events;
  };
  const SegmentDetectionOptions defaults;
  const Case cases[] = {
      {defaults, 40, "#####", {"start 40@44"}},
      {defaults, 40, "##..###", {"start 40@46"}},
      {defaults, 40, "##........#####", {"start 50@54"}},
      {defaults, 50, "##########..#.....", {"start 50@54", "end 64@65"}},
      {defaults, 0, "#####.......#####...", {"start 0@4", "end 6@7", "start 12@16", "end 18@19"}},
      {with_hits(0, 2), 0, "##########...##", {}},
      {with_hits(2, 0), 10, "##.##.", {"start 10@11", "end 13@12", "start 13@14", "end 16@15"}},
  };
  for (const Case& c : cases) {
    SegmentDetector detector(c.options);
    Events events;
    SpectrumFrame frame;
    frame.index = c.first_index;
    for (const char kind : c.frames) {
      frame.amplitude = kind == '#' ? 10 : 0;
      frame.deviation = 300;
      detector.handle_frame(frame, events, &frame);
      ++frame.index;
    }
    EXPECT_EQ(events.texts, c.events) << c.frames << " from " << c.first_index;
  }
}

TEST(SegmentDetector, TellsActiveFramesFromSilentOnes) {
  struct Case {
    double amplitude, deviation, power, entropy;
    bool active;
    double pow_threshold = 0.75;
  };
  const Case cases[] = {
      {0.9999, 300, 1e6, 0, false}, {1.0, 256, 0, 1, true},      {10, 255.9, 0, 1, false},
      {10, 10, 1000, 0.75, true},   {10, 10, 1000, 0.76, false}, {10, 10, 5.6, 0, false},
      {10, 10, 5.7, 0, true},       {10, 10, 0.1, 0, false},     {32768, 255, 1e9, 0.999, false},
      {1, 0, 0.5, 0.5, true, 0},
  };
  for (const Case& c : cases) {
    SpectrumFrame frame;
    frame.amplitude = c.amplitude;
    frame.deviation = c.deviation;
    frame.power = c.power;
    frame.entropy = c.entropy;
    SegmentDetectionOptions options = with_hits(1, 2);
    options.pow_threshold = c.pow_threshold;
    Events events;
    SegmentDetector(options).handle_frame(frame, events, &frame);
    EXPECT_EQ(!events.texts.empty(), c.active) << &c - cases;
  }
}

}  // namespace
}  // namespace cv::audio
