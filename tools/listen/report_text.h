// Reports for the eye: a datagram checked, as one line of JSON or as rows of a table.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cv::tools {

enum class ReportForm { json_lines, table };

/// The heading of the table.
std::string report_table_heading();

/// The lines to print for one datagram, without line ends: the JSON as it came, or a row a finding
/// (a report at the end of a call holds several). `time` is when it arrived.
/// Empty, with the reason in `error`, when the datagram is no JSON object.
std::optional<std::vector<std::string>> describe_report(std::string_view datagram, ReportForm form,
                                                        std::string_view time, std::string& error);

/// What a terminal may be sent of text that came over the network: control characters become '?'.
std::string printable(std::string_view text);

}  // namespace cv::tools
