#include "machine/machine.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "machine/races.h"

namespace zvqrn::simulation {

Machine machine;
bool diaryOn = false;

const char* const CALL_NAMES[CALL_COUNT] = {"allocate",
                                            "start thread",
                                            "make semaphore",
                                            "wait for semaphore",
                                            "make event",
                                            "wait for event",
                                            "wait for either",
                                            "make waker",
                                            "start sockets",
                                            "open socket",
                                            "bind",
                                            "bound port",
                                            "listen",
                                            "accept",
                                            "wait for socket",
                                            "wait or woken",
                                            "woken for nothing",
                                            "receive",
                                            "send",
                                            "send nothing",
                                            "send a piece",
                                            "join group",
                                            "receive datagram",
                                            "send datagram",
                                            "make notifier",
                                            "arm notifier",
                                            "computer name",
                                            "host name",
                                            "no address",
                                            "read address",
                                            "convert text"};

namespace {

// More calls of the seam than these without any time passing are an endless loop.
constexpr std::int64_t CALLS_WITHOUT_TIME = 400000;

// A thread that lets others run so often, when there is nobody, is waiting for time to pass.
constexpr std::int64_t YIELDS_ALONE = 64;

// No life lasts that long.
constexpr Micros LIFE_LIMIT = 14400 * SECOND;

// How many of a life's calls are likely places for a priority to drop.
constexpr std::int64_t PRIORITY_CALLS = 5000;
constexpr std::int64_t PRIORITY_DROPS = 5;

struct Event {
  Micros time;
  std::int64_t number;
  std::function<void()> act;
};
bool IsLater(const Event& a, const Event& b) {
  return a.time != b.time ? a.time > b.time : a.number > b.number;
}

std::vector<Event> events;  // a heap, the next one first
std::int64_t eventsMade = 0;
std::int64_t threadsMade = 0;
std::int64_t callsWithoutTime = 0;
std::int64_t yieldsAlone = 0;
std::int64_t allCalls = 0;
std::vector<std::int64_t> drops;  // calls at which the running thread's priority drops
std::int64_t lowest = 0;          // priority so far
Micros nextWake = 0;              // no thread wakes before this

void AdvanceTo(Micros time) {
  machine.now = time;
  callsWithoutTime = 0;
  if (time > LIFE_LIMIT) {
    Finding("the life does not end");
  }
}

void MakeReady(Thread* thread) {
  thread->state = Thread::READY;
  thread->waitsOn[0] = thread->waitsOn[1] = thread->waitsOn[2] = nullptr;
}

// Has happen what is due, and wakes whose time has come.
void RunDue() {
  while (!events.empty() && events.front().time <= machine.now) {
    std::pop_heap(events.begin(), events.end(), IsLater);
    const std::function<void()> act = std::move(events.back().act);
    events.pop_back();
    act();
  }
  if (nextWake <= machine.now) {
    nextWake = NEVER;
    for (Thread* thread : machine.threads) {
      if (thread->state == Thread::WAITING && thread->wakeAt <= machine.now) {
        MakeReady(thread);
      } else if (thread->state == Thread::WAITING) {
        nextWake = std::min(nextWake, thread->wakeAt);
      }
    }
  }
}

Micros NextDue() {
  Micros next = events.empty() ? NEVER : events.front().time;
  for (const Thread* thread : machine.threads) {
    if (thread->state == Thread::WAITING) {
      next = std::min(next, thread->wakeAt);
    }
  }
  return next;
}

[[noreturn]] void ReportDeadlock() {
  std::string who;
  for (const Thread* thread : machine.threads) {
    who += " " + thread->name;
  }
  Finding("deadlock: nothing will ever happen, and these still wait:%s", who.c_str());
}

// One of the ready threads but `spared`; null when there is none.
Thread* ChooseReady(const Thread* spared) {
  Thread* chosen = nullptr;
  std::int64_t ready = 0;
  for (Thread* thread : machine.threads) {
    if (thread->state != Thread::READY || thread == spared) {
      continue;
    }
    ready++;
    if (machine.temper.byPriority) {
      chosen = chosen == nullptr || thread->priority > chosen->priority ? thread : chosen;
    } else if (machine.dice.Below(ready) == 0) {
      chosen = thread;
    }
  }
  return chosen;
}

// The thread that goes on, when need be after time has passed; null when no thread is left.
Thread* ChooseNext() {
  for (;;) {
    RunDue();
    if (Thread* thread = ChooseReady(nullptr)) {
      return thread;
    }
    if (machine.threads.empty()) {
      return nullptr;
    }
    const Micros next = NextDue();
    if (next == NEVER) {
      ReportDeadlock();
    }
    AdvanceTo(std::max(next, machine.now));
  }
}

void GoOnWith(Thread* thread) {
  if (thread != machine.current) {
    yieldsAlone = 0;
    machine.current = thread;
    SwitchTo(thread->fiber);
  }
}

void RunThread(void* argument) {
  auto* self = static_cast<Thread*>(argument);
  self->begun = true;
  Acquire(self);
  self->run();
  Release(&machine.threads);
  self->state = Thread::ENDED;
  DIARY("ends");
  machine.threads.erase(std::find(machine.threads.begin(), machine.threads.end(), self));
  Notify(&machine.threads);
  Thread* next = ChooseNext();
  machine.current = next;
  Fiber* fiber = next != nullptr ? next->fiber : MainFiber();
  delete self;
  SwitchTo(fiber, true);
}

}  // namespace

bool InLife() {
  return machine.current != nullptr;
}

void RunLife(std::uint64_t seed, const Temper& temper, const std::function<void()>& director) {
  machine = Machine{};
  machine.seed = seed;
  machine.temper = temper;
  machine.dice = Dice(seed);
  events.clear();
  eventsMade = threadsMade = callsWithoutTime = yieldsAlone = allCalls = lowest = 0;
  nextWake = NEVER;
  drops.clear();
  for (std::int64_t i = 0; temper.byPriority && i < PRIORITY_DROPS; i++) {
    drops.push_back(machine.dice.Below(PRIORITY_CALLS));
  }
  Thread* first = Begin("director", PC, director);
  machine.current = first;
  SwitchTo(first->fiber);
}

Thread* Begin(const std::string& name, std::int32_t onMachine, std::function<void()> run,
              std::size_t stackBytes) {
  auto* thread = new Thread{};
  thread->number = static_cast<std::int32_t>(++threadsMade);
  thread->name = name.empty() ? "T" + std::to_string(thread->number) : name;
  thread->run = std::move(run);
  thread->machine = onMachine;
  thread->priority = machine.dice.Between(1, 1000000);
  thread->fiber = MakeFiber(&RunThread, thread, stackBytes);
  machine.threads.push_back(thread);
  if (InLife()) {
    Release(thread);
  }
  return thread;
}

void SwitchPoint() {
  if (!InLife()) {
    return;
  }
  allCalls++;
  if (++callsWithoutTime > CALLS_WITHOUT_TIME) {
    Finding("an endless loop: %lld calls in no time", static_cast<long long>(CALLS_WITHOUT_TIME));
  }
  Thread* self = machine.current;
  if (machine.temper.callCost > 0) {
    machine.now += machine.dice.Below(machine.temper.callCost);
    RunDue();
  }
  if (machine.temper.byPriority) {
    if (std::find(drops.begin(), drops.end(), allCalls) != drops.end()) {
      self->priority = --lowest;
    }
    GoOnWith(ChooseNext());
  } else if (machine.dice.OneIn(machine.temper.switchOdds)) {
    GoOnWith(ChooseNext());
  }
}

void LetOthersRun() {
  SwitchPoint();
  Thread* self = machine.current;
  self->priority = --lowest;
  RunDue();
  Thread* other = ChooseReady(self);
  if (other == nullptr) {
    // Nobody else can run before something happens; whoever goes on asking waits for that.
    if (++yieldsAlone < YIELDS_ALONE) {
      return;
    }
    const Micros next = NextDue();
    if (next == NEVER) {
      ReportDeadlock();
    }
    AdvanceTo(std::max(next, machine.now));
    RunDue();
    return;
  }
  GoOnWith(other);
}

bool WaitFor(Micros until, const void* first, const void* second, const void* third) {
  Thread* self = machine.current;
  const Micros late = until != NEVER && machine.temper.lateness > 0 && self->machine == PC
                          ? machine.dice.Below(machine.temper.lateness)
                          : 0;
  self->wakeAt = until == NEVER ? NEVER : std::max(until, machine.now) + late;
  self->waitsOn[0] = first;
  self->waitsOn[1] = second;
  self->waitsOn[2] = third;
  self->state = Thread::WAITING;
  nextWake = std::min(nextWake, self->wakeAt);
  GoOnWith(ChooseNext());
  return machine.now < until;
}

void Notify(const void* object) {
  for (Thread* thread : machine.threads) {
    if (thread->state == Thread::WAITING &&
        (thread->waitsOn[0] == object || thread->waitsOn[1] == object ||
         thread->waitsOn[2] == object)) {
      MakeReady(thread);
    }
  }
}

void At(Micros time, std::function<void()> act) {
  events.push_back(Event{time, eventsMade++, std::move(act)});
  std::push_heap(events.begin(), events.end(), IsLater);
}

bool Fails(Call call) {
  if (!machine.faultsOn || machine.current == nullptr || machine.current->machine != PC) {
    return false;
  }
  const std::int64_t number = ++machine.calls[call];
  for (const Fault& fault : machine.faults) {
    if (fault.call == call && number >= fault.first && number - fault.first < fault.count) {
      machine.failures++;
      Reached(CALL_NAMES[call]);
      DIARY("FAULT: %s", CALL_NAMES[call]);
      return true;
    }
  }
  return false;
}

void WriteDiary(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::printf("%6lld.%06lld  %-10s ", static_cast<long long>(machine.now / SECOND),
              static_cast<long long>(machine.now % SECOND),
              machine.current != nullptr ? machine.current->name.c_str() : "-");
  std::vprintf(format, arguments);
  std::putchar('\n');
  va_end(arguments);
}

std::string Shown(const void* bytes, std::int64_t size) {
  constexpr std::int64_t MOST = 1000;
  std::string text = "\"";
  const auto* data = static_cast<const unsigned char*>(bytes);
  for (std::int64_t i = 0; i < std::min(size, MOST); i++) {
    char escape[8] = {static_cast<char>(data[i])};
    if (data[i] == '\r' || data[i] == '\n') {
      std::snprintf(escape, sizeof escape, data[i] == '\r' ? "\\r" : "\\n");
    } else if (data[i] < ' ' || data[i] > '~') {
      std::snprintf(escape, sizeof escape, "\\x%02X", data[i]);
    }
    text += escape;
  }
  return text + (size > MOST ? "\"..." : "\"");
}

void Finding(const char* format, ...) {
  char text[2000];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  ReportFinding(text);
}

}  // namespace zvqrn::simulation
