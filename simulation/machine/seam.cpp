// src/platform/ on the simulated machine, but for sockets and wakers: clocks, semaphores, events,
// threads, the system's names and addresses, the code page.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <deque>

#include "machine/races.h"
#include "machine/seam.h"
#include "network/network.h"
#include "platform/address_change.h"
#include "platform/clock.h"
#include "platform/encoding.h"
#include "platform/sync.h"
#include "platform/system.h"
#include "platform/thread.h"

namespace zvqrn::platform {

struct Semaphore {
  bool isOpen;
  std::int32_t count, maximum;
};
struct Event {
  bool isOpen;
  bool isSet;
};
struct AddressNotifier {
  bool isOpen;
  Event* event;
  bool isArmed;
};

}  // namespace zvqrn::platform

namespace zvqrn::simulation {
namespace {

// Closed ones stay to the life's end, so that their use shows.
std::deque<platform::Semaphore> semaphores;
std::deque<platform::Event> events;
std::deque<platform::AddressNotifier> notifiers;

// The system tells of a change so much later at most.
constexpr Micros NOTICE_DELAY = 60 * MS;

template <typename Object>
Object* Make(std::deque<Object>* all, const Object& made, Call call) {
  SwitchPoint();
  if (Fails(call)) {
    return nullptr;
  }
  machine.handles++;
  return &all->emplace_back(made);
}

template <typename Object>
void Use(const Object* object) {
  SwitchPoint();
  if (!object->isOpen) {
    Finding("a semaphore, an event or a notifier is used that has been closed");
  }
}

template <typename Object>
void Close(Object* object) {
  Use(object);
  for (const Thread* thread : machine.threads) {
    if (thread->state == Thread::WAITING &&
        std::find(thread->waitsOn, thread->waitsOn + 3, object) != thread->waitsOn + 3) {
      Finding("what %s waits for is closed", thread->name.c_str());
    }
  }
  object->isOpen = false;
  machine.handles--;
}

Micros Until(std::int32_t milliseconds) {
  return milliseconds == platform::WAIT_WITHOUT_END ? NEVER : machine.now + milliseconds * MS;
}

bool AnyLibraryThread() {
  return std::any_of(machine.threads.begin(), machine.threads.end(),
                     [](const Thread* thread) { return thread->ofLibrary; });
}

}  // namespace

void BeginSeam() {
  semaphores.clear();
  events.clear();
  notifiers.clear();
}

void TellOfChange() {
  for (platform::AddressNotifier& notifier : notifiers) {
    if (notifier.isOpen && notifier.isArmed) {
      notifier.isArmed = false;
      At(machine.now + machine.dice.Below(NOTICE_DELAY), [&notifier] {
        if (notifier.isOpen) {
          notifier.event->isSet = true;
          Notify(notifier.event);
        }
      });
    }
  }
}

void ChangeInterfaces(const std::array<Interface, 2>& interfaces) {
  network.interfaces = interfaces;
  // Who had joined a group on an adapter that is gone is a member no more.
  for (Socket& socket : network.sockets) {
    auto& all = socket.memberships;
    all.erase(std::remove_if(all.begin(), all.end(),
                             [](const platform::GroupMembership& at) {
                               return std::none_of(network.interfaces.begin(),
                                                   network.interfaces.end(), [&](const auto& i) {
                                                     return i.isUp && i.index == at.interface;
                                                   });
                             }),
              all.end());
  }
  TellOfChange();
}

}  // namespace zvqrn::simulation

