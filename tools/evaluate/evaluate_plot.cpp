#include "tools/evaluate/evaluate_plot.h"

#include <cmath>

#include "tools/evaluate/evaluate_plot_css.h"
#include "tools/evaluate/evaluate_plot_html.h"
#include "tools/evaluate/evaluate_plot_js.h"
#include "tools/evaluate/false_rate.h"
#include "tools/page/page.h"
#include "utils/utils_json.h"

namespace cv::tools {

namespace {

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

/// Enough for a pixel and a reader.
double rounded(double value) { return std::round(value * 1e4) / 1e4; }

template <typename Value>
void write_by_condition(Writer& writer, const char* name, const std::vector<PlayRates>& rates,
                        const Value& value) {
  writer.Key(name);
  writer.StartArray();
  for (const PlayRates& each : rates) writer.Double(rounded(static_cast<double>(value(each))));
  writer.EndArray();
}

void write_level(Writer& writer, const EvaluationView& view, std::size_t setting,
                 std::size_t level) {
  const double hours = view.result.background_hours();
  const uint64_t findings = view.result.false_findings(setting, level);
  std::vector<PlayRates> rates;
  for (std::size_t i = 0; i < view.plan.conditions.size(); ++i) {
    rates.push_back(view.result.rates(setting, i, level));
  }
  writer.StartObject();
  writer.Key("threshold");
  writer.Double(view.plan.thresholds[level]);
  writer.Key("false_findings");
  writer.Uint64(findings);
  writer.Key("false_per_hour");
  writer.Double(hours > 0 ? rounded(static_cast<double>(findings) / hours) : 0);
  writer.Key("bound");
  writer.Double(hours > 0 ? rounded(highest_likely_rate(findings, hours)) : 0);
  write_by_condition(writer, "found", rates, [](const PlayRates& r) { return r.found_share(); });
  write_by_condition(writer, "wrong", rates, [](const PlayRates& r) { return r.wrong; });
  write_by_condition(writer, "median_s", rates, [](const PlayRates& r) { return r.median_s; });
  write_by_condition(writer, "p95_s", rates, [](const PlayRates& r) { return r.p95_s; });
  writer.EndObject();
}

std::string about(const EvaluationView& view) {
  const PlayRates rates = view.result.rates(0, 0, 0);
  std::string text = std::to_string(view.set.samples().size()) + " samples, " +
                     std::to_string(rates.played) + " of them played over each line";
  char hours[64];
  std::snprintf(hours, sizeof hours, "; %.2f hours of background with none.",
                view.result.background_hours());
  return text + hours;
}

std::string data_json(const EvaluationView& view) {
  rapidjson::StringBuffer buffer;
  Writer writer(buffer);
  writer.StartObject();
  writer.Key("about");
  writer.String(about(view).c_str());
  writer.Key("false_per_hour");
  writer.Double(view.false_per_hour);
  writer.Key("background_hours");
  writer.Double(rounded(view.result.background_hours()));
  writer.Key("conditions");
  writer.StartArray();
  for (const LineCondition& condition : view.plan.conditions) {
    writer.String(condition.text().c_str());
  }
  writer.EndArray();
  writer.Key("settings");
  writer.StartArray();
  for (std::size_t setting = 0; setting < view.plan.settings.size(); ++setting) {
    writer.StartObject();
    writer.Key("name");
    writer.String(setting_text(view.plan.settings[setting]).c_str());
    writer.Key("chosen");
    writer.Uint64(table_level(view, setting));
    writer.Key("levels");
    writer.StartArray();
    for (std::size_t level = 0; level < view.result.levels(); ++level) {
      write_level(writer, view, setting, level);
    }
    writer.EndArray();
    writer.EndObject();
  }
  writer.EndArray();
  writer.EndObject();
  return {buffer.GetString(), buffer.GetSize()};
}

}  // namespace

std::string evaluation_page(const EvaluationView& view) {
  return html_page("corvanth evaluate: found against false findings", evaluate_plot_css,
                   evaluate_plot_html, {evaluate_plot_js}, data_json(view));
}

}  // namespace cv::tools
