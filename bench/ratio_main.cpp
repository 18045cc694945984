#include "ratio_main.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace cv::bench {

namespace {

std::vector<std::pair<std::string, std::string>>& further_ratios() {
  static std::vector<std::pair<std::string, std::string>> ratios;
  return ratios;
}

/// Prints as usual and keeps the medians.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  RatioReporter() : ConsoleReporter(OO_None) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.error_occurred || run.aggregate_name != "median") continue;
      auto& values = m_medians[run.run_name.function_name];
      // All run on one thread. A manual time is reported as real time.
      const bool manual = run.run_name.time_type == "manual_time";
      values["time"] = manual ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime();
      for (const auto& [name, counter] : run.counters) {
        if (name.starts_with("memory")) values[name] = counter.value;
      }
    }
  }

  void Finalize() override {
    std::printf("\n%-56s %-24s %8s\n", "plain / fast, medians", "of", "ratio");
    for (const auto& [name, plain] : m_medians) {
      if (!name.ends_with("/plain")) continue;
      const std::string scenario = name.substr(0, name.size() - 6);
      const auto fast = m_medians.find(scenario + "/fast");
      if (fast == m_medians.end()) continue;
      for (const auto& [what, value] : plain) {
        if (fast->second.at(what) == 0) continue;
        const double ratio = value / fast->second.at(what);
        std::printf("%-56s %-24s %8.1f\n", scenario.c_str(), what.c_str(), ratio);
      }
    }
    for (const auto& [numerator, denominator] : further_ratios()) {
      const auto over = m_medians.find(numerator), under = m_medians.find(denominator);
      if (over == m_medians.end() || under == m_medians.end()) continue;
      std::printf("%-56s %-24s %8.2f\n", (numerator + " / " + denominator).c_str(), "time",
                  over->second.at("time") / under->second.at("time"));
    }
  }

 private:
  std::map<std::string, std::map<std::string, double>> m_medians;
};

}  // namespace

void add_ratio(const std::string& numerator, const std::string& denominator) {
  further_ratios().emplace_back(numerator, denominator);
}

int run(int argc, char** argv) {
  std::vector<std::string> defaults = {argv[0], "--benchmark_repetitions=5",
                                       "--benchmark_enable_random_interleaving=true",
                                       "--benchmark_report_aggregates_only=true"};
  std::vector<char*> arguments;
  for (std::string& argument : defaults) arguments.push_back(argument.data());
  arguments.insert(arguments.end(), argv + 1, argv + argc);
  int count = static_cast<int>(arguments.size());
  arguments.push_back(nullptr);
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}

}  // namespace cv::bench
