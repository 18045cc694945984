// The names of the control protocol: what a node asks its configuration manager for, and the events it
// gets. Each is the "type" member of a JSON event. (Bodies: messaging_event_dispatcher.h.)
#pragma once

namespace cv::messaging {

/// The first byte of a plain body.
enum class BodyKind : unsigned char { json = 0, binary = 1 };

/// From the configuration manager. The names of configurations are also what a node asks for, and what
/// `versions` has a member for.
namespace event {
inline constexpr const char* manager_started = "config_manager_started";
inline constexpr const char* versions = "config_versions";
inline constexpr const char* sample_configuration = "corvanth_sample_configuration";
inline constexpr const char* dead_air_configuration = "corvanth_deadair_configuration";
inline constexpr const char* sample_list = "corvanth_sample_list";
}  // namespace event

/// From a node.
namespace request {
inline constexpr const char* get_versions = "get_versions";
inline constexpr const char* configuration = "configuration_request";
}  // namespace request

}  // namespace cv::messaging
