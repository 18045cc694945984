// Whole recordings, from a file of audio to findings, on one thread: the node's own classes from the
// received datagram to the text of its reports, the plain models of spectrum and matching without any
// packets, and fpcalc, which makes a fingerprint of each file and compares it with nothing. Pin it to
// one processor.
//
// A time is the processor time for one second of audio.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <vector>

#include "matching_material.h"
#include "ratio_main.h"
#include "stopwatch.h"
#include "support/pipeline.h"
#include "support/plain_samples_detector.h"
#include "support/plain_spectrum.h"
#include "support/recordings.h"
#include "support/sound_folder.h"
#include "support/stepped_reader.h"

namespace cv::bench {

namespace {

constexpr std::size_t rate = 8000;
constexpr std::size_t file_count = 8;
constexpr std::size_t file_seconds = 60;
constexpr std::size_t packet_samples = 160;  // 20 ms
constexpr double total_seconds = file_count * file_seconds;
constexpr uint64_t rule = 1;

/// Files of a minute of prompts each, one after the other with pauses between.
const std::vector<std::string>& files() {
  static const test::TemporaryFolder folder;
  static const std::vector<std::string> paths = [] {
    const auto prompts = test::english_prompts(rate / 2);
    std::vector<std::string> written;
    for (std::size_t file = 0; file < file_count; ++file) {
      std::vector<int16_t> audio(1000 + file, 3);
      for (std::size_t i = 0; audio.size() < file_seconds * rate; ++i) {
        const auto& heard = prompts[(file * 61 + i * 7) % prompts.size()].samples;
        audio.insert(audio.end(), heard.begin(), heard.end());
        audio.insert(audio.end(), 800 + 37 * i, 0);
      }
      audio.resize(file_seconds * rate);
      written.push_back(folder / ("speech" + std::to_string(file) + ".wav"));
      test::write_sound(written.back(), audio, rate, 1);
    }
    return written;
  }();
  return paths;
}

std::vector<int16_t> read_wav(const std::string& path) {
  SF_INFO info{};
  SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
  if (file == nullptr) throw std::runtime_error(sf_strerror(nullptr));
  std::vector<int16_t> audio(static_cast<std::size_t>(info.frames));
  const sf_count_t count = sf_read_short(file, audio.data(), info.frames);
  sf_close(file);
  if (count != info.frames) throw std::runtime_error(path + " is cut short");
  return audio;
}

/// The pipeline behind a packet reader that is stepped by hand.
class Node {
 public:
  explicit Node(const std::vector<audio::HashSample>& samples) {
    std::vector<test::KnownSample> known;
    for (const auto& sample : samples) {
      known.push_back({sample.metadata->id, "prompt", sample.payload->points});
    }
    m_pipeline.publish(1, rule, known);
  }

  /// A whole call; gives the number of findings.
  std::size_t play(uint8_t call, const std::vector<int16_t>& audio) {
    const test::CallPackets packets(call);
    media::StartFields start;
    start.features = media::features_sample_detection | media::features_activity_detection;
    start.rule = rule;
    // Past the reader: it would trace the start of every call to syslog.
    m_pipeline.send(packets.start(start));
    media::DataFields data;
    for (std::size_t at = 0; at < audio.size(); at += packet_samples) {
      ++data.seq;
      data.samples = std::span(audio).subspan(at, std::min(packet_samples, audio.size() - at));
      media::write_data(packets.key(), 0, data, m_datagram);
      m_reader.read_from(m_datagram.data(), m_datagram.size());
      m_reader.step();
    }
    m_pipeline.send(packets.terminate());
    return m_pipeline.reports.texts().size();
  }

 private:
  test::Pipeline m_pipeline;
  media::PacketReaderStatistic m_statistic;
  test::SteppedReader m_reader{m_statistic, m_pipeline.media.manager()};
  media::Datagram m_datagram;
};

void run_fast(benchmark::State& state, std::size_t samples) {
  Node node(speech_samples(samples));
  std::size_t findings = 0;
  for (auto _ : state) {
    const Stopwatch stopwatch;
    for (std::size_t i = 0; i < files().size(); ++i) {
      findings += node.play(static_cast<uint8_t>(i + 1), read_wav(files()[i]));
    }
    state.SetIterationTime(stopwatch.seconds() / total_seconds);
  }
  state.counters["findings"] =
      static_cast<double>(findings) / static_cast<double>(state.iterations());
}

/// One stream of the plain models.
class PlainStream : public audio::SpectrumGeneratorCallback, audio::SamplesDetectorCallback {
 public:
  explicit PlainStream(const test::PlainHashDatabase& database) : m_detector(database, 1) {}

