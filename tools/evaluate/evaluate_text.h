// The result of an evaluation as texts: tables for people, CSV for programs.
#pragma once

#include <string>

#include "tools/evaluate/evaluation_result.h"
#include "tools/evaluate/threshold_choice.h"

namespace cv::tools {

/// What the texts are made from. Borrows all.
struct EvaluationView {
  const EvaluationPlan& plan;
  const SampleSet& set;
  const EvaluationResult& result;
  double false_per_hour = 1;
};

/// The level that the table is about: the lowest with so few false findings; without one, the highest.
std::size_t table_level(const EvaluationView& view, std::size_t setting);

/// "phases 4, spacing 2, max-repeat 0, drop-common 0, drift 1".
std::string setting_text(const EvaluatedSetting& setting);

/// For each setting the lowest threshold with at most so many false findings an hour, how sure that is,
/// and what is found at it under every condition; then the samples found least.
std::string evaluation_table(const EvaluationView& view);

/// What the only setting does with a threshold for every sample, and how sure that is.
std::string recommendation_text(const EvaluationView& view, const ThresholdChoice& choice,
                                double false_per_hour);

/// A line for every setting, condition and threshold, with a heading.
std::string evaluation_csv(const EvaluationView& view);

/// A line for every setting, condition and sample, at the threshold that the table is about.
std::string sample_csv(const EvaluationView& view);

}  // namespace cv::tools
