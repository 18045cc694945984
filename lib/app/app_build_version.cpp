#include "app/app_build_version.h"

#include "app/app_build_version_values.h"

namespace cv::app {

const char* build_identifier() { return CORVANTH_BUILD_IDENTIFIER; }

const char* build_time() { return CORVANTH_BUILD_TIME; }

}  // namespace cv::app
