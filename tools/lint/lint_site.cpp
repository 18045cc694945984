#include "tools/lint/lint_site.h"

#include <algorithm>
#include <utility>

#include "audio/audio_fingerprint.h"
#include "audio/audio_sample_packet.h"
#include "tools/audio_file.h"
#include "tools/configd/file_watcher.h"
#include "tools/configd/sample_store.h"
#include "tools/configd/sample_thinning.h"
#include "tools/ordered_jobs.h"

namespace cv::tools {

namespace {

LintRecording read_recording(const std::string& path, const std::string& name,
                             const FingerprintSettings& settings) {
  LintRecording recording;
  SourceFormat format;
  const auto samples = read_audio(path, recording.unusable, &format);
  if (!samples) return recording;
  recording.points = fingerprint_points(*samples, settings);
  recording.unusable = packet_complaint(name, audio::write_sample_packet(recording.points));
  if (!recording.unusable.empty()) return recording;
  recording.rate_hz = format.rate_hz;
  recording.facts = recording_facts(*samples);
  recording.call = audio::fingerprint(*samples);
  // In the middle between two phases.
  const std::size_t off =
      std::min(samples->size(), audio::frame_hop_samples / (2 * std::size_t{settings.phases}));
  recording.call_off = audio::fingerprint(std::span(*samples).subspan(off));
  return recording;
}

/// As nodes get them: without the commonest hashes, if so asked for, and by id.
void serve(LintSite& site, const LintOptions& options, StateFile& state) {
  Packets packets;
  for (const auto& [name, recording] : site.recordings) {
    if (recording.unusable.empty()) packets[name] = audio::write_sample_packet(recording.points);
  }
  packets = thin_samples(packets, site.rules, options.settings.drop_common, state).packets;
  for (const auto& [name, bytes] : packets) {
    audio::SamplePacket packet;
    audio::SamplePacket::parse(bytes.data(), bytes.size(), packet);
    site.recordings.at(name).points = packet.points();
    site.ids[name] = state.sample_id(name, bytes_of(bytes));
  }
  site.configuration = resolve(site.rules, site.ids);
}

}  // namespace

const std::string& LintSite::file_of(uint64_t rule, uint32_t id) const {
  return std::find_if(configuration.samples.begin(), configuration.samples.end(),
                      [&](const SampleEntry& entry) {
                        return entry.rule_id == rule && entry.sample_id == id;
                      })
      ->file;
}

std::optional<LintSite> read_lint_site(const LintOptions& options, const LintProgress& progress,
                                       std::string& error) {
  LintSite site;
  auto rules = read_rules(options.rules, error);
  if (!rules) return std::nullopt;
  site.rules = std::move(*rules);
  const auto found = FileWatcher(options.samples, options.rules).look();
  error = found.error;
  if (!found.error.empty()) return std::nullopt;
  // Never saved: it only gives every content what configd gives it.
  auto state =
      StateFile::open(options.state.empty() ? options.rules + ".state" : options.state, 1, error);
  if (!state) return std::nullopt;
  const auto make_reader = [&] {
    return [&](std::size_t i) {
      const std::string& name = found.changed[i];
      return read_recording(options.samples + "/" + name, name, options.settings.fingerprint);
    };
  };
  const auto take = [&](std::size_t i, LintRecording recording) {
    site.recordings.emplace(found.changed[i], std::move(recording));
    progress(i + 1, found.changed.size());
    return true;
  };
  OrderedJobs<LintRecording>(found.changed.size(), processors()).run(make_reader, take, [] {
    return true;
  });
  serve(site, options, *state);
  return site;
}

}  // namespace cv::tools
