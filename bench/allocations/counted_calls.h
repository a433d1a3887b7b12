// Counts what the library asks of the heap and copies, in a program that is linked with ld's --wrap
// for malloc, calloc, realloc, free, memcpy and memmove.  Calls from inside the system's own
// libraries are not seen, nor are copies that the compiler makes without a call.
#pragma once

#include <atomic>
#include <cstdint>

namespace zvqrn::bench {

struct Counted {
  std::atomic<std::uint64_t> allocations;  // malloc, calloc, and realloc that gives a block
  std::atomic<std::uint64_t> releases;     // free of a block
  std::atomic<std::uint64_t> bytesAllocated;
  std::atomic<std::uint64_t> bytesCopied;
};
extern Counted counted;

// True on a thread of the benchmark itself, whose calls do not count.
extern thread_local bool isBenchThread;

}  // namespace zvqrn::bench
