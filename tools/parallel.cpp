#include "tools/parallel.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace cv::tools {

namespace {

constexpr std::chrono::milliseconds progress_interval(50);

}  // namespace

void for_each_index(std::size_t count, const std::function<void(std::size_t)>& work,
                    const std::function<void(std::size_t done, std::size_t total)>& progress) {
  std::atomic<std::size_t> next{0}, done{0};
  const auto run = [&] {
    for (std::size_t index; (index = next.fetch_add(1)) < count; done.fetch_add(1)) work(index);
  };
  const std::size_t threads =
      std::min<std::size_t>(std::max(1u, std::thread::hardware_concurrency()), count);
  std::vector<std::jthread> workers;
  for (std::size_t i = 0; i < threads; ++i) workers.emplace_back(run);
  while (progress && done.load() < count) {
    progress(done.load(), count);
    std::this_thread::sleep_for(progress_interval);
  }
}

}  // namespace cv::tools
