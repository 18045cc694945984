// How much a number of false findings says about their rate.
#pragma once

#include <cstdint>

namespace cv::tools {

/// The rate an hour below which the true one lies with 95 % confidence, when `findings` were counted in
/// `hours` and come independently of one another (the exact Poisson bound; F. Garwood, Biometrika 28
/// (1936) 437-442). For none it is 3 / hours: the rule of three. Infinite when `hours` is 0.
double highest_likely_rate(uint64_t findings, double hours);

/// Hours without a single finding that are needed to show a rate of `per_hour` with that confidence.
double hours_to_show(double per_hour);

}  // namespace cv::tools
