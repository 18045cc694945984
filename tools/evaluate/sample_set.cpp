#include "tools/evaluate/sample_set.h"

#include <utility>

#include "audio/audio_fingerprint.h"
#include "audio/audio_sample_packet.h"
#include "tools/audio_file.h"
#include "tools/configd/configuration.h"
#include "tools/configd/file_watcher.h"
#include "tools/configd/sample_thinning.h"

namespace cv::tools {

namespace {

Rules every_recording() {
  Rule rule;
  rule.id = 1;
  SampleUse all;
  all.file = "*";
  all.threshold = default_threshold;
  all.event_object = "{}";
  rule.samples.push_back(all);
  return {{rule}};
}

/// The rule to evaluate, if it is known which.
const Rule* pick_rule(const Rules& rules, const std::optional<uint64_t>& id, std::string& error) {
  if (!id && rules.rules.size() == 1) return &rules.rules.front();
  std::string known;
  for (const Rule& rule : rules.rules) {
    if (id == rule.id) return &rule;
    known += (known.empty() ? "" : ", ") + std::to_string(rule.id);
  }
  error = id ? "there is no rule " + std::to_string(*id) : "which rule is to be evaluated?";
  error += " (there are: " + known + ")";
  return nullptr;
}

/// Equal audio gets one id: that of the first file by name.
std::map<std::string, uint32_t> number_by_content(
    const std::map<std::string, std::vector<int16_t>>& audio) {
  std::map<std::vector<int16_t>, uint32_t> numbers;
  std::map<std::string, uint32_t> ids;
  for (const auto& [file, samples] : audio) {
    ids[file] = numbers.try_emplace(samples, static_cast<uint32_t>(numbers.size())).first->second;
  }
  return ids;
}

}  // namespace

std::optional<SampleSet> SampleSet::read(
    const SampleSetSource& source,
    const std::function<void(std::size_t done, std::size_t total)>& progress,
    std::vector<std::string>& complaints, std::string& error) {
  SampleSet set;
  set.m_rules = every_recording();
  if (!source.rules_path.empty()) {
    auto rules = read_rules(source.rules_path, error);
    if (!rules) return std::nullopt;
    set.m_rules = std::move(*rules);
  }
  const Rule* const rule = pick_rule(set.m_rules, source.rule, error);
  if (rule == nullptr) return std::nullopt;
  set.m_rule = rule->id;

  const auto found = FileWatcher(source.sample_directory, source.rules_path).look();
  error = found.error;
  if (!error.empty()) return std::nullopt;
  std::size_t done = 0;
  for (const std::string& file : found.changed) {
    std::string reason;
    auto audio = read_audio(source.sample_directory + "/" + file, reason);
    if (!audio) {
      complaints.push_back(reason.insert(0, file + ": "));
    } else if (audio::fingerprint(*audio).empty()) {
      complaints.push_back(file + ": nothing to recognise in it (silence, or shorter than 32 ms)");
    } else {
      set.m_audio[file] = std::move(*audio);
    }
    progress(++done, found.changed.size());
  }

  const auto ids = number_by_content(set.m_audio);
  const Configuration configuration = resolve({{*rule}}, ids);
  for (const Complaint& complaint : configuration.complaints) {
    complaints.push_back(complaint.line());
  }
  for (const SampleEntry& entry : configuration.samples) {
    set.m_samples.push_back({entry.sample_name, entry.file, entry.threshold});
  }
  if (set.m_samples.empty()) {
    error =
        "rule " + std::to_string(set.m_rule) + " finds no recording in " + source.sample_directory;
    return std::nullopt;
  }
  return set;
}

std::optional<uint32_t> SampleSet::find(const std::string& name) const {
  for (std::size_t i = 0; i < m_samples.size(); ++i) {
    if (m_samples[i].name == name) return static_cast<uint32_t>(i);
  }
  return std::nullopt;
}

rc_ptr<audio::HashDatabase> SampleSet::make_database(const SampleSettings& settings,
                                                     double threshold) const {
  Packets packets;
  for (const auto& [file, samples] : m_audio) {
    packets[file] = audio::write_sample_packet(fingerprint_points(samples, settings.fingerprint));
  }
  std::string no_error;
  auto fresh = StateFile::open("", 1, no_error);
  packets = thin_samples(packets, m_rules, settings.drop_common, *fresh).packets;
  std::vector<audio::HashSample> samples;
  for (std::size_t position = 0; position < m_samples.size(); ++position) {
    const auto& bytes = packets.at(m_samples[position].file);
    audio::SamplePacket packet;
    audio::SamplePacket::parse(bytes.data(), bytes.size(), packet);
    audio::HashSample& sample = samples.emplace_back();
    sample.metadata = new audio::SampleMetadata;
    sample.metadata->id = static_cast<uint32_t>(position);
    sample.metadata->threshold = threshold;
    sample.metadata->name = m_samples[position].name;
    sample.payload = new audio::HashSamplePayload;
    sample.payload->points = packet.points();
  }
  return rc_ptr<audio::HashDatabase>(new audio::HashDatabase(samples));
}

}  // namespace cv::tools
