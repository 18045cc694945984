// Matching of streams against databases of samples: the product's detector and the plain model of it
// side by side. See ratio_main.h for how it is run; pin it to one processor.
//
// The time is that of one point, without making and destroying the detectors.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "audio/audio_samples_detector.h"
#include "heap_count.h"
#include "matching_material.h"
#include "ratio_main.h"
#include "stopwatch.h"
#include "support/plain_samples_detector.h"

namespace cv::bench {

namespace {

constexpr uint8_t drift_frames = 1;
constexpr std::size_t interleaved_streams = 2000;

struct Plain {
  using Database = test::PlainHashDatabase;
  using Detector = test::PlainSamplesDetector;
  static Database* build(const std::vector<audio::HashSample>& samples) {
    return new Database(samples);
  }
  static Detector detector(Database& database) { return {database, drift_frames}; }
};

struct Fast {
  using Database = audio::HashDatabase;
  using Detector = audio::SamplesDetector;
  static Database* build(const std::vector<audio::HashSample>& samples) {
    return new Database(samples);
  }
  static Detector detector(Database& database) {
    Detector detector;
    detector.set_database(&database);
    detector.set_drift(drift_frames);
    return detector;
  }
};

/// Both forms of one set of samples; they live until the process ends.
struct Databases {
  explicit Databases(std::vector<audio::HashSample> given)
      : samples(std::move(given)), plain(Plain::build(samples)), fast(Fast::build(samples)) {}

  template <typename Form>
  typename Form::Database& get() const {
    if constexpr (std::is_same_v<Form, Plain>) {
      return *plain;
    } else {
      return *fast;
    }
  }

