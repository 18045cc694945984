// A service with a configuration of the given type, loaded from its file and then from --args.
#pragma once

#include <fstream>
#include <string>
#include <type_traits>
#include <utility>

#include "app/app.h"
#include "core/reference_countable.h"

namespace cv::app {

template <typename Configuration, typename Flag>
class Service : public ServiceBase {
 public:
  using ServiceBase::ServiceBase;

  void help() override {}

  bool do_start() override {
    rc_ptr<Configuration> config(new Configuration);
    // A missing file is no error: the node then runs with the defaults and --args.
    const bool readable = std::ifstream(m_config_file).is_open();
    if (!config->parse_file(readable ? m_config_file : std::string())) return false;
    if (!m_args.empty() && !config->parse_args(m_args)) return false;
    m_config = std::move(config);
    on_config();
    return true;
  }

  /// The configuration is loaded.
  virtual void on_config() {}

 protected:
  rc_ptr<Configuration> m_config;  // empty until loaded
};

}  // namespace cv::app
