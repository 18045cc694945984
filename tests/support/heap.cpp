#include "support/heap.h"

#include <cstdlib>
#include <new>

// The linker's names for the C library's own (--wrap).
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void __real_free(void* block);
}

namespace cv::test::heap {

namespace {

thread_local Counts t_counts;
thread_local std::size_t t_until_failure = 0;  // 0: none is to fail
thread_local std::size_t t_failures_left = 0;
thread_local std::size_t t_failed = 0;
thread_local int t_exempt = 0;

/// Whether this allocation may be served.
bool admit(std::size_t& counter) {
  if (t_exempt > 0) return true;
  ++counter;
  if (t_until_failure > 1) return --t_until_failure, true;
  if (t_until_failure == 0 || t_failures_left == 0) return true;
  --t_failures_left;
  ++t_failed;
  return false;
}

void* plain(std::size_t size) { return admit(t_counts.plain) ? __real_malloc(size) : nullptr; }

void* aligned(std::size_t size, std::align_val_t alignment) {
  const auto unit = static_cast<std::size_t>(alignment);
  if (!admit(t_counts.aligned)) return nullptr;
  return std::aligned_alloc(unit, (size + unit - 1) / unit * unit);
}

void* checked(void* block) {
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

// Not inline: seen from where a block is deleted, free() would not match the operator that gave it.
[[gnu::noinline]] void release(void* block) {
  if (block != nullptr && t_exempt == 0) ++t_counts.deletes;
  __real_free(block);
}

}  // namespace

Counts counts() { return t_counts; }

Failing::Failing(std::size_t first, std::size_t count) {
  t_until_failure = first;
  t_failures_left = count;
  t_failed = 0;
}
Failing::~Failing() { t_until_failure = t_failures_left = 0; }
std::size_t Failing::failed() const { return t_failed; }

Exempt::Exempt() { ++t_exempt; }
Exempt::~Exempt() { --t_exempt; }

}  // namespace cv::test::heap

namespace heap = cv::test::heap;

void* operator new(std::size_t size) { return heap::checked(heap::plain(size)); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return heap::plain(size); }
void* operator new(std::size_t size, std::align_val_t alignment) {
  return heap::checked(heap::aligned(size, alignment));
}
void operator delete(void* block) noexcept { heap::release(block); }
void operator delete(void* block, std::size_t) noexcept { heap::release(block); }
void operator delete(void* block, std::align_val_t) noexcept { heap::release(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { heap::release(block); }

// What the executable's objects call in place of the C library's.
extern "C" {
void* __wrap_malloc(std::size_t size) { return heap::plain(size); }
void* __wrap_calloc(std::size_t count, std::size_t size) {
  return heap::admit(heap::t_counts.plain) ? __real_calloc(count, size) : nullptr;
}
void* __wrap_realloc(void* block, std::size_t size) {
  if (size == 0) return heap::release(block), nullptr;
  if (!heap::admit(heap::t_counts.plain)) return nullptr;
  if (block != nullptr && heap::t_exempt == 0) ++heap::t_counts.deletes;
  return __real_realloc(block, size);
}
void __wrap_free(void* block) { heap::release(block); }
}
