#include "tools/evaluate/false_rate.h"

#include <cmath>
#include <limits>

namespace cv::tools {

namespace {

constexpr double doubt = 0.05;

/// The probability of at most `findings` when `mean` are expected.
double probability_of_at_most(uint64_t findings, double mean) {
  double sum = 0;
  for (uint64_t i = 0; i <= findings; ++i) {
    const auto count = static_cast<double>(i);
    sum += std::exp(count * std::log(mean) - mean - std::lgamma(count + 1));
  }
  return sum;
}

}  // namespace

double highest_likely_rate(uint64_t findings, double hours) {
  if (hours <= 0) return std::numeric_limits<double>::infinity();
  const auto count = static_cast<double>(findings);
  double low = count;
  double high = count + 4 + 4 * std::sqrt(count + 1);
  for (int i = 0; i < 60; ++i) {
    const double middle = (low + high) / 2;
    (probability_of_at_most(findings, middle) > doubt ? low : high) = middle;
  }
  return high / hours;
}

double hours_to_show(double per_hour) { return -std::log(doubt) / per_hour; }

}  // namespace cv::tools
