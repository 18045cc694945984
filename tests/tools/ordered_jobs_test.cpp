#include "tools/ordered_jobs.h"

#include <atomic>
#include <gtest/gtest.h>
#include <numeric>
#include <stdexcept>

namespace cv::tools {
namespace {

TEST(OrderedJobs, ResultsComeInOrderFromAnyNumberOfThreads) {
  std::vector<std::size_t> expected(300);
  std::iota(expected.begin(), expected.end(), 0u);
  for (const unsigned threads : {0u, 1u, 3u, 16u}) {
    SCOPED_TRACE(threads);
    OrderedJobs<std::size_t> jobs(expected.size(), threads);
    std::atomic<std::size_t> taken{0};
    std::atomic<bool> ahead{false};
    std::vector<std::size_t> results;
    jobs.run(
        [&] {
          return [&, sum = 0.0](std::size_t job) mutable {
            for (std::size_t i = 0; i < job % 7 * 1000; ++i) sum += 1 / (1.0 + sum);  // unlike
            if (job >= taken + jobs.threads() * window_a_thread) ahead = true;
            return sum < 0 ? 0 : job;
          };
        },
        [&](std::size_t job, std::size_t result) {
          EXPECT_EQ(job, result);
          results.push_back(result);
          return true;
        },
        [&] {
          taken = results.size() + 1;  // the one being taken counts already
          return true;
        });
    EXPECT_EQ(results, expected);
    EXPECT_FALSE(ahead);
  }
}

TEST(OrderedJobs, EndsEarlyWhenToldToAndWhenAWorkerThrows) {
  std::vector<std::size_t> results;
  const auto run = [&](std::size_t bad, std::size_t enough) {
    results.clear();
    const auto worker = [bad](std::size_t job) {
      if (job == bad) throw std::runtime_error("bad");
      return job;
    };
    const auto deliver = [&](std::size_t job, std::size_t) {
      results.push_back(job);
      return results.size() < enough;
    };
    OrderedJobs<std::size_t>(1000, 4).run([&] { return worker; }, deliver, [] { return true; });
  };
  run(1000, 5);
  EXPECT_EQ(results, (std::vector<std::size_t>{0, 1, 2, 3, 4}));
  EXPECT_THROW(run(20, 1000), std::runtime_error);
  EXPECT_LE(results.size(), 20u);
}

}  // namespace
}  // namespace cv::tools
