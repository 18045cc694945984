// The evaluation itself: every call through every condition, and what is found there with every setting
// at every threshold, judged by the truth.
//
// A call is analysed once for each condition (spectra and points), and once more for each setting
// (votes); thresholds cost next to nothing (threshold_sweep.h). Calls are independent, so they may be
// evaluated on any thread in any order; outcomes are added up in the calls' order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "audio/audio_hash_database.h"
#include "tools/evaluate/evaluated_call.h"
#include "tools/evaluate/line_condition.h"
#include "tools/fingerprint.h"

namespace cv::tools {

/// What cannot be changed rule by rule: how fingerprints are made, and the node's drift.
struct EvaluatedSetting {
  SampleSettings samples{};
  uint8_t drift_frames = 1;
};

struct EvaluationPlan {
  std::vector<EvaluatedSetting> settings;
  std::vector<LineCondition> conditions;             // of calls in which something is played
  std::vector<LineCondition> background_conditions;  // of those in which nothing is
  std::vector<double> thresholds;                    // ascending: the levels
  uint64_t seed = 1;                                 // of noise and offsets
};

/// What became of one sample played.
struct PlayOutcome {
  std::size_t condition = 0;
  std::size_t setting = 0;
  uint32_t position = 0;
  /// From the sample's start to its finding, by level; negative: not found.
  std::vector<float> latency_s;
};

/// Findings of one kind, of one sample at one level.
struct FindingCount {
  enum class Kind : uint8_t {
    wrong,       // while another sample was played
    stray,       // in a call with samples, but while none was played
    background,  // in a call without
  };

  Kind kind = Kind::wrong;
  std::size_t condition = 0;  // 0 for background, whose conditions are counted together
  std::size_t setting = 0;
  uint32_t position = 0;
  uint32_t level = 0;
  uint32_t count = 0;
};

struct CallOutcome {
  std::vector<PlayOutcome> plays;
  std::vector<FindingCount> findings;
  double background_s = 0;  // in all background conditions
};

class Evaluation {
 public:
  /// `databases` by setting, every threshold the lowest level's. All outlive the evaluation.
  Evaluation(const EvaluationPlan& plan, const SampleSet& set,
             const std::vector<rc_ptr<audio::HashDatabase>>& databases)
      : m_plan(plan), m_set(set), m_databases(databases) {}

  /// The call `number` of all, which its random numbers depend on. Any thread. Throws what reading the
  /// call throws, and std::runtime_error when a sample is said to start behind the recording's end.
  CallOutcome evaluate(const EvaluatedCall& call, std::size_t number) const;

 private:
  class SideJudge;

  void evaluate_side(const EvaluatedSide& side, const std::vector<int16_t>& audio, uint64_t seed,
                     CallOutcome& out) const;

  const EvaluationPlan& m_plan;
  const SampleSet& m_set;
  const std::vector<rc_ptr<audio::HashDatabase>>& m_databases;
};

}  // namespace cv::tools