  std::vector<audio::HashSample> samples;
  Plain::Database* plain;
  rc_ptr<Fast::Database> fast;
};

struct Count : audio::SamplesDetectorCallback {
  void on_sample_detected(audio::Match, void*) override { ++announced; }
  std::size_t announced = 0;
};

/// A whole call, one detector.
template <typename Form>
void match_one(benchmark::State& state, const Databases& databases, const Points& points) {
  Count count;
  std::size_t bytes = 0;
  for (auto _ : state) {
    const std::size_t before = heap_bytes();
    auto detector = Form::detector(databases.get<Form>());
    const Stopwatch stopwatch;
    for (const audio::HashPoint point : points) detector.handle_hash(point, count, nullptr);
    state.SetIterationTime(stopwatch.seconds() / static_cast<double>(points.size()));
    bytes = heap_bytes() - before;
  }
  state.counters["memory_KiB"] = static_cast<double>(bytes) / 1024;
  state.counters["announced"] =
      static_cast<double>(count.announced) / static_cast<double>(state.iterations());
  state.counters["points"] = static_cast<double>(points.size());
}

/// Many calls take turns, a point each. Each hears the same minute from another place on. The first
/// `started` turns bring them under way and are not measured.
template <typename Form>
void match_interleaved(benchmark::State& state, const Databases& databases, const Points& points) {
  constexpr std::size_t started = 100;
  constexpr std::size_t measured = 20;
  Count count;
  for (auto _ : state) {
    std::vector<typename Form::Detector> streams;
    for (std::size_t i = 0; i < interleaved_streams; ++i) {
      streams.push_back(Form::detector(databases.get<Form>()));
    }
    const auto take_turn = [&](std::size_t turn) {
      for (std::size_t i = 0; i < streams.size(); ++i) {
        audio::HashPoint point = points[(i * 997 + turn) % points.size()];
        point.offset = static_cast<uint32_t>(turn);
        streams[i].handle_hash(point, count, nullptr);
      }
    };
    for (std::size_t turn = 0; turn < started; ++turn) take_turn(turn);
    const Stopwatch stopwatch;
    for (std::size_t turn = started; turn < started + measured; ++turn) take_turn(turn);
    state.SetIterationTime(stopwatch.seconds() / (measured * interleaved_streams));
  }
}

template <typename Form>
void build(benchmark::State& state, const Databases& databases) {
  std::size_t bytes = 0;
  for (auto _ : state) {
    const std::size_t before = heap_bytes();
    const Stopwatch stopwatch;
    auto* database = Form::build(databases.samples);
    state.SetIterationTime(stopwatch.seconds());
    bytes = heap_bytes() - before;
    delete database;
  }
  state.counters["memory_KiB"] = static_cast<double>(bytes) / 1024;
}

template <typename Plainly, typename Fastly, typename Set>
void add_pair(const std::string& scenario, Plainly plainly, Fastly fastly, Set set) {
  set(benchmark::RegisterBenchmark((scenario + "/plain").c_str(), plainly)->UseManualTime());
  set(benchmark::RegisterBenchmark((scenario + "/fast").c_str(), fastly)->UseManualTime());
}

// A measured time is that of one point, so a microsecond is enough for plain matching to run once.
constexpr auto briefly = [](benchmark::internal::Benchmark* one) { one->MinTime(1e-6); };
constexpr auto once = [](benchmark::internal::Benchmark* one) { one->Iterations(1); };

void add_match(const std::string& name, const Databases& databases, Points points) {
  add_pair(
      "match/" + name,
      [&databases, points](benchmark::State& s) { match_one<Plain>(s, databases, points); },
      [&databases, points](benchmark::State& s) { match_one<Fast>(s, databases, points); },
      briefly);
}

void add_interleaved(const std::string& name, const Databases& databases, Points points) {
  add_pair(
      "interleaved/" + name,
      [&databases, points](benchmark::State& s) { match_interleaved<Plain>(s, databases, points); },
      [&databases, points](benchmark::State& s) { match_interleaved<Fast>(s, databases, points); },
      once);
}

void add_build(const std::string& name, const Databases& databases) {
  add_pair(
      "build/" + name, [&databases](benchmark::State& s) { build<Plain>(s, databases); },
      [&databases](benchmark::State& s) { build<Fast>(s, databases); }, briefly);
}

/// As much of the beginning as plain matching does in a second or so.
Points beginning(const Points& points, const Databases& databases) {
  std::size_t votes = 0;
  const auto too_many = [&](const audio::HashPoint& point) {
    return (votes += databases.fast->entries(point.hash).size()) > 2'000'000;
  };
  return {points.begin(), std::find_if(points.begin(), points.end(), too_many)};
}

void add_all() {
  static std::map<std::string, Databases> all;
  const std::size_t english = english_prompt_count();
  for (const std::size_t size : {std::size_t{10}, std::size_t{100}, english, std::size_t{5000}}) {
    const std::string name = std::to_string(size);
    const Databases& databases = all.emplace(name, speech_samples(size)).first->second;
    add_build(name, databases);
    for (const auto& [sound, points] : {std::pair{"unrelated_speech", unrelated_speech()},
                                        {"related_speech", related_speech()},
                                        {"music", music()},
                                        {"noise", noise()}}) {
      add_match(name + "/" + sound, databases, beginning(points, databases));
    }
  }
  const std::string name = std::to_string(english);
  add_interleaved(name + "/unrelated_speech", all.at(name), unrelated_speech());
  add_interleaved(name + "/related_speech", all.at(name), related_speech());

  const Databases& four = all.emplace("phases", speech_samples(english, 4)).first->second;
  add_match(name + "_of_4_phases/unrelated_speech", four, unrelated_speech());

  std::vector<audio::HashSample> with_tone = all.at(name).samples;
  with_tone.push_back(tone_sample(60));
  const Databases& toned = all.emplace("tone", std::move(with_tone)).first->second;
  add_match(name + "_and_a_tone/tone", toned, tone());
  add_match(name + "_and_a_tone/unrelated_speech", toned, unrelated_speech());
}

}  // namespace

}  // namespace cv::bench

int main(int argc, char** argv) {
  cv::bench::add_all();
  return cv::bench::run(argc, argv);
}
