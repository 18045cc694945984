// The Kafka settings of a service, in a file of their own because several services share it.
#pragma once

#include "conf/conf_extensions.h"

namespace cv::conf {

class KafkaConfiguration : public KafkaExtenstion<KafkaPropertiesExtension<Configuration>> {};

}  // namespace cv::conf
