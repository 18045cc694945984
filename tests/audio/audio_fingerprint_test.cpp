#include "audio/audio_fingerprint.h"

#include <gtest/gtest.h>
#include <stdexcept>
#include <vector>

#include "support/plain_spectrum.h"
#include "support/recordings.h"

namespace cv::audio {
namespace {

TEST(Fingerprint, MergesThePointsOfItsPhases) {
  // Half a second of speech from the midst of a prompt: the plain transform takes its time.
  const auto prompt = test::english_prompts(16000).at(50).samples;
  const auto speech = std::span(prompt).subspan(6000, 4000);
  for (const unsigned phases : {1u, 2u, 3u, 4u, 128u}) {
    EXPECT_EQ(fingerprint(speech, phases), test::plain_fingerprint(speech, phases)) << phases;
  }
  EXPECT_GT(fingerprint(speech).size(), 20u);
  EXPECT_EQ(fingerprint(speech.first(256), 4), test::plain_fingerprint(speech.first(256), 4))
      << "the later phases are too short for a frame";
  EXPECT_TRUE(fingerprint(speech.first(255)).empty());
  for (const unsigned phases : {0u, 129u}) {
    EXPECT_THROW(fingerprint(speech, phases), std::invalid_argument);
  }
}

}  // namespace
}  // namespace cv::audio
