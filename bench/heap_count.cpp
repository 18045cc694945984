#include "heap_count.h"

#include <cstdlib>
#include <malloc.h>
#include <new>

namespace {

std::size_t bytes_in_use = 0;

void* counted(void* block) {
  if (block == nullptr) throw std::bad_alloc();
  bytes_in_use += malloc_usable_size(block) + sizeof(std::size_t);  // and the allocator's header
  return block;
}

void release(void* block) {
  if (block == nullptr) return;
  bytes_in_use -= malloc_usable_size(block) + sizeof(std::size_t);
  std::free(block);
}

}  // namespace

std::size_t cv::bench::heap_bytes() { return bytes_in_use; }

void* operator new(std::size_t size) { return counted(std::malloc(size)); }
void* operator new(std::size_t size, std::align_val_t alignment) {
  const auto unit = static_cast<std::size_t>(alignment);
  return counted(std::aligned_alloc(unit, (size + unit - 1) / unit * unit));
}
void operator delete(void* block) noexcept { release(block); }
void operator delete(void* block, std::size_t) noexcept { release(block); }
void operator delete(void* block, std::align_val_t) noexcept { release(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { release(block); }
