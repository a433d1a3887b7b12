// The memory of the rooms: their calloc and free come here (ld's --wrap).  Every block is counted,
// can be refused, and is a place where the thread may change.  Without the address sanitiser a
// block that is freed is filled and not used again in its life, and blocks have a mark behind them:
// so what is written where it must not be shows at the life's end.

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "machine/machine.h"
#include "machine/races.h"

extern "C" void* __real_calloc(std::size_t count, std::size_t size);
extern "C" void __real_free(void* block);
extern "C" void* __wrap_calloc(std::size_t count, std::size_t size);
extern "C" void __wrap_free(void* block);

namespace zvqrn::simulation {
namespace {

struct alignas(16) Header {
  std::uint32_t mark;  // IN_USE, RELEASED or OUTSIDE
  std::uint32_t number;
  std::size_t size;
};
constexpr std::uint32_t IN_USE = 0x51A1B10C;
constexpr std::uint32_t RELEASED = 0x0DEADB10;
constexpr std::uint32_t OUTSIDE = 0x0E15E0E1;  // of no life
constexpr unsigned char FILL = 0xDD;
constexpr unsigned char BEHIND = 0xB7;
constexpr std::size_t BEHIND_BYTES = 8;

std::vector<Header*> blocks;  // of this life

#if defined(__SANITIZE_ADDRESS__)

constexpr bool KEEPS_RELEASED = false;
void* TakeBytes(std::size_t size) {
  return __real_calloc(1, size);
}

#else

constexpr bool KEEPS_RELEASED = true;

// Most that a life asks for, all together: rooms that want more copy what grows again and again.
constexpr std::size_t ARENA_BYTES = std::size_t{1} << 26U;
char* arena = nullptr;
std::size_t arenaUsed = 0;

void* TakeBytes(std::size_t size) {
  if (arena == nullptr) {
    void* memory = mmap(nullptr, ARENA_BYTES, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    arena = memory == MAP_FAILED ? nullptr : static_cast<char*>(memory);
    WatchArena(arena, arena != nullptr ? ARENA_BYTES : 0);
  }
  const std::size_t rounded = (size + 15) / 16 * 16;
  if (arena == nullptr) {
    return nullptr;
  }
  if (ARENA_BYTES - arenaUsed < rounded) {
    Finding("more than %zu MiB were asked for in one life, most of them to copy",
            ARENA_BYTES >> 20U);
  }
  void* bytes = arena + arenaUsed;
  arenaUsed += rounded;
  return std::memset(bytes, 0, size);
}

#endif

unsigned char* BytesOf(Header* header) {
  return reinterpret_cast<unsigned char*>(header + 1);
}

bool IsFilled(const unsigned char* bytes, std::size_t size, unsigned char with) {
  return std::all_of(bytes, bytes + size, [with](unsigned char byte) { return byte == with; });
}

}  // namespace

void BeginMemory() {
  blocks.clear();
  BeginRaces();
#if !defined(__SANITIZE_ADDRESS__)
  constexpr std::size_t KEPT = std::size_t{16} << 20U;
  if (arenaUsed > KEPT) {
    madvise(arena, arenaUsed, MADV_DONTNEED);
  }
  arenaUsed = 0;
#endif
}

std::string EndMemory() {
  if (!KEEPS_RELEASED) {
    return blocks.empty() ? "" : "a block of " + std::to_string(blocks[0]->size) + " bytes is left";
  }
  for (Header* header : blocks) {
    const std::string name = "block " + std::to_string(header->number) + " of " +
                             std::to_string(header->size) + " bytes";
    if (header->mark != RELEASED) {
      return header->mark == IN_USE ? name + " is left" : name + " was written before";
    }
    if (!IsFilled(BytesOf(header), header->size, FILL)) {
      return name + " was written to after its release";
    }
  }
  return "";
}

}  // namespace zvqrn::simulation

using namespace zvqrn::simulation;

void* __wrap_calloc(std::size_t count, std::size_t size) {
  const std::size_t bytes = count * size;
  if (InLife()) {
    SwitchPoint();
    if (Fails(CALL_ALLOCATE)) {
      return nullptr;
    }
  }
  auto* header = static_cast<Header*>(InLife() ? TakeBytes(sizeof(Header) + bytes + BEHIND_BYTES)
                                               : __real_calloc(1, sizeof(Header) + bytes));
  if (header == nullptr) {
    return nullptr;
  }
  header->mark = InLife() ? IN_USE : OUTSIDE;
  header->size = bytes;
  if (InLife()) {
    header->number = static_cast<std::uint32_t>(machine.calls[CALL_ALLOCATE]);
    blocks.push_back(header);
    if (KEEPS_RELEASED) {
      std::memset(BytesOf(header) + bytes, BEHIND, BEHIND_BYTES);
    }
  }
  return header + 1;
}

void __wrap_free(void* block) {
  if (block == nullptr) {
    return;
  }
  auto* header = static_cast<Header*>(block) - 1;
  if (header->mark == OUTSIDE) {
    __real_free(header);
    return;
  }
  if (header->mark != IN_USE) {
    Finding("a block is released that %s", header->mark == RELEASED ? "was before" : "is none");
  }
  if (KEEPS_RELEASED && !IsFilled(BytesOf(header) + header->size, BEHIND_BYTES, BEHIND)) {
    Finding("block %u of %zu bytes was written past its end", header->number, header->size);
  }
  if (KEEPS_RELEASED) {
    header->mark = RELEASED;
    std::memset(BytesOf(header), FILL, header->size);
  } else {
    blocks.erase(std::find(blocks.begin(), blocks.end(), header));
    __real_free(header);
  }
  SwitchPoint();
}
