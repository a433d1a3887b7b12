// The host: its callbacks, its calls of the exports, and what must hold of them.

#include <cstring>

#include "actors/actors.h"
#include "base/service_state.h"
#include "machine/races.h"
#include "platform/clock.h"
#include "platform/entry.h"
#include "platform/thread.h"
#include "zvqrn/zvqrn.h"

namespace zvqrn::simulation {
namespace {

// A call of an export by a thread that an unload waits for; a library that is not loaded is not
// called.
class ExportCall {
 public:
  ExportCall() { book.calls++; }
  ~ExportCall() {
    book.calls--;
    Release(&book);
  }
};

HostManner host;
std::int64_t dataMade = 0;

// Values that the library must hand back.
char filterValue, eventValue, statusValue;

constexpr Micros LONGEST_STATUS = 300 * MS;

constexpr std::int32_t VERDICTS[] = {1, 1, 1, 1, 2, 3, 5, 6, 7, 8, 9, 9, 0, -1, 42};

std::string MakeData() {
  const std::int64_t size = host.sendsMuch && !host.dice.OneIn(3)
                                ? host.dice.Between(1, 3 * network.weather.sendBuffer)
                                : host.dice.Between(1, 40);
  std::string data = std::to_string(++dataMade);
  data.resize(std::max(data.size(), static_cast<std::size_t>(size)), 'd');
  return data;
}

// Sends data for a request; the header is the host's copy, or the library's own, which is then
// renamed.
void SendData(EventHeader* header, Request* request, bool renames) {
  const std::string data = MakeData();
  Conversation* conversation = ConversationOf(request);
  const std::int32_t result =
      QRNSendData(header, data.data(), static_cast<std::int32_t>(data.size()));
  DIARY("sends data for %s: %d", request->uid.c_str(), result);
  const bool inside = request->hostCalls > 0 && !request->hasVerdict;
  const bool isEnd = header->subevent == SUBEVENT_END;
  if (inside && book.runs && IsUnique(*conversation, *request) &&
      Undisturbed(conversation->begunAt) && result != (isEnd ? 0 : 1)) {
    Finding("QRNSendData gives %d inside the callback of %s", result, request->uid.c_str());
  }
  EnterHostData(request, *header, data, result, renames && result == 1);
}

// Later, from a thread of the host's own, for a START that has been answered.
void SendLater(Request* request, const EventHeader& copy, Micros pause) {
  Begin("sender", PC, [request, copy, pause] {
    Sleep(pause);
    const ExportCall call;
    if (!book.isLoaded) {
      return;
    }
    EventHeader header = copy;
    const std::string data = MakeData();
    const std::int32_t result =
        QRNSendData(&header, data.data(), static_cast<std::int32_t>(data.size()));
    DIARY("sends data later for %s: %d", request->uid.c_str(), result);
    EnterHostData(request, header, data, result, false);
  });
}

void CallInside(const char* where) {
  std::int32_t length = 0;
  const std::int32_t results[] = {
      QRNStartService(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), QRNStopService(),
      StartService()};
  for (const std::int32_t result : results) {
    if (result != 0) {
      Finding("a start or stop inside %s gives %d", where, result);
    }
  }
  QRNGetPCName(nullptr, &length);
}

// A callback takes its time, once in so many; mostly little, sometimes as much as it may.
void TakeTime(std::int64_t odds) {
  if (host.dice.OneIn(odds)) {
    Sleep(host.dice.OneIn(4) ? host.dice.Below(host.longestCallback + 1)
                             : host.dice.Spread(host.longestCallback));
  }
}

std::int32_t QRN_CALLBACK OnEvent(EventHeader* header, std::int32_t kind, const void* data,
                                  std::int32_t size, void* context) {
  if (context != &eventValue || book.servesSince == NEVER) {
    Finding(context != &eventValue ? "another context value" : "a callback of a stopped service");
  }
  const EventHeader before = *header;
  const std::string dataBefore(static_cast<const char*>(data), static_cast<std::size_t>(size));
  DIARY("the host gets %s", header->uid);
  Request* request = EnterHostCall(header, kind, data, size);
  if (host.dice.OneIn(12)) {
    CallInside("ScanEventCallback");
  }
  TakeTime(2);
  bool renamed = false;
  if (request != nullptr && !host.sendsNothing && host.dice.OneIn(4)) {
    renamed = host.renames && host.dice.OneIn(2) && IsUnique(*ConversationOf(request), *request);
    EventHeader copy = *header;
    SendData(renamed ? header : &copy, request, renamed);
  }
  TakeTime(4);
  if ((!renamed && std::memcmp(header, &before, sizeof before) != 0) ||
      dataBefore != std::string(static_cast<const char*>(data), static_cast<std::size_t>(size))) {
    Finding("the record of %s changes while the host has it", before.uid);
  }
  if (request != nullptr && !host.sendsNothing && before.subevent == SUBEVENT_START &&
      host.dice.OneIn(2)) {
    SendLater(request, *header, host.dice.Spread(SECOND));
  }
  const std::int32_t verdict = host.dice.Of(VERDICTS);
  DIARY("the host answers %s with %d", before.uid, verdict);
  EnterVerdict(request, verdict);
  return verdict;
}

std::int32_t QRN_CALLBACK OnFilter(const PeerDescription* peer, void* context) {
  if (context != &filterValue || book.servesSince == NEVER) {
    Finding(context != &filterValue ? "another context value" : "a callback of a stopped service");
  }
  book.callbacks++;
  const Micros begin = machine.now;
  if (host.dice.OneIn(12)) {
    CallInside("PeerFilterCallback");
  }
  TakeTime(3);
  Search* asked = nullptr;
  for (Search& search : book.searches) {
    asked = search.tags == peer->tagList ? &search : asked;
  }
  if (asked == nullptr && book.oddSearches) {
    book.callbacks--;
    book.lastCallbackAt = machine.now;
    return 1;
  }
  if (asked == nullptr || asked->scope != peer->scopeList || asked->url != peer->serviceType ||
      DriverOf(asked->scope) != peer->driverName) {
    Finding("the host is asked about %s, %s", peer->scopeList, peer->tagList);
  }
  book.callbacks--;
  book.lastCallbackAt = machine.now;
  asked->filterCalls.emplace_back(begin, machine.now);
  return asked->hostSays;
}

std::int32_t QRN_CALLBACK OnStatus(std::int32_t statusClass, std::int32_t statusCode,
                                   const char* message, void* context) {
  const bool isRestart = statusClass == QRN_STATUS_CLASS_NOTICE &&
                         statusCode == QRN_STATUS_RESTART &&
                         std::strcmp(message, "Service restart.") == 0;
  const bool isNoNetwork =
      statusClass == QRN_STATUS_CLASS_ERROR && statusCode == QRN_STATUS_NO_NETWORK &&
      std::strcmp(message, "There is no network interface card which can be used.") == 0;
  if (context != &statusValue || (!isRestart && !isNoNetwork)) {
    Finding("a status that is none: %d %d %s", statusClass, statusCode, message);
  }
  DIARY("status %d %d", statusClass, statusCode);
  Reached(isRestart ? "told of a restart" : "told of no network");
  std::int32_t length = 0;
  if (QRNGetPCName(nullptr, &length) != 0 || QRNStopService() != 0) {
    Finding("an export works inside StatusCallback");
  }
  if (host.dice.OneIn(4)) {
    book.slowStatus = true;
    Sleep(host.dice.Spread(LONGEST_STATUS));
    book.lastCallbackAt = machine.now;
  }
  return 0;
}

// After a stop nothing of the service is left but what the load made, after an unload nothing.
void CheckStopped(const char* after, std::int64_t handlesLeft) {
  for (const Thread* thread : machine.threads) {
    if (thread->ofLibrary) {
      Finding("%s is left after %s", thread->name.c_str(), after);
    }
  }
  if (OpenSockets() != 0 || machine.socketUses != 0 || book.callbacks != 0) {
    Finding("after %s %lld sockets are open, sockets are used %lld times, %d callbacks run", after,
            static_cast<long long>(OpenSockets()), static_cast<long long>(machine.socketUses),
            book.callbacks);
  }
  if (machine.handles != handlesLeft) {
    Finding("after %s %lld semaphores, events or other objects are left", after,
            static_cast<long long>(machine.handles - handlesLeft));
  }
}

// How long a stop may take behind the last callback: discovery's burst; what is due to a scanner,
// twice 2 s when it does not read; the steps of 300 ms between.
void CheckStopTime(Micros begin, const char* what) {
  constexpr Micros STEP = 300 * MS;
  const Micros most = book.stalls || book.mutations ? 6 * SECOND : 2 * SECOND + 3 * STEP;
  const Micros from = std::max(begin, book.lastCallbackAt);
  const Micros took = machine.now - from;
  const Micros slack = machine.temper.exact && utility != UTILITY_KNOWS_SLOWLY
                           ? 0
                           : 3 * SECOND + 20 * machine.temper.lateness;
  if (took > most + slack) {
    Finding("%s takes %lld ms", what, static_cast<long long>(took / MS));
  }
  if (machine.now - begin < STEP && machine.failures == 0) {
    Finding("%s looks at nothing", what);
  }
}

// Calls with arguments that no export takes.
void CallWrongly(Dice* dice) {
  EventHeader header{};
  std::int32_t length = 0;
  const std::int32_t results[] = {
      QRNGetPCName(nullptr, nullptr),
      QRNSetPCName(nullptr, 3),
      QRNSetPCName("ABC", 0),
      QRNSetPCName("1234567890123456", 16),
      QRNSendData(nullptr, "x", 1),
      QRNSendData(&header, nullptr, 1),
      QRNSendData(&header, "x", 0),
      QRNStartService(dice->OneIn(2) ? nullptr : &OnFilter, nullptr, &OnStatus, nullptr, nullptr,
                      nullptr),
      QRNStartService(nullptr, &OnEvent, &OnStatus, nullptr, nullptr, nullptr),
      QRNStartService(&OnFilter, &OnEvent, nullptr, nullptr, nullptr, nullptr)};
  for (const std::int32_t result : results) {
    if (result != 0) {
      Finding("an export takes wrong arguments and gives %d", result);
    }
  }
  QRNGetPCName(nullptr, &length);
}

}  // namespace

void BeginHost(const HostManner& manner) {
  host = manner;
  dataMade = 0;
}

std::int32_t StartService() {
  book.starts++;
  const bool isFirst = book.servesSince == NEVER && book.starts == 1;
  if (isFirst) {
    book.servesSince = machine.now;
  }
  const std::int32_t result =
      QRNStartService(&OnFilter, &OnEvent, &OnStatus, &filterValue, &eventValue, &statusValue);
  DIARY("QRNStartService gives %d", result);
  book.starts--;
  NoteDisturbance();
  return result;
}

std::int32_t StopService() {
  const Micros begin = machine.now;
  book.stops++;
  DIARY("QRNStopService ...");
  const std::int32_t result = QRNStopService();
  DIARY("QRNStopService gives %d", result);
  book.ended.emplace_back(begin, machine.now);
  book.stops--;
  NoteDisturbance();
  if (!book.exportsAreCalled) {
    if (result == 1) {
      CheckStopTime(begin, "the stop");
    }
    // A stop that cannot have its turn stops nothing.
    if (result == 1 || machine.failures == 0) {
      CheckStopped("the stop", book.handlesOfLoad);
      book.servesSince = NEVER;
    }
  }
  return result;
}

void UnloadLibrary() {
  book.isLoaded = false;
  while (book.calls > 0) {
    Sleep(MS);
  }
  Acquire(&book);
  const Micros begin = machine.now;
  const bool serves = service.serviceRunning.load() == 1;
  book.stops++;
  book.unloads = true;
  DIARY("the library is unloaded ...");
  platform::OnLibraryUnload(false);
  DIARY("the library is unloaded");
  book.ended.emplace_back(begin, machine.now);
  book.stops--;
  NoteDisturbance();
  book.servesSince = NEVER;
  if (serves && !book.exportsAreCalled) {
    CheckStopTime(begin, "the unload");
  }
  // The use of the socket library cannot be ended while the system unloads a library.
  machine.socketUses = 0;
  CheckStopped("the unload", 0);
  const std::string left = EndMemory();
  if (!left.empty()) {
    Finding("after the unload %s", left.c_str());
  }
  // The next load begins with fresh data.
  service.~ServiceState();
  new (&service) ServiceState{};
  machine.retired = false;
}

void CallExports(Dice dice, Micros until, bool lifecycle) {
  for (; machine.now < until; Sleep(dice.Spread(SECOND))) {
    char name[20];
    auto length = static_cast<std::int32_t>(dice.Below(17));
    const ExportCall call;
    if (!book.isLoaded) {
      return;
    }
    const Micros begin = machine.now;
    switch (dice.Below(lifecycle ? 6 : 4)) {
      case 0: {
        const std::int32_t result = QRNGetPCName(name, &length);
        if (Undisturbed(begin) && book.runs && result != 1 && result != QRN_BUFFER_TOO_SMALL) {
          Finding("QRNGetPCName gives %d", result);
        }
        break;
      }
      case 1: {
        // The second is one character on a page with such, the fifth the half of one.
        const char* const names[] = {"A", "\x83\\", "\xB1", "(,)", "\x83", "sixteen bytes..."};
        std::string wanted = dice.Of(names);
        wanted += dice.OneIn(2) ? "" : "B";
        wanted[0] = dice.OneIn(12) ? '\0' : wanted[0];  // a name of which nothing can be told
        book.names.push_back(wanted);
        QRNSetPCName(wanted.data(), static_cast<std::int32_t>(wanted.size()));
        break;
      }
      case 2: {
        EventHeader header{};
        if (QRNSendData(&header, "x", 1) != 0) {
          Finding("data for a request that nobody has made is taken");
        }
        break;
      }
      case 3:
        CallWrongly(&dice);
        break;
      case 4:
        StartService();
        break;
      default:
        StopService();
    }
  }
}

}  // namespace zvqrn::simulation
