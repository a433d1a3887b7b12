#include "machine/races.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <unordered_map>

#include "machine/machine.h"

namespace zvqrn::simulation {
namespace {

using Clock = std::vector<std::uint32_t>;  // by the numbers of threads

// What is known of four bytes.
struct Place {
  std::uint32_t writer, writtenAt, reader, readAt;
};

// One stretch of watched memory.
struct Stretch {
  std::uintptr_t begin;
  std::size_t size;
  Place* places;
  std::size_t used;  // of its bytes so far
};
Stretch stretches[2];

std::vector<Clock> clocks;  // of the threads
std::unordered_map<const void*, Clock> objects;

void Watch(Stretch* stretch, const void* begin, std::size_t size) {
  if (stretch->size < size) {
    void* memory = mmap(nullptr, size / 4 * sizeof(Place), PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    stretch->places = memory == MAP_FAILED ? nullptr : static_cast<Place*>(memory);
  }
  stretch->begin = reinterpret_cast<std::uintptr_t>(begin);
  stretch->size = stretch->places != nullptr ? size : 0;
}

Clock& ClockOf(std::int32_t thread) {
  const auto number = static_cast<std::size_t>(thread);
  if (clocks.size() <= number) {
    clocks.resize(number + 1);
  }
  Clock& clock = clocks[number];
  if (clock.size() <= number) {
    clock.resize(number + 1);
    clock[number] = 1;
  }
  return clock;
}

void Join(Clock* to, const Clock& from) {
  if (to->size() < from.size()) {
    to->resize(from.size());
  }
  for (std::size_t i = 0; i < from.size(); i++) {
    (*to)[i] = std::max((*to)[i], from[i]);
  }
}

[[noreturn]] void ReportRace(const Stretch& stretch, std::uintptr_t address, bool writes,
                             std::uint32_t other) {
  Finding("a data race: T%d %s what T%u has used, and nothing orders the two; at byte %zu of %s",
          machine.current->number, writes ? "writes" : "reads", other,
          static_cast<std::size_t>(address - stretch.begin),
          &stretch == &stretches[0] ? "the heap" : "ServiceState");
}

void LookAt(std::uintptr_t address, bool writes) {
  for (Stretch& stretch : stretches) {
    const std::uintptr_t offset = address - stretch.begin;
    if (offset >= stretch.size) {
      continue;
    }
    stretch.used = std::max(stretch.used, static_cast<std::size_t>(offset) + 4);
    const auto self = static_cast<std::uint32_t>(machine.current->number);
    const Clock& clock = ClockOf(machine.current->number);
    const auto known = [&clock](std::uint32_t thread, std::uint32_t time) {
      return thread == 0 || (thread < clock.size() && clock[thread] >= time);
    };
    Place& place = stretch.places[offset / 4];
    if (!known(place.writer, place.writtenAt)) {
      ReportRace(stretch, address, writes, place.writer);
    }
    if (writes && !known(place.reader, place.readAt)) {
      ReportRace(stretch, address, writes, place.reader);
    }
    if (writes) {
      place = Place{self, clock[self], 0, 0};
    } else {
      place.reader = self;
      place.readAt = clock[self];
    }
  }
}

void LookAtAll(const void* at, std::size_t size, bool writes) {
  if (!InLife()) {
    return;
  }
  const auto begin = reinterpret_cast<std::uintptr_t>(at);
  for (std::uintptr_t address = begin & ~std::uintptr_t{3}; address < begin + size; address += 4) {
    LookAt(address, writes);
  }
}

}  // namespace

void Acquire(const void* object) {
  const auto found = objects.find(object);
  if (found != objects.end()) {
    Join(&ClockOf(machine.current->number), found->second);
  }
}

void Release(const void* object) {
  Clock& own = ClockOf(machine.current->number);
  Join(&objects[object], own);
  own[static_cast<std::size_t>(machine.current->number)]++;
}

void BeginRaces() {
  objects.clear();
  clocks.clear();
  for (const Stretch& stretch : stretches) {
    if (stretch.used > 0) {
      std::fill(stretch.places, stretch.places + stretch.used / 4 + 1, Place{});
    }
  }
  stretches[0].used = stretches[1].used = 0;
}

void WatchArena(const void* begin, std::size_t size) {
  Watch(&stretches[0], begin, size);
}

void WatchRecord(const void* begin, std::size_t size) {
  Watch(&stretches[1], begin, size);
}

// ---- What the compiler calls
// ---------------------------------------------------------------------

namespace {

template <typename Type, typename Act>
Type Atomically(volatile Type* at, Act act) {
  if (!InLife()) {
    return act();
  }
  Acquire(const_cast<const Type*>(at));
  const Type result = act();
  Release(const_cast<const Type*>(at));
  return result;
}

}  // namespace

extern "C" {

void __tsan_init();
void __tsan_init() {}
void __tsan_func_entry(void* caller);
void __tsan_func_entry(void* /*caller*/) {}
void __tsan_func_exit();
void __tsan_func_exit() {}

#define ACCESSES(size)                          \
  void __tsan_read##size(void* at);             \
  void __tsan_read##size(void* at) {            \
    LookAtAll(at, size, false);                 \
  }                                             \
  void __tsan_write##size(void* at);            \
  void __tsan_write##size(void* at) {           \
    LookAtAll(at, size, true);                  \
  }                                             \
  void __tsan_unaligned_read##size(void* at);   \
  void __tsan_unaligned_read##size(void* at) {  \
    LookAtAll(at, size, false);                 \
  }                                             \
  void __tsan_unaligned_write##size(void* at);  \
  void __tsan_unaligned_write##size(void* at) { \
    LookAtAll(at, size, true);                  \
  }
