// The properties of the Kafka clients: the program's own, and over them those that an operator sets,
// TLS, SASL, time-outs, whatever the library knows. The operator's come from a file of their own,
// because they hold secrets and all of the settings file is written to the log.
//
// Secrets: of the operator's properties only the names are ever logged. The library's own texts, which
// may quote a value, pass through here first.
// Threads: any; the values are read-only once made.
// Failure: ERROR lines.
#pragma once

#include <librdkafka/rdkafkacpp.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace cv::messaging {

struct ClientProperty {
  std::string name;
  std::string value;
};
/// In the order of the file; of a name that comes twice the last counts.
using ClientProperties = std::vector<ClientProperty>;

/// Reads lines of "name = value"; the value may hold "=", blank lines and lines that begin with "#" do
/// not count, blanks around name and value neither. Each is tried on the library. Empty after an
/// unreadable file, a line of another form or a property that the library refuses, which have been
/// logged with the file and the line. An empty path has no properties.
std::optional<ClientProperties> read_client_properties(const std::string& path);

/// Sets them, over whatever was set before. A property that concerns only producers or only consumers
/// is accepted for both: the library ignores it where it has no meaning, with a line in its log.
/// False after a refusal.
bool set_client_properties(RdKafka::Conf& conf, const ClientProperties& properties);

/// `text` with "***" in place of every secret among the values: passwords, keys, tokens.
std::string without_secrets(std::string text, const ClientProperties& properties);

/// The configuration of a producer and of a consumer; null after a refusal. The callback objects must
/// outlive the client made of it.
std::unique_ptr<RdKafka::Conf> producer_conf(const std::string& brokers,
                                             const ClientProperties& properties,
                                             RdKafka::DeliveryReportCb& delivery_reports);
std::unique_ptr<RdKafka::Conf> consumer_conf(const std::string& brokers,
                                             const std::string& group_id,
                                             const ClientProperties& properties,
                                             RdKafka::RebalanceCb& rebalances,
                                             RdKafka::EventCb& events);

}  // namespace cv::messaging
