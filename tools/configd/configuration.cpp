#include "tools/configd/configuration.h"

#include <algorithm>
#include <fnmatch.h>
#include <tuple>
#include <utility>

namespace cv::tools {

namespace {

bool is_pattern(const std::string& text) { return text.find_first_of("*?[") != text.npos; }

SampleEntry make_entry(const Rule& rule, const SampleUse& use, const std::string& file,
                       uint32_t id) {
  std::string name = use.name.empty() ? default_sample_name(file) : use.name;
  return {rule.id, id, std::move(name), use.threshold, use.event_object, file};
}

/// The uses of one rule, by recording.
using Uses = std::map<std::string, const SampleUse*>;

void complain(Configuration& out, const Rule& rule, const SampleUse& use, const std::string& text) {
  out.complaints.push_back({Complaint::Kind::missing, rule.id, use.file, text});
}

Uses find_uses(const Rule& rule, const std::map<std::string, uint32_t>& ids, Configuration& out) {
  Uses uses;
  for (const SampleUse& use : rule.samples) {
    if (ids.count(use.file)) {
      uses[use.file] = &use;
    } else if (!is_pattern(use.file)) {
      complain(out, rule, use, "there is no usable recording \"" + use.file + "\"");
    }
  }
  for (const SampleUse& use : rule.samples) {
    if (!is_pattern(use.file) || ids.count(use.file)) continue;
    bool matched = false;
    for (const auto& [file, id] : ids) {
      if (fnmatch(use.file.c_str(), file.c_str(), 0) != 0) continue;
      matched = true;
      uses.try_emplace(file, &use);
    }
    if (!matched) complain(out, rule, use, "no recording matches \"" + use.file + "\"");
  }
  return uses;
}

/// Recordings of equal content share an id, and a node keeps the first entry of an id in a rule.
void drop_repeated(Configuration& out) {
  std::vector<SampleEntry> kept;
  for (SampleEntry& entry : out.samples) {
    if (!kept.empty() && kept.back().rule_id == entry.rule_id &&
        kept.back().sample_id == entry.sample_id) {
      out.complaints.push_back({Complaint::Kind::same_audio, entry.rule_id, entry.sample_name,
                                "\"" + entry.sample_name + "\" holds the same audio as \"" +
                                    kept.back().sample_name +
                                    "\" and is reported under that name"});
      continue;
    }
    kept.push_back(std::move(entry));
  }
  out.samples.swap(kept);
}

}  // namespace

Configuration resolve(const Rules& rules, const std::map<std::string, uint32_t>& ids) {
  Configuration out;
  for (const Rule& rule : rules.rules) {
    for (const auto& [file, use] : find_uses(rule, ids, out)) {
      out.samples.push_back(make_entry(rule, *use, file, ids.at(file)));
    }
    if (rule.dead_air) out.dead_airs.push_back({rule.id, *rule.dead_air});
  }
  // Stable: among recordings that share an id the first by name stays.
  std::stable_sort(out.samples.begin(), out.samples.end(), [](const auto& a, const auto& b) {
    return std::tie(a.rule_id, a.sample_id) < std::tie(b.rule_id, b.sample_id);
  });
  drop_repeated(out);
  std::sort(out.dead_airs.begin(), out.dead_airs.end(),
            [](const auto& a, const auto& b) { return a.rule_id < b.rule_id; });
  return out;
}

std::set<std::string> served_recordings(
    const Rules& rules, const std::map<std::string, std::vector<unsigned char>>& packets) {
  std::map<std::string, uint32_t> files;
  for (const auto& [file, packet] : packets) files[file] = 0;
  Configuration unused;
  std::set<std::string> served;
  for (const Rule& rule : rules.rules) {
    for (const auto& [file, use] : find_uses(rule, files, unused)) served.insert(file);
  }
  return served;
}

std::string default_sample_name(const std::string& file) {
  const auto slash = file.rfind('/');
  const auto dot = file.rfind('.');
  const bool has_extension = dot != file.npos && dot > (slash == file.npos ? 0 : slash + 1);
  std::string name = has_extension ? file.substr(0, dot) : file;
  for (char& c : name) {
    if (!is_plain_name({&c, 1})) c = '_';
  }
  return name;
}

}  // namespace cv::tools
