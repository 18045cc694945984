#include "tools/evaluate/evaluate_text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <utility>
#include <vector>

#include "tools/evaluate/false_rate.h"

namespace cv::tools {

namespace {

constexpr std::size_t most_names_listed = 8;

__attribute__((format(printf, 1, 2))) std::string format(const char* pattern, ...) {
  char text[512];
  va_list values;
  va_start(values, pattern);
  std::vsnprintf(text, sizeof text, pattern, values);
  va_end(values);
  return text;
}

std::string rate_text(const EvaluationView& view, std::size_t setting, std::size_t level) {
  const double hours = view.result.background_hours();
  if (hours == 0) return "no background, so nothing is known of false findings";
  const uint64_t found = view.result.false_findings(setting, level);
  return format("%llu false finding(s) in %.2f h, %.2f an hour (below %.2f at 95 %%)",
                static_cast<unsigned long long>(found), hours, static_cast<double>(found) / hours,
                highest_likely_rate(found, hours));
}

std::string heading(const EvaluationView& view, std::size_t setting, std::size_t level) {
  std::string text = setting_text(view.plan.settings[setting]) + "\n" +
                     format("threshold %g: ", view.plan.thresholds[level]) +
                     rate_text(view, setting, level) + "\n";
  if (view.result.background_hours() > 0 &&
      !view.result.lowest_level(setting, view.false_per_hour)) {
    text += format("  even this, the highest threshold, has more than %g an hour\n",
                   view.false_per_hour);
  }
  return text;
}

constexpr char condition_heading[] =
    "  condition             played   found      %  wrong  stray  median s   p95 s\n";

std::string condition_row(const LineCondition& condition, const PlayRates& rates) {
  std::string name = condition.text();
  name.resize(std::max<std::size_t>(name.size(), 20), ' ');
  return "  " + name +
         format(" %7zu %7zu %6.1f %6zu %6zu %9.2f %7.2f\n", rates.played, rates.found,
                100 * rates.found_share(), rates.wrong, rates.stray, rates.median_s, rates.p95_s);
}

std::string condition_rows(const EvaluationView& view, std::size_t setting, std::size_t level) {
  std::string text = condition_heading;
  for (std::size_t i = 0; i < view.plan.conditions.size(); ++i) {
    text += condition_row(view.plan.conditions[i], view.result.rates(setting, i, level));
  }
  return text;
}

/// The first of some names, with their numbers.
class NameList {
 public:
  explicit NameList(const char* label) : m_text(label) {}

  void add(const std::string& name, const std::string& number) {
    if (m_names++ < most_names_listed) {
      m_text += (m_names == 1 ? " " : ", ") + name + " " + number;
    }
  }
  std::string text() const {
    if (m_names == 0) return {};
    if (m_names <= most_names_listed) return m_text + "\n";
    return m_text + format(", and %zu more\n", m_names - most_names_listed);
  }

