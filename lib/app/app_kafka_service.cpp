#include "app/app_kafka_service.h"

#include <cstdlib>
#include <iomanip>
#include <librdkafka/rdkafkacpp.h>

#include "app/app_build_version.h"
#include "conf/conf_configuration.h"

namespace cv::app {

static const char* const expected_kafka_version = "1.5.2";

std::string kafka_config_path() {
  const char* path = std::getenv("CORVANTH_KAFKA_CONF");
  return path != nullptr && *path != '\0' ? path : conf::default_kafka_config_path;
}

void log_kafka_versions() {
  const std::string version = RdKafka::version_str();
  CV_LOG(SystemMessage) << "SERVICE: kafka build version:   " << build_identifier();
  CV_LOG(SystemMessage) << "SERVICE: kafka running version: " << version << " (0x" << std::hex
                        << std::setfill('0') << std::setw(8) << RdKafka::version() << ")";
  if (version != expected_kafka_version) {
    CV_LOG(WarningMessage) << "SERVICE: kafka running version differs to expected "
                           << expected_kafka_version;
  }
}

}  // namespace cv::app
