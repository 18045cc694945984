// corvanth lint: what is wrong with a site's recordings and rules. docs/lint.md describes it.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "tools/lint/lint_finding.h"
#include "tools/lint/lint_site.h"

namespace cv::tools {

struct LintResult {
  std::size_t recordings = 0;
  std::size_t rules = 0;
  std::vector<LintFinding> findings;  // by recording, then kind
};

/// Empty, with the reason in `error`, when there is nothing to look at.
std::optional<LintResult> lint(const LintOptions& options, std::string& error);

std::string lint_text(const LintResult& result);
std::string lint_json(const LintResult& result);

/// An exit status: done only when nothing was found.
int run_lint(const LintOptions& options, std::ostream& out, std::ostream& err);

}  // namespace cv::tools
