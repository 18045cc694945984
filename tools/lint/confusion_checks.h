// Which recordings a node would take for which: every recording played against the samples of every
// rule that names it, through the node's own detector.
#pragma once

#include <vector>

#include "tools/lint/lint_finding.h"
#include "tools/lint/lint_site.h"

namespace cv::tools {

/// A recording that its own rule misses in a clean call is a finding too. All processors.
std::vector<LintFinding> check_confusions(const LintSite& site, unsigned drift_frames,
                                          const LintProgress& progress);

}  // namespace cv::tools
