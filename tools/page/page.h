// A self-contained HTML page: style, scripts and data in one file, that works from disk and asks no
// network for anything (its own policy forbids it). Pure; any thread.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace cv::tools {

/// `title` and `body` are HTML of ours; `scripts` run in order behind those that all pages share. `json`
/// may hold any text: the scripts get it with page_data(), and it can be nothing but data.
std::string html_page(std::string_view title, std::string_view style, std::string_view body,
                      std::initializer_list<std::string_view> scripts, std::string_view json);

}  // namespace cv::tools