ACCESSES(1)
ACCESSES(2)
ACCESSES(4)
ACCESSES(8)
ACCESSES(16)

void __tsan_read_range(void* at, std::size_t size);
void __tsan_read_range(void* at, std::size_t size) {
  LookAtAll(at, size, false);
}
void __tsan_write_range(void* at, std::size_t size);
void __tsan_write_range(void* at, std::size_t size) {
  LookAtAll(at, size, true);
}

// A type cannot stand in parentheses.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define ATOMICS(bits, Type)                                                                        \
  Type __tsan_atomic##bits##_load(const volatile Type* at, int order);                             \
  Type __tsan_atomic##bits##_load(const volatile Type* at, int /*order*/) {                        \
    return Atomically(const_cast<volatile Type*>(at), [at] { return *at; });                       \
  }                                                                                                \
  void __tsan_atomic##bits##_store(volatile Type* at, Type value, int order);                      \
  void __tsan_atomic##bits##_store(volatile Type* at, Type value, int /*order*/) {                 \
    Atomically(at, [=] { return *at = value; });                                                   \
  }                                                                                                \
  Type __tsan_atomic##bits##_exchange(volatile Type* at, Type value, int order);                   \
  Type __tsan_atomic##bits##_exchange(volatile Type* at, Type value, int /*order*/) {              \
    return Atomically(at, [=] {                                                                    \
      const Type before = *at;                                                                     \
      *at = value;                                                                                 \
      return before;                                                                               \
    });                                                                                            \
  }                                                                                                \
  Type __tsan_atomic##bits##_fetch_add(volatile Type* at, Type value, int order);                  \
  Type __tsan_atomic##bits##_fetch_add(volatile Type* at, Type value, int /*order*/) {             \
    return Atomically(at, [=] {                                                                    \
      const Type before = *at;                                                                     \
      *at = before + value;                                                                        \
      return before;                                                                               \
    });                                                                                            \
  }                                                                                                \
  Type __tsan_atomic##bits##_fetch_sub(volatile Type* at, Type value, int order);                  \
  Type __tsan_atomic##bits##_fetch_sub(volatile Type* at, Type value, int order) {                 \
    return __tsan_atomic##bits##_fetch_add(at, 0 - value, order);                                  \
  }                                                                                                \
  int __tsan_atomic##bits##_compare_exchange_strong(volatile Type* at, Type* expected, Type value, \
                                                    int order, int failing);                       \
  int __tsan_atomic##bits##_compare_exchange_strong(volatile Type* at, Type* expected, Type value, \
                                                    int order, int /*failing*/) {                  \
    const Type before = __tsan_atomic##bits##_load(at, order);                                     \
    if (before == *expected) {                                                                     \
      __tsan_atomic##bits##_store(at, value, order);                                               \
      return 1;                                                                                    \
    }                                                                                              \
    *expected = before;                                                                            \
    return 0;                                                                                      \
  }                                                                                                \
  int __tsan_atomic##bits##_compare_exchange_weak(volatile Type* at, Type* expected, Type value,   \
                                                  int order, int failing);                         \
  int __tsan_atomic##bits##_compare_exchange_weak(volatile Type* at, Type* expected, Type value,   \
                                                  int order, int failing) {                        \
    return __tsan_atomic##bits##_compare_exchange_strong(at, expected, value, order, failing);     \
  }
ATOMICS(32, std::uint32_t)
ATOMICS(64, std::uint64_t)
// NOLINTEND(bugprone-macro-parentheses)

}  // extern "C"

}  // namespace zvqrn::simulation
