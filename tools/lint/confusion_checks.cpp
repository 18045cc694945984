#include "tools/lint/confusion_checks.h"

#include <iterator>
#include <map>
#include <set>
#include <utility>

#include "tools/ordered_jobs.h"
#include "tools/recognition_trial.h"
#include "tools/text_table.h"

namespace cv::tools {

namespace {

// So much of a recording in another one is the recording.
constexpr double most_of_it = 0.7;

class Announced : public audio::SamplesDetectorCallback {
 public:
  void on_sample_detected(audio::Match match, void*) override { ids.insert(match.sample->id); }

  std::set<uint32_t> ids;
};

/// The ids announced in a call of these points.
std::set<uint32_t> announced_in(const Points& call, const rc_ptr<audio::HashDatabase>& database,
                                unsigned drift_frames) {
  audio::SamplesDetector detector;
  detector.set_database(database);
  detector.set_drift(static_cast<uint8_t>(drift_frames));
  Announced announced;
  for (const audio::HashPoint& point : call) detector.handle_hash(point, announced, nullptr);
  return announced.ids;
}

/// One recording of a rule, played.
struct Play {
  uint64_t rule;
  const SampleEntry* entry;
  rc_ptr<audio::HashDatabase> database;
};

rc_ptr<audio::HashDatabase> make_database(const LintSite& site, uint64_t rule) {
  std::vector<audio::HashSample> samples;
  for (const SampleEntry& entry : site.configuration.samples) {
    if (entry.rule_id != rule) continue;
    samples.push_back(make_hash_sample(entry.sample_id, entry.sample_name, entry.threshold,
                                       site.recordings.at(entry.file).points));
  }
  return new audio::HashDatabase(samples);
}

std::size_t frames_of(const Points& points) {
  return points.empty() ? 0 : std::size_t{points.back().offset} + 1;
}

/// `peak` is where a call that plays `played` comes closest to `sample`.
LintFinding describe(const std::string& played, const LintRecording& played_recording,
                     const std::string& sample, const LintRecording& sample_recording,
                     const PeakMatch& peak) {
  const double span = peak.end_frame - peak.first_frame;
  const bool all_of_sample =
      span >= most_of_it * static_cast<double>(frames_of(sample_recording.points));
  const bool all_of_played =
      span >= most_of_it * static_cast<double>(frames_of(played_recording.points));
  const char* how = all_of_sample && all_of_played ? "is nearly the same: "
                    : all_of_sample                ? "contains it: "
                    : all_of_played                ? "is contained in it: "
                                                   : "";
  return {.kind = all_of_sample != all_of_played ? lint_kind::contains : lint_kind::alike,
          .recording = played,
          .other = sample,
          .score = peak.score,
          .text = std::string(how) +
                  "a call that plays it is reported as the other, too, up to a "
                  "threshold of " +
                  fixed(peak.score, 2)};
}

std::vector<LintFinding> run(const Play& play, const LintSite& site, unsigned drift_frames) {
  std::vector<LintFinding> findings;
  const std::string& file = play.entry->file;
  const LintRecording& recording = site.recordings.at(file);
  if (!announced_in(recording.call_off, play.database, drift_frames).count(play.entry->sample_id)) {
    const auto peak = peak_match(recording.points, recording.call_off, drift_frames);
    findings.push_back({.kind = lint_kind::missed,
                        .recording = file,
                        .rule = play.rule,
                        .score = peak ? peak->score : 0,
                        .text = "not found in a clean call: threshold " +
                                fixed(play.entry->threshold, 2) + ", score at most " +
                                fixed(peak ? peak->score : 0, 2)});
  }
  for (const uint32_t id : announced_in(recording.call, play.database, drift_frames)) {
    if (id == play.entry->sample_id) continue;
    const std::string& other = site.file_of(play.rule, id);
    const LintRecording& other_recording = site.recordings.at(other);
    const auto peak = peak_match(other_recording.points, recording.call, drift_frames);
    if (!peak) continue;
    findings.push_back(describe(file, recording, other, other_recording, *peak));
    findings.back().rule = play.rule;
  }
  return findings;
}

}  // namespace

std::vector<LintFinding> check_confusions(const LintSite& site, unsigned drift_frames,
                                          const LintProgress& progress) {
  std::map<uint64_t, rc_ptr<audio::HashDatabase>> databases;
  std::vector<Play> plays;
  for (const SampleEntry& entry : site.configuration.samples) {
    auto& database = databases[entry.rule_id];
    if (!database) database = make_database(site, entry.rule_id);
    plays.push_back({entry.rule_id, &entry, database});
  }
  std::vector<LintFinding> findings;
  const auto make_player = [&] {
    return [&](std::size_t i) { return run(plays[i], site, drift_frames); };
  };
  const auto take = [&](std::size_t i, std::vector<LintFinding> found) {
    std::move(found.begin(), found.end(), std::back_inserter(findings));
    progress(i + 1, plays.size());
    return true;
  };
  OrderedJobs<std::vector<LintFinding>>(plays.size(), processors()).run(make_player, take, [] {
    return true;
  });
  return findings;
}

}  // namespace cv::tools
