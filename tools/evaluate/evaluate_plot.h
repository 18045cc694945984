// The result of an evaluation as one self-contained page: no network, no other file.
#pragma once

#include <string>

#include "tools/evaluate/evaluate_text.h"

namespace cv::tools {

/// Found against false findings an hour, a curve for every setting; HTML.
std::string evaluation_page(const EvaluationView& view);

}  // namespace cv::tools
