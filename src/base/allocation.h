// Heap blocks of the library: always zero-filled, never thrown for, freed by free().  A block that
// is being built is held by one of the owners below and given away with release() on success only,
// so that every early return frees it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace zvqrn {

struct FreeBlock {
  void operator()(void* block) const { std::free(block); }
};

// A block of bytes, or a record that owns nothing else.
template <typename Type>
using OwnedBlock = std::unique_ptr<Type, FreeBlock>;

// An owner for records that have a release operation of their own.
template <typename Type, void (*Release)(Type*)>
struct ReleaseRecord {
  void operator()(Type* record) const { Release(record); }
};
template <typename Type, void (*Release)(Type*)>
using Owned = std::unique_ptr<Type, ReleaseRecord<Type, Release>>;

// A new record, all zero; null when memory runs out.
template <typename Type>
Type* NewRecord() {
  return static_cast<Type*>(std::calloc(1, sizeof(Type)));
}

// `size` zero bytes; null when memory runs out or the size is negative.
inline char* NewBytes(std::int64_t size) {
  if (size < 0 || size > INT32_MAX) {
    return nullptr;
  }
  return static_cast<char*>(std::calloc(1, static_cast<std::size_t>(size)));
}

// The least multiple of 8 above `size`: the library's rounding of block sizes.
constexpr std::int32_t RoundUpPast8(std::int32_t size) {
  return size / 8 * 8 + 8;
}

}  // namespace zvqrn