  void on_spectrum_data(const audio::SpectrumFrame& frame, void*) override {
    if (const auto point = test::plain_hash(frame)) m_detector.handle_hash(*point, *this, nullptr);
  }
  std::size_t findings = 0;

 private:
  void on_sample_detected(audio::Match, void*) override { ++findings; }

  test::PlainSamplesDetector m_detector;
};

void run_plain(benchmark::State& state, std::size_t samples) {
  const test::PlainHashDatabase database(speech_samples(samples));
  for (auto _ : state) {
    const Stopwatch stopwatch;
    for (const std::string& file : files()) {
      const auto audio = read_wav(file);
      test::PlainSpectrumGenerator generator;
      PlainStream stream(database);
      for (std::size_t at = 0; at < audio.size(); at += packet_samples) {
        generator.compute_spectrum(&audio[at], std::min(packet_samples, audio.size() - at), stream,
                                   nullptr);
      }
      benchmark::DoNotOptimize(stream.findings);
    }
    state.SetIterationTime(stopwatch.seconds() / total_seconds);
  }
}

double seconds_of(const timeval& time) {
  return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
}

/// Processor seconds of a run of fpcalc; throws std::runtime_error when it fails.
double fpcalc_seconds(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "fpcalc");
  std::vector<char*> words;
  for (std::string& argument : arguments) words.push_back(argument.data());
  words.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  const int error = posix_spawnp(&child, "fpcalc", &actions, nullptr, words.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::runtime_error("fpcalc cannot be started");
  int status = 0;
  rusage usage{};
  while (wait4(child, &status, 0, &usage) < 0) {
    if (errno != EINTR) throw std::runtime_error("no result of fpcalc");
  }
  if (status != 0) throw std::runtime_error("fpcalc failed");
  return seconds_of(usage.ru_utime) + seconds_of(usage.ru_stime);
}

/// The files several times over, so that little depends on how exactly its start is taken off.
void run_fpcalc(benchmark::State& state) {
  constexpr std::size_t times = 5;
  // It takes the end of a WAV file for an error, after the whole fingerprint.
  std::vector<std::string> all = {"-ignore-errors"};
  for (std::size_t i = 0; i < times; ++i) all.insert(all.end(), files().begin(), files().end());
  for (auto _ : state) {
    const double start = fpcalc_seconds({"-version"});
    state.SetIterationTime((fpcalc_seconds(all) - start) / (times * total_seconds));
  }
}

/// A node's pool of buffers has been used all through after its first seconds.
void use_buffer_pool() {
  for (std::size_t i = 0; i < media::PacketBuffer::pool_slots; ++i) {
    const rc_ptr<media::PacketBuffer> buffer(new media::PacketBuffer);
  }
}

void add_all() {
  // Made now, and not in what is measured.
  files();
  use_buffer_pool();
  const auto add = [](const std::string& name, auto code) {
    benchmark::RegisterBenchmark(name.c_str(), code)->UseManualTime()->Iterations(1);
  };
  add("path/fpcalc", run_fpcalc);
  for (const std::size_t samples : {std::size_t{10}, std::size_t{100}, english_prompt_count()}) {
    const std::string name = "path/" + std::to_string(samples);
    add(name + "/plain", [samples](benchmark::State& state) { run_plain(state, samples); });
    add(name + "/fast", [samples](benchmark::State& state) { run_fast(state, samples); });
    add_ratio("path/fpcalc", name + "/fast");
  }
}

}  // namespace

}  // namespace cv::bench

int main(int argc, char** argv) {
  // Every call's start and end is logged; here there is nobody to read it.
  cv::log::Logger::m_instance.level = cv::log::Level::ERROR;
  cv::bench::add_all();
  return cv::bench::run(argc, argv);
}
