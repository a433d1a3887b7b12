#include "allocations/counted_calls.h"

#include <cstddef>

namespace zvqrn::bench {

Counted counted;
thread_local bool isBenchThread = false;

namespace {

void CountBlock(std::size_t size) {
  if (!isBenchThread) {
    counted.allocations++;
    counted.bytesAllocated += size;
  }
}

void CountCopy(std::size_t size) {
  if (!isBenchThread) {
    counted.bytesCopied += size;
  }
}

}  // namespace
}  // namespace zvqrn::bench

// The names are the linker's.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size) {
  zvqrn::bench::CountBlock(size);
  return __real_malloc(size);
}

void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size) {
  zvqrn::bench::CountBlock(count * size);
  return __real_calloc(count, size);
}

void* __real_realloc(void* block, std::size_t size);
void* __wrap_realloc(void* block, std::size_t size);
void* __wrap_realloc(void* block, std::size_t size) {
  zvqrn::bench::CountBlock(size);
  return __real_realloc(block, size);
}

void __real_free(void* block);
void __wrap_free(void* block);
void __wrap_free(void* block) {
  if (block != nullptr && !zvqrn::bench::isBenchThread) {
    zvqrn::bench::counted.releases++;
  }
  __real_free(block);
}

void* __real_memcpy(void* to, const void* from, std::size_t size);
void* __wrap_memcpy(void* to, const void* from, std::size_t size);
void* __wrap_memcpy(void* to, const void* from, std::size_t size) {
  zvqrn::bench::CountCopy(size);
  return __real_memcpy(to, from, size);
}

void* __real_memmove(void* to, const void* from, std::size_t size);
void* __wrap_memmove(void* to, const void* from, std::size_t size);
void* __wrap_memmove(void* to, const void* from, std::size_t size) {
  zvqrn::bench::CountCopy(size);
  return __real_memmove(to, from, size);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
