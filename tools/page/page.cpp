#include "tools/page/page.h"

#include "tools/page/page_css.h"
#include "tools/page/page_js.h"

namespace cv::tools {

namespace {

constexpr std::string_view head = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy"
  content="default-src 'none'; img-src data:; style-src 'unsafe-inline'; script-src 'unsafe-inline'">
<meta name="viewport" content="width=device-width, initial-scale=1">
<link rel="icon" href="data:,">
)";

void append_element(std::string& page, std::string_view name, std::string_view text) {
  page.append("<").append(name).append(">").append(text).append("</");
  page.append(name.substr(0, name.find(' '))).append(">\n");
}

/// A '<' stands in strings only, and there it may be written otherwise: no text ends the element.
std::string without_tags(std::string_view json) {
  std::string out;
  out.reserve(json.size());
  for (const char c : json) {
    if (c == '<') {
      out += "\\u003c";
    } else {
      out += c;
    }
  }
  return out;
}

}  // namespace

std::string html_page(std::string_view title, std::string_view style, std::string_view body,
                      std::initializer_list<std::string_view> scripts, std::string_view json) {
  std::string page(head);
  append_element(page, "title", title);
  append_element(page, "style", page_css);
  append_element(page, "style", style);
  page.append("</head>\n<body>\n").append(body);
  append_element(page, R"(script id="data" type="application/json")", without_tags(json));
  append_element(page, "script", page_js);
  for (const std::string_view script : scripts) append_element(page, "script", script);
  return page.append("</body>\n</html>\n");
}

}  // namespace cv::tools
