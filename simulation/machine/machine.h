// The simulated machine: threads that are fibers, a clock that jumps to the next event, and dice
// that decide at every call of the seam who goes on.  A life is one run from an empty machine to an
// empty machine; everything in it follows from its seed.
//
// One thread of the system runs all this, so nothing here is locked.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "machine/fiber.h"
#include "machine/random.h"

namespace zvqrn::simulation {

// Virtual time, in microseconds since the life's beginning.
using Micros = std::int64_t;
constexpr Micros MS = 1000;
constexpr Micros SECOND = 1000 * MS;
constexpr Micros NEVER = INT64_MAX;

// What a life's machine is like.
struct Temper {
  // Waits end on the microsecond and code takes no time, so limits can be checked to the
  // millisecond.  Otherwise each call of the seam takes up to `callCost`, and waits end up to
  // `lateness` late.
  bool exact;
  Micros callCost;
  Micros lateness;
  // Who runs: at one call in `switchOdds` anybody who can; or, with `byPriority`, always the ready
  // thread with the highest priority, which is random and drops at a few random calls
  // (probabilistic concurrency testing, Burckhardt et al., ASPLOS 2010).
  std::int64_t switchOdds;
  bool byPriority;
  // Where the two real systems differ, this machine does as Windows does.
  bool likeWindows;
  enum CodePage { WESTERN, DOUBLE_BYTE, UTF8 } codePage;
};

struct Thread {
  std::int32_t number;  // 1, 2, ... in the life; also its id
  std::string name;
  Fiber* fiber;
  std::function<void()> run;
  std::int32_t machine;  // on which it runs: PC, or a scanner's number
  bool ofLibrary;        // made by platform::StartThread
  bool begun;
  enum State { READY, WAITING, ENDED } state;
  Micros wakeAt;           // while it waits
  const void* waitsOn[3];  // what else ends its wait
  std::int64_t priority;
};

// The PC, on which the library runs, among the machines of the network.
constexpr std::int32_t PC = 0;

// The calls of the seam that can fail, and what else can go wrong with one.
enum Call : std::int32_t {
  CALL_ALLOCATE,
  CALL_START_THREAD,
  CALL_MAKE_SEMAPHORE,
  CALL_WAIT_SEMAPHORE,
  CALL_MAKE_EVENT,
  CALL_WAIT_EVENT,
  CALL_WAIT_EITHER,
  CALL_MAKE_WAKER,
  CALL_START_SOCKETS,
  CALL_OPEN_SOCKET,
  CALL_BIND,
  CALL_BOUND_PORT,
  CALL_LISTEN,
  CALL_ACCEPT,
  CALL_WAIT_SOCKET,
  CALL_WAIT_WOKEN,
  CALL_WAKE_FOR_NOTHING,
  CALL_RECEIVE,
  CALL_SEND,
  CALL_SEND_NOTHING,
  CALL_SEND_PIECE,
  CALL_JOIN,
  CALL_RECEIVE_DATAGRAM,
  CALL_SEND_DATAGRAM,
  CALL_MAKE_NOTIFIER,
  CALL_ARM_NOTIFIER,
  CALL_COMPUTER_NAME,
  CALL_HOST_NAME,
  CALL_NO_ADDRESS,
  CALL_READ_ADDRESS,
  CALL_CONVERT_TEXT,
  CALL_COUNT
};
extern const char* const CALL_NAMES[CALL_COUNT];

// A call that fails, from its `first` time on, `count` times; NEVER as a count is for good.
struct Fault {
  Call call;
  std::int64_t first;
  std::int64_t count;
};

struct Machine {
  std::uint64_t seed;
  Temper temper;
  Dice dice;  // of the machine and the network; each actor has its own
  Micros now;
  Thread* current;
  std::vector<Thread*> threads;  // that have not ended
  bool retired;                  // the library is being unloaded: no thread can be started
  std::vector<Fault> faults;
  bool faultsOn;
  std::int64_t calls[CALL_COUNT];
  std::int64_t failures;    // so far
  std::int64_t handles;     // open objects of the library's, of whatever kind
  std::int64_t socketUses;  // StartSockets without EndSockets
  Micros calendarOffset;    // of the calendar from the clock
  std::string computerName;
  bool canWatchAddresses;
  // GetTWAINName of the utility library; null: there is none, or it has no such function.
  std::int32_t (*getTwainName)(const char* product, char* driver);
};
extern Machine machine;

// Runs a life: `director` and the threads it starts, until the last has ended.
void RunLife(std::uint64_t seed, const Temper& temper, const std::function<void()>& director);
bool InLife();

// Starts a thread of an actor's or a host's; without a name it is called by its number.
constexpr std::size_t LARGE_STACK = std::size_t{1024} * 1024;
Thread* Begin(const std::string& name, std::int32_t onMachine, std::function<void()> run,
              std::size_t stackBytes = LARGE_STACK);

// A call of the seam: somebody else may run before it goes on.  Counts it.
void SwitchPoint();

// Lets others run first.
void LetOthersRun();

// Waits until one of the objects is told of by Notify (others may have taken what it was about), or
// until that time; false when the time has come.
bool WaitFor(Micros until, const void* first, const void* second = nullptr,
             const void* third = nullptr);
void Notify(const void* object);
inline void Sleep(Micros time) {
  WaitFor(machine.now + time, nullptr);
}

// Has something happen at that time, on nobody's thread: it must not wait.
void At(Micros time, std::function<void()> act);

// True when this call of the library's fails by the life's plan.
bool Fails(Call call);

// ---- Memory (machine/memory.cpp): calloc and free of the rooms
// -----------------------------------

void BeginMemory();
// Says what has been written to after its release, and what has not been released; empty when
// there is nothing of both.
std::string EndMemory();

// ---- The diary ----------------------------------------------------------------------------------

// Whether lines are written; then they go to the standard output.
extern bool diaryOn;
#define DIARY(...) (diaryOn ? ::zvqrn::simulation::WriteDiary(__VA_ARGS__) : void())
void WriteDiary(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Bytes as one line, cut to what a reader takes in.
std::string Shown(const void* bytes, std::int64_t size);

// Something does not hold: says what, and ends the program (main.cpp prints the diary).
[[noreturn]] void Finding(const char* format, ...) __attribute__((format(printf, 1, 2)));
[[noreturn]] void ReportFinding(const std::string& what);

// Counts a state that lives should reach; `what` lives for ever.
void Reached(const char* what);

}  // namespace zvqrn::simulation
