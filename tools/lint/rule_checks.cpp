#include "tools/lint/rule_checks.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "tools/json_text.h"
#include "tools/listen/report_text.h"
#include "tools/text_table.h"

namespace cv::tools {

namespace {

// By drift, with four phases and a spacing of 2: what was measured over two hours of speech.
constexpr double few_samples = 20;
constexpr double many_samples = 550;
constexpr std::array<double, 4> least_for_few = {3.0, 3.9, 4.95, 5.8};
constexpr std::array<double, 4> least_for_many = {3.1, 4.4, 5.8, 6.55};
// Points in consecutive frames vote for neighbouring shifts, which a drift counts together.
constexpr double more_without_spacing = 0.5;

std::string stem(const std::string& file) {
  const auto dot = file.rfind('.');
  return file.substr(0, dot);
}

/// How a rule's samples are called in reports.
std::map<std::string, std::vector<std::string>> files_by_report_name(const LintSite& site,
                                                                     uint64_t rule) {
  std::map<std::string, std::vector<std::string>> files;
  for (const SampleEntry& entry : site.configuration.samples) {
    if (entry.rule_id == rule) files[entry.sample_name].push_back(entry.file);
  }
  for (auto& [name, list] : files) std::sort(list.begin(), list.end());
  return files;
}

/// The least thresholds, from wherever they come.
class Least {
 public:
  Least(const LintSite& site, const LintOptions& options,
        const std::optional<RecommendedThresholds>& recommended)
      : m_options(options), m_recommended(recommended) {
    for (const SampleEntry& entry : site.configuration.samples) ++m_samples[entry.rule_id];
    if (!recommended || !recommended->rules) return;
    for (const SampleEntry& entry : resolve(*recommended->rules, site.ids).samples) {
      m_of_rules[{entry.rule_id, entry.sample_id}] = entry.threshold;
    }
  }

  /// Empty when nothing is recommended for it.
  std::optional<double> of(const SampleEntry& entry) const {
    if (!m_recommended) {
      return least_threshold(m_options.drift_frames, m_samples.at(entry.rule_id),
                             m_options.settings.fingerprint.spacing_frames);
    }
    if (m_recommended->rules) return find(m_of_rules, std::pair(entry.rule_id, entry.sample_id));
    const auto named = find(m_recommended->by_recording, entry.file);
    return named ? named : find(m_recommended->by_recording, std::string("*"));
  }

  std::string why(uint64_t rule) const {
    if (m_recommended) return "as recommended";
    return "for " + std::to_string(m_samples.at(rule)) + " samples and a drift of " +
           std::to_string(m_options.drift_frames);
  }

 private:
  template <typename Key>
  static std::optional<double> find(const std::map<Key, double>& in, const Key& key) {
    const auto found = in.find(key);
    return found == in.end() ? std::nullopt : std::optional(found->second);
  }

  const LintOptions& m_options;
  const std::optional<RecommendedThresholds>& m_recommended;
  std::map<uint64_t, std::size_t> m_samples;  // by rule
  std::map<std::pair<uint64_t, uint32_t>, double> m_of_rules;
};

void check_names(const LintSite& site, uint64_t rule, std::vector<LintFinding>& findings) {
  for (const auto& [name, files] : files_by_report_name(site, rule)) {
    if (files.size() < 2) continue;
    findings.push_back({.kind = lint_kind::name,
                        .recording = files[0],
                        .rule = rule,
                        .other = files[1],
                        .text = "both are reported as \"" + name + "\""});
  }
}

}  // namespace

std::optional<RecommendedThresholds> parse_recommended(std::string_view text, std::string& error) {
  rapidjson::Document document;
  if (!parse_json(text, JsonDialect::written_by_hand, document, error)) return std::nullopt;
  RecommendedThresholds recommended;
  const rapidjson::Value* thresholds = find_member(document, "thresholds");
  if (!thresholds) {
    recommended.rules = parse_rules(text, error);
    if (!recommended.rules) return std::nullopt;
    return recommended;
  }
  if (!thresholds->IsObject()) {
    error = "thresholds: must be an object of recordings and numbers";
    return std::nullopt;
  }
  for (const auto& member : thresholds->GetObject()) {
    const std::string name(text_of(member.name));
    if (!member.value.IsNumber()) {
      error = "thresholds." + name + ": must be a number";
      return std::nullopt;
    }
    recommended.by_recording[name] = member.value.GetDouble();
  }
  return recommended;
}

double least_threshold(unsigned drift_frames, std::size_t samples, unsigned spacing_frames) {
  // False findings grow with the samples, and fall by a factor with each step of the score.
  const double place =
      std::log2(std::max(static_cast<double>(samples), few_samples) / few_samples) /
      std::log2(many_samples / few_samples);
  const double least =
      std::lerp(least_for_few.at(drift_frames), least_for_many.at(drift_frames), place);
  return drift_frames > 0 && spacing_frames < 2 ? least + more_without_spacing : least;
}

std::vector<LintFinding> check_rules(const LintSite& site) {
  std::vector<LintFinding> findings;
  for (const auto& [file, recording] : site.recordings) {
    if (default_sample_name(file) == stem(file)) continue;
    findings.push_back({.kind = lint_kind::name,
                        .recording = file,
                        .text = "quotes, backslashes or control characters, which reports do not "
                                "escape: called \"" +
                                default_sample_name(file) + "\" unless a rule names it otherwise"});
  }
  for (const Complaint& complaint : site.configuration.complaints) {
    const bool missing = complaint.kind == Complaint::Kind::missing;
    findings.push_back({.kind = missing ? lint_kind::missing : lint_kind::duplicate,
                        .recording = complaint.file,
                        .rule = complaint.rule,
                        .text = complaint.text});
  }
  for (const Rule& rule : site.rules.rules) check_names(site, rule.id, findings);
  return findings;
}

std::vector<LintFinding> check_thresholds(const LintSite& site, const LintOptions& options,
                                          const std::optional<RecommendedThresholds>& recommended) {
  const Least least(site, options, recommended);
  std::vector<LintFinding> findings;
  for (const SampleEntry& entry : site.configuration.samples) {
    const auto wanted = least.of(entry);
    if (!wanted || entry.threshold >= *wanted) continue;
    findings.push_back({.kind = lint_kind::threshold,
                        .recording = entry.file,
                        .rule = entry.rule_id,
                        .score = *wanted,
                        .text = "threshold " + fixed(entry.threshold, 2) + ", below " +
                                fixed(*wanted, 2) + " " + least.why(entry.rule_id)});
  }
  return findings;
}

}  // namespace cv::tools
