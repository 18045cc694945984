// Memory for the nodes of one list: of one size, close together, in the order of their first use.
//
// In place of std::pmr::unsynchronized_pool_resource, which libstdc++ 12 leaves broken when memory for its
// own bookkeeping fails: it swallows the exception and hands out a block of a chunk that is not there.
//
// Nodes given back are used again, the latest first; memory is given back with the pool.
// Threads: one at a time. Failure: std::bad_alloc, and nothing has changed.
#pragma once

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <memory>
#include <memory_resource>
#include <utility>
#include <vector>

namespace cv::mem {

class NodePool : public std::pmr::memory_resource {
 public:
  static constexpr std::size_t chunk_nodes = 1024;

 private:
  struct Free {
    Free* next;
  };

  void* do_allocate(std::size_t bytes, [[maybe_unused]] std::size_t alignment) override {
    bytes = std::max(bytes, sizeof(Free));
    assert(alignment <= alignof(std::max_align_t));
    assert(m_node_bytes == 0 || m_node_bytes == bytes);
    m_node_bytes = bytes;
    if (m_free == nullptr) add_chunk();
    return std::exchange(m_free, m_free->next);
  }

  void do_deallocate(void* node, std::size_t, std::size_t) override {
    m_free = new (node) Free{m_free};
  }

  bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override {
    return this == &other;
  }

  void add_chunk() {
    m_chunks.push_back(std::make_unique_for_overwrite<std::byte[]>(chunk_nodes * m_node_bytes));
    std::byte* const chunk = m_chunks.back().get();
    for (std::size_t i = chunk_nodes; i-- > 0;) do_deallocate(chunk + i * m_node_bytes, 0, 0);
  }

  std::vector<std::unique_ptr<std::byte[]>> m_chunks;
  Free* m_free = nullptr;
  std::size_t m_node_bytes = 0;
};

}  // namespace cv::mem