 private:
  std::string m_text;
  std::size_t m_names = 0;
};

/// The samples missed most often, in all conditions together.
std::string least_found(const EvaluationView& view, std::size_t setting, std::size_t level) {
  std::vector<std::pair<PlayRates, uint32_t>> samples;
  for (uint32_t position = 0; position < view.set.samples().size(); ++position) {
    PlayRates sum;
    for (std::size_t i = 0; i < view.plan.conditions.size(); ++i) {
      const PlayRates rates = view.result.rates(setting, i, level, position);
      sum.played += rates.played;
      sum.found += rates.found;
    }
    if (sum.found < sum.played) samples.emplace_back(sum, position);
  }
  std::stable_sort(samples.begin(), samples.end(), [](const auto& a, const auto& b) {
    return a.first.found_share() < b.first.found_share();
  });
  NameList list("  found least:");
  for (const auto& [rates, position] : samples) {
    list.add(view.set.samples()[position].name, format("%zu of %zu", rates.found, rates.played));
  }
  return list.text();
}

/// The samples found most often in the background.
std::string most_false(const EvaluationView& view, std::size_t setting, std::size_t level) {
  std::vector<std::pair<uint64_t, uint32_t>> samples;
  for (uint32_t position = 0; position < view.set.samples().size(); ++position) {
    const uint64_t found = view.result.false_findings(setting, level, position);
    if (found > 0) samples.emplace_back(found, position);
  }
  std::stable_sort(samples.begin(), samples.end(),
                   [](const auto& a, const auto& b) { return a.first > b.first; });
  NameList list("  found falsely:");
  for (const auto& [found, position] : samples) {
    list.add(view.set.samples()[position].name, std::to_string(found));
  }
  return list.text();
}

std::string setting_columns(const EvaluatedSetting& setting) {
  return format("%u,%u,%u,%u,%u", setting.samples.fingerprint.phases,
                setting.samples.fingerprint.spacing_frames, setting.samples.fingerprint.max_repeat,
                setting.samples.drop_common, setting.drift_frames);
}

constexpr char setting_heading[] = "phases,spacing,max_repeat,drop_common,drift";
constexpr char rates_heading[] =
    "played,found,found_share,wrong,stray,median_s,p95_s,false_findings";

std::string rate_columns(const PlayRates& rates, uint64_t false_findings) {
  return format("%zu,%zu,%.6g,%zu,%zu,%.4g,%.4g,%llu", rates.played, rates.found,
                rates.found_share(), rates.wrong, rates.stray, rates.median_s, rates.p95_s,
                static_cast<unsigned long long>(false_findings));
}

/// RFC 4180.
std::string csv_text(const std::string& text) {
  if (text.find_first_of(",\"\n") == text.npos) return text;
  std::string quoted = "\"";
  for (const char c : text) quoted += c == '"' ? "\"\"" : std::string(1, c);
  return quoted + "\"";
}

}  // namespace

std::size_t table_level(const EvaluationView& view, std::size_t setting) {
  return view.result.lowest_level(setting, view.false_per_hour).value_or(view.result.levels() - 1);
}

std::string setting_text(const EvaluatedSetting& setting) {
  const FingerprintSettings& fingerprint = setting.samples.fingerprint;
  return format("phases %u, spacing %u, max-repeat %u, drop-common %u, drift %u",
                fingerprint.phases, fingerprint.spacing_frames, fingerprint.max_repeat,
                setting.samples.drop_common, setting.drift_frames);
}

std::string evaluation_table(const EvaluationView& view) {
  std::string text;
  for (std::size_t setting = 0; setting < view.plan.settings.size(); ++setting) {
    const std::size_t level = table_level(view, setting);
    if (setting != 0) text += "\n";
    text += heading(view, setting, level) + condition_rows(view, setting, level) +
            least_found(view, setting, level) + most_false(view, setting, level);
  }
  return text;
}

std::string recommendation_text(const EvaluationView& view, const ThresholdChoice& choice,
                                double false_per_hour) {
  const auto [least, most] = std::minmax_element(choice.levels.begin(), choice.levels.end());
  const double hours = view.result.background_hours();
  const double bound = highest_likely_rate(choice.false_findings, hours);
  std::string text = format("thresholds for at most %g false finding(s) an hour: %g",
                            false_per_hour, view.plan.thresholds[*least]);
  if (choice.raised > 0) {
    text += format(", up to %g for %zu of %zu samples", view.plan.thresholds[*most], choice.raised,
                   choice.levels.size());
  }
  text += format("\n  %llu false finding(s) in %.2f h of background: below %.2f an hour at 95 %%\n",
                 static_cast<unsigned long long>(choice.false_findings), hours, bound) +
          format("  chosen on each half of the background, counted on the other: %llu\n",
                 static_cast<unsigned long long>(choice.tried_findings));
  if (bound > false_per_hour) {
    text += "  the background is too short to be sure of that: ";
    text += false_per_hour == 0
                ? "no length of it shows that there are none at all\n"
                : format("it takes %.2g h without a single one\n", hours_to_show(false_per_hour));
  }
  text += condition_heading;
  for (std::size_t i = 0; i < view.plan.conditions.size(); ++i) {
    text += condition_row(view.plan.conditions[i], view.result.rates(0, i, choice.levels));
  }
  return text;
}

std::string evaluation_csv(const EvaluationView& view) {
  std::string text = std::string(setting_heading) + ",condition,threshold," + rates_heading +
                     ",background_hours\n";
  for (std::size_t setting = 0; setting < view.plan.settings.size(); ++setting) {
    for (std::size_t i = 0; i < view.plan.conditions.size(); ++i) {
      for (std::size_t level = 0; level < view.result.levels(); ++level) {
        text += setting_columns(view.plan.settings[setting]) + "," +
                view.plan.conditions[i].text() + format(",%g,", view.plan.thresholds[level]) +
                rate_columns(view.result.rates(setting, i, level),
                             view.result.false_findings(setting, level)) +
                format(",%.6g\n", view.result.background_hours());
      }
    }
  }
  return text;
}

std::string sample_csv(const EvaluationView& view) {
  std::string text =
      std::string(setting_heading) + ",threshold,condition,sample," + rates_heading + "\n";
  for (std::size_t setting = 0; setting < view.plan.settings.size(); ++setting) {
    const std::size_t level = table_level(view, setting);
    for (std::size_t i = 0; i < view.plan.conditions.size(); ++i) {
      for (uint32_t position = 0; position < view.set.samples().size(); ++position) {
        text += setting_columns(view.plan.settings[setting]) +
                format(",%g,", view.plan.thresholds[level]) + view.plan.conditions[i].text() + "," +
                csv_text(view.set.samples()[position].name) + "," +
                rate_columns(view.result.rates(setting, i, level, position),
                             view.result.false_findings(setting, level, position)) +
                "\n";
      }
    }
  }
  return text;
}

}  // namespace cv::tools