namespace zvqrn::platform {

using namespace simulation;
using simulation::events;

// ---- Clocks
// --------------------------------------------------------------------------------------

std::int64_t MonotonicMilliseconds() {
  SwitchPoint();
  // It does not begin at 0: nothing may take that for "never".
  constexpr std::int64_t BEGIN = 5000000;
  return BEGIN + machine.now / MS;
}

LocalTimeStamp ReadLocalTime() {
  SwitchPoint();
  constexpr std::int64_t BEGIN = 1772323200;  // the first of March 2026
  const Micros time = BEGIN * SECOND + machine.now + machine.calendarOffset;
  const auto seconds = static_cast<std::time_t>(time / SECOND);
  std::tm local{};
  gmtime_r(&seconds, &local);
  LocalTimeStamp stamp{};
  std::strftime(stamp.text, sizeof stamp.text, "%Y%m%d%H%M%S", &local);
  stamp.milliseconds = static_cast<std::uint32_t>(time % SECOND / MS);
  return stamp;
}

// ---- Semaphores and events
// -----------------------------------------------------------------------

Semaphore* MakeSemaphore(std::int32_t initial, std::int32_t maximum) {
  if (initial < 0 || maximum < 1 || initial > maximum) {
    return nullptr;
  }
  return Make(&semaphores, Semaphore{true, initial, maximum}, CALL_MAKE_SEMAPHORE);
}

void CloseSemaphore(Semaphore* semaphore) {
  Close(semaphore);
}

SyncResult WaitSemaphore(Semaphore* semaphore, std::int32_t milliseconds) {
  Use(semaphore);
  if (Fails(CALL_WAIT_SEMAPHORE)) {
    return SYNC_FAILED;
  }
  const Micros until = Until(milliseconds);
  while (semaphore->count == 0) {
    if (machine.now >= until) {
      return SYNC_TIMED_OUT;
    }
    WaitFor(until, semaphore);
  }
  semaphore->count--;
  Acquire(semaphore);
  return SYNC_SIGNALLED;
}

bool SignalSemaphore(Semaphore* semaphore) {
  Use(semaphore);
  if (semaphore->count == semaphore->maximum) {
    Finding("a lock is released that nobody holds");
  }
  Release(semaphore);
  semaphore->count++;
  Notify(semaphore);
  SwitchPoint();
  return true;
}

Event* MakeEvent() {
  return Make(&events, Event{true, false}, CALL_MAKE_EVENT);
}

void CloseEvent(Event* event) {
  Close(event);
}

void SignalEvent(Event* event) {
  Use(event);
  Release(event);
  event->isSet = true;
  Notify(event);
}

void ClearEvent(Event* event) {
  Use(event);
  event->isSet = false;
}

SyncResult WaitEvent(Event* event, std::int32_t milliseconds) {
  Use(event);
  if (Fails(CALL_WAIT_EVENT)) {
    return SYNC_FAILED;
  }
  const Micros until = Until(milliseconds);
  while (!event->isSet) {
    if (machine.now >= until) {
      return SYNC_TIMED_OUT;
    }
    WaitFor(until, event);
  }
  Acquire(event);
  return SYNC_SIGNALLED;
}

EitherResult WaitEitherEvent(Event* first, Event* second) {
  Use(first);
  Use(second);
  if (Fails(CALL_WAIT_EITHER)) {
    return EITHER_FAILED;
  }
  while (!first->isSet && !second->isSet) {
    WaitFor(NEVER, first, second);
  }
  Acquire(first->isSet ? first : second);
  return first->isSet ? EITHER_FIRST : EITHER_SECOND;
}

// ---- Threads
// -------------------------------------------------------------------------------------

void PrepareThreads() {}

std::uintptr_t StartThread(ThreadProcedure procedure, void* argument, StackKind stack) {
  SwitchPoint();
  if (machine.retired || Fails(CALL_START_THREAD)) {
    return 0;
  }
  constexpr std::size_t SMALL_STACK = std::size_t{256} * 1024;
  Thread* thread = Begin(
      "", PC, [=] { procedure(argument); }, stack == STACK_FOR_LIBRARY ? SMALL_STACK : LARGE_STACK);
  thread->ofLibrary = true;
  const auto id = static_cast<std::uintptr_t>(thread->number);
  DIARY("starts %s", thread->name.c_str());
  SwitchPoint();
  return id;
}

bool OnLibraryThread() {
  SwitchPoint();
  return machine.current->ofLibrary;
}

void WaitForThreads() {
  if (machine.current->ofLibrary) {
    Finding("a thread of the library waits for itself");
  }
  while (AnyLibraryThread()) {
    WaitFor(NEVER, &machine.threads);
  }
  Acquire(&machine.threads);
}

void RetireThreads() {
  SwitchPoint();
  machine.retired = true;
  if (machine.temper.likeWindows) {
    // What has not come to its first instruction never will; its work is done here.
    const std::vector<Thread*> threads = machine.threads;
    for (Thread* thread : threads) {
      if (std::find(machine.threads.begin(), machine.threads.end(), thread) !=
              machine.threads.end() &&
          thread->ofLibrary && !thread->begun) {
        Reached("an unload that does a thread's work");
        const std::function<void()> run = std::move(thread->run);
        thread->run = [] {};
        thread->begun = true;
        Acquire(thread);
        run();
      }
    }
  }
  WaitForThreads();
}

std::uintptr_t CurrentThreadId() {
  SwitchPoint();
  return static_cast<std::uintptr_t>(machine.current->number);
}

void SleepMilliseconds(std::int32_t milliseconds) {
  SwitchPoint();
  Sleep(milliseconds * MS);
}

void YieldToOthers() {
  LetOthersRun();
}

// ---- The system
// ----------------------------------------------------------------------------------

bool ReadSystemComputerName(char (&buffer)[COMPUTER_NAME_SIZE]) {
  SwitchPoint();
  std::snprintf(buffer, sizeof buffer, "%.15s", machine.computerName.c_str());
  return !Fails(CALL_COMPUTER_NAME);
}

bool ReadHostName(char (&buffer)[HOST_NAME_SIZE]) {
  SwitchPoint();
  std::snprintf(buffer, sizeof buffer, "%s", machine.computerName.c_str());
  return !Fails(CALL_HOST_NAME);
}

HostAddressResult FirstHostAddress(const char* hostName, std::uint32_t* address) {
  SwitchPoint();
  if (machine.computerName != hostName) {
    Finding("the address of another host is asked for");
  }
  *address = 0;
  if (Fails(CALL_NO_ADDRESS)) {
    return HOST_ADDRESS_NONE;
  }
  if (Fails(CALL_READ_ADDRESS)) {
    return HOST_ADDRESS_UNREADABLE;
  }
  const Interface* own = OwnInterface();
  if (own == nullptr) {
    TextToAddress("127.0.0.1", address);
  } else {
    *address = own->address;
  }
  return HOST_ADDRESS_FOUND;
}

bool CanWatchAddresses() {
  return machine.canWatchAddresses;
}

std::uint32_t CurrentProcessId() {
  return 1;
}

void WriteDebuggerLine(const char* line) {
  DIARY("to the debugger: %s", Shown(line, static_cast<std::int64_t>(std::strlen(line))).c_str());
}

void* LoadModule(const char* name) {
  SwitchPoint();
  const bool found = std::strcmp(name, "DRAVLIB") == 0 && machine.getTwainName != nullptr;
  machine.handles += found ? 1 : 0;
  return found ? &machine : nullptr;
}

void UnloadModule(void* /*module*/) {
  SwitchPoint();
  machine.handles--;
}

ModuleFunction FindModuleFunction(void* /*module*/, const char* function) {
  return std::strcmp(function, "GetTWAINName") == 0
             ? reinterpret_cast<ModuleFunction>(machine.getTwainName)
             : nullptr;
}

// ---- Changes of addresses
// ------------------------------------------------------------------------

AddressNotifier* MakeAddressNotifier(Event* event) {
  return Make(&notifiers, AddressNotifier{true, event, false}, CALL_MAKE_NOTIFIER);
}

bool ArmAddressNotifier(AddressNotifier* notifier) {
  Use(notifier);
  notifier->event->isSet = false;
  if (Fails(CALL_ARM_NOTIFIER)) {
    return false;
  }
  notifier->isArmed = true;
  return true;
}

void CloseAddressNotifier(AddressNotifier* notifier) {
  Close(notifier);
}

// ---- The code page
// -------------------------------------------------------------------------------

bool IsLeadByte(char byte) {
  const auto value = static_cast<unsigned char>(byte);
  return machine.temper.codePage == Temper::DOUBLE_BYTE && value >= 0x81 && value <= 0x9F;
}

bool IsUtf8CodePage() {
  return machine.temper.codePage == Temper::UTF8;
}

// A page of this machine's own: bytes from 0x80 on are the characters U+0080 and so on, and with
// double bytes a pair is one character from U+4E00 on.
std::int32_t AnsiToUtf8Bytes(const char* text, char* utf8, std::int32_t size) {
  if (Fails(CALL_CONVERT_TEXT)) {
    return 0;
  }
  std::string converted;
  for (const auto* at = reinterpret_cast<const unsigned char*>(text); *at != 0; at++) {
    unsigned character = *at;
    if (IsLeadByte(static_cast<char>(*at)) && at[1] != 0) {
      character = 0x4E00U + (*at - 0x81U) * 256U + at[1];
      at++;
    }
    if (character < 0x80 || IsUtf8CodePage()) {
      converted += static_cast<char>(character);
    } else if (character < 0x800) {
      converted += {static_cast<char>(0xC0U | character >> 6U),
                    static_cast<char>(0x80U | (character & 0x3FU))};
    } else {
      converted += {static_cast<char>(0xE0U | character >> 12U),
                    static_cast<char>(0x80U | (character >> 6U & 0x3FU)),
                    static_cast<char>(0x80U | (character & 0x3FU))};
    }
  }
  const auto needed = static_cast<std::int32_t>(converted.size()) + 1;
  if (utf8 != nullptr && needed <= size) {
    std::memcpy(utf8, converted.c_str(), static_cast<std::size_t>(needed));
  }
  return needed;
}

}  // namespace zvqrn::platform
