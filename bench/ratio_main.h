// The main function of every benchmark: runs what is registered, in interleaved repetitions, and ends
// with the ratios of medians. Two processors' worth of other load changes absolute times by a factor;
// ratios within one run survive it.
//
// A pair is named SCENARIO/plain and SCENARIO/fast. The ratio is the median of plain over that of fast:
// of the time, and of every counter whose name begins with "memory".
#pragma once

#include <string>

namespace cv::bench {

/// Has run() print a further ratio of times: the median of one benchmark over that of another.
void add_ratio(const std::string& numerator, const std::string& denominator);

/// Google Benchmark's flags hold, and come after its own: 5 repetitions, randomly interleaved.
/// Returns the exit status.
int run(int argc, char** argv);

}  // namespace cv::bench
