#include "tools/load/load_rule.h"

#include <map>
#include <utility>

#include "audio/audio_sample_packet.h"
#include "tools/audio_file.h"
#include "tools/configd/configuration.h"
#include "tools/configd/file_watcher.h"
#include "tools/configd/rules_file.h"
#include "tools/configd/sample_store.h"
#include "tools/configd/sample_thinning.h"
#include "tools/configd/state_file.h"

namespace cv::tools {

namespace {

audio::HashSample make_sample(const SampleEntry& entry, const std::vector<unsigned char>& bytes) {
  audio::SamplePacket packet;
  audio::SamplePacket::parse(bytes.data(), bytes.size(), packet);
  audio::HashSample sample;
  sample.metadata = new audio::SampleMetadata;
  sample.metadata->id = entry.sample_id;
  sample.metadata->threshold = entry.threshold;
  sample.metadata->name = entry.sample_name;
  sample.payload = new audio::HashSamplePayload;
  sample.payload->points = packet.points();
  return sample;
}

audio::SegmentDetectionOptions activity_options(const Configuration& configuration, uint64_t rule) {
  audio::SegmentDetectionOptions options;
  for (const DeadAirEntry& entry : configuration.dead_airs) {
    if (entry.rule_id != rule) continue;
    options.dev_threshold = entry.options.dev_threshold.value_or(options.dev_threshold);
    options.pow_threshold = entry.options.pow_threshold.value_or(options.pow_threshold);
    options.activity_hits = entry.options.activity_hits.value_or(options.activity_hits);
    options.silence_hits = entry.options.silence_hits.value_or(options.silence_hits);
  }
  return options;
}

}  // namespace

std::optional<LoadRule> read_load_rule(
    const LoadRuleSource& source,
    const std::function<void(std::size_t done, std::size_t total)>& progress, std::string& error) {
  const auto rules = read_rules(source.rules_path, error);
  if (!rules) return std::nullopt;
  const auto found = FileWatcher(source.sample_directory, source.rules_path).look();
  error = found.error;
  if (!found.error.empty()) return std::nullopt;
  // Never saved: it only gives every content what configd gives it.
  auto state = StateFile::open(source.state_path, 1, error);
  if (!state) return std::nullopt;

  SampleStore store(fingerprint_reader(source.sample_directory, source.settings.fingerprint));
  std::size_t done = 0;
  for (const std::string& file : found.changed) {
    store.load(file);
    progress(++done, found.changed.size());
  }
  std::map<std::string, uint32_t> ids;
  const Packets packets =
      thin_samples(store.packets(), *rules, source.settings.drop_common, *state).packets;
  for (const auto& [file, packet] : packets) {
    ids[file] = state->sample_id(file, bytes_of(packet));
  }
  const Configuration configuration = resolve(*rules, ids);
  LoadRule rule;
  rule.activity = activity_options(configuration, source.rule);
  std::vector<audio::HashSample> samples;
  for (const SampleEntry& entry : configuration.samples) {
    if (entry.rule_id != source.rule) continue;
    auto audio = read_audio(source.sample_directory + "/" + entry.file, error);
    if (!audio) return std::nullopt;
    rule.prompts.push_back({entry.sample_name, std::move(*audio)});
    samples.push_back(make_sample(entry, packets.at(entry.file)));
  }
  if (samples.empty()) {
    error =
        "rule " + std::to_string(source.rule) + " finds no recording in " + source.sample_directory;
    return std::nullopt;
  }
  rule.database = new audio::HashDatabase(samples);
  return rule;
}

}  // namespace cv::tools
