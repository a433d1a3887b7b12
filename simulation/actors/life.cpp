// A life: what its machine, network, faults and actors are like, thrown from the seed; then starts,
// stops and unloads while the actors act; and in the end a start that must be as good as new.

#include <algorithm>

#include "actors/actors.h"
#include "base/service_state.h"
#include "machine/races.h"
#include "machine/seam.h"
#include "platform/entry.h"
#include "platform/thread.h"
#include "zvqrn/zvqrn.h"

namespace zvqrn::simulation {
namespace {

std::int32_t KnowDriver(const char* product, char* driver) {
  if (utility == UTILITY_KNOWS_SLOWLY) {
    Sleep(machine.dice.Spread(400 * MS));
  }
  if (!KnowsDriver(product)) {
    return machine.dice.OneIn(2) ? 0 : 2;
  }
  DriverOf(product).copy(driver, 33);
  return 1;
}

Temper ThrowTemper(Dice* dice) {
  Temper temper{};
  temper.exact = dice->OneIn(2);
  if (!temper.exact) {
    temper.callCost = dice->OneIn(2) ? dice->Spread(200) : 0;
    temper.lateness = dice->OneIn(2) ? dice->Spread(50 * MS) : 0;
  }
  temper.byPriority = dice->OneIn(3);
  temper.switchOdds = dice->Between(2, 40);
  temper.likeWindows = dice->OneIn(2);
  constexpr Temper::CodePage PAGES[] = {Temper::WESTERN, Temper::DOUBLE_BYTE, Temper::UTF8};
  temper.codePage = dice->Of(PAGES);
  return temper;
}

Weather ThrowWeather(Dice* dice) {
  Weather weather{};
  // No scanner's message is in the middle for 0.3 s, Nagle's algorithm and all.
  weather.delay = dice->OneIn(4) ? 0 : dice->Spread(dice->OneIn(4) ? 20 * MS : 2 * MS);
  weather.jitter = dice->OneIn(3) ? dice->Spread(20 * MS) : 0;
  weather.lossOdds = dice->OneIn(3) ? 4 : 0;
  weather.doubleOdds = dice->OneIn(3) ? 4 : 0;
  weather.cutOdds = 3;
  weather.segment = dice->OneIn(4) ? dice->Between(1, 100) : 1460;
  weather.sendBuffer = (dice->OneIn(6) ? dice->Between(1, 8) : dice->Between(16, 64)) * 1024;
  weather.window = dice->Between(1, 64) * 1024;
  weather.acknowledgeDelay = dice->OneIn(2) ? 40 * MS : 200 * MS;
  weather.losesUnreadAtReset = dice->OneIn(2);
  return weather;
}

// None in half of the lives; elsewhere one to three, each once, several times, or for good.
void ThrowFaults(Dice* dice) {
  if (dice->OneIn(2)) {
    return;
  }
  for (std::int64_t i = dice->Between(1, 3); i > 0; i--) {
    const auto call = dice->OneIn(3)   ? CALL_ALLOCATE
                      : dice->OneIn(6) ? CALL_WAIT_SEMAPHORE
                                       : static_cast<Call>(dice->Below(CALL_COUNT));
    const std::int64_t most = call == CALL_ALLOCATE || call == CALL_WAIT_SEMAPHORE ? 300 : 30;
    const std::int64_t first = dice->Spread(most);
    std::int64_t count = dice->OneIn(2) ? 1 : dice->OneIn(4) ? NEVER : dice->Spread(20);
    if (call == CALL_WAKE_FOR_NOTHING || call == CALL_SEND_PIECE) {
      // For good, these make loops that end only because real calls take time.
      count = std::min<std::int64_t>(count, 1000);
    }
    machine.faults.push_back({call, first, count});
    if (call == CALL_SEND_NOTHING) {
      // A system that takes nothing takes little before that.
      machine.faults.push_back({CALL_SEND_PIECE, 1, 1000});
    }
    DIARY("plan: \"%s\" fails from its call %lld on, %lld times", CALL_NAMES[call],
          static_cast<long long>(first), static_cast<long long>(count));
  }
}

// Starts an actor on a machine of its own.
void Send(const char* what, std::int32_t number, std::function<void()> act) {
  Begin(what + std::to_string(number), number, std::move(act));
}

void SendActors(Dice* dice, bool chaos) {
  const auto own = [dice] { return Dice(dice->Next()); };
  std::int32_t number = 0;
  const bool bulky = dice->OneIn(6);
  for (std::int64_t i = dice->Between(0, 3); i > 0; i--) {
    number++;
    Send("scanner", number, [d = own(), number, bulky] { BehaveWell(d, number, bulky); });
  }
  for (std::int64_t i = dice->OneIn(2) ? dice->Between(1, 4) : 0; i > 0; i--) {
    number++;
    Send("bad", number, [d = own(), number] { BehaveBadly(d, number); });
  }
  for (std::int64_t i = dice->OneIn(2) ? dice->Between(1, 2) : 0; i > 0; i--) {
    const auto count = static_cast<std::int32_t>(dice->Between(1, 5));
    number++;
    Send("search", number, [d = own(), number, count] { SearchForPcs(d, number, count); });
  }
  if (dice->OneIn(12)) {
    number++;
    Send("odd", number, [d = own(), number] { SendOddDatagrams(d, number); });
  }
  if (dice->OneIn(10)) {
    number++;
    Send("patient", number, [d = own(), number] { WaitForALimit(d, number); });
  }
  const Micros until = machine.now + dice->Spread(10 * SECOND);
  for (std::int64_t i = chaos ? dice->Between(1, 3) : dice->OneIn(3) ? 1 : 0; i > 0; i--) {
    Begin("caller" + std::to_string(i), PC,
          [d = own(), until, chaos] { CallExports(d, until, chaos); });
  }
  if (dice->OneIn(4)) {
    Begin("weather", PC, [d = own(), until] { ChangeSurroundings(d, until); });
  }
}

bool AnyActor() {
  return machine.threads.size() > 1 + static_cast<std::size_t>(std::count_if(
                                          machine.threads.begin(), machine.threads.end(),
                                          [](const Thread* thread) { return thread->ofLibrary; }));
}

void WaitForActors() {
  while (AnyActor()) {
    WaitFor(NEVER, &machine.threads);
  }
}

bool Load() {
  BeginMemory();
  WatchRecord(&service, sizeof service);
  book.isLoaded = true;
  const bool loaded = platform::OnLibraryLoad();
  book.handlesOfLoad = machine.handles;
  DIARY("the library is loaded: %d", loaded ? 1 : 0);
  return loaded;
}

bool RunsNow() {
  std::int32_t length = 0;
  return QRNGetPCName(nullptr, &length) == 1;
}

constexpr std::size_t FIRST_FINDER = 90;  // scanners' numbers, one a run

// One run: start, a while, stop or unload.  True when the library has been unloaded.
bool Run(Dice* dice, bool chaos, const std::function<void()>& sendActors) {
  Socket* taken = dice->OneIn(20)
                      ? TakePort(dice->OneIn(2) ? Socket::LISTENING : Socket::DATAGRAM, 2968)
                      : nullptr;
  if (dice->OneIn(8)) {
    std::array<Interface, 2> interfaces = network.interfaces;
    interfaces[0].isUp = interfaces[1].isUp = false;
    EnterInterfaces(interfaces);
  }
  const bool hasAddress = OwnInterface() != nullptr;
  const std::int32_t changes = book.addressChanges;
  if (dice->OneIn(20)) {
    // The address changes while the service starts.
    std::array<Interface, 2> swapped = network.interfaces;
    std::swap(swapped[0].isUp, swapped[1].isUp);
    swapped[0].isUp = swapped[0].isUp || !hasAddress;
    At(machine.now + dice->Below(3 * MS), [swapped] { EnterInterfaces(swapped); });
  }
  const std::int32_t started = StartService();
  if (!chaos && machine.failures == 0 && book.addressChanges == changes &&
      started != (taken != nullptr || (!hasAddress && !machine.canWatchAddresses) ? 0 : 1) &&
      (hasAddress || taken == nullptr)) {
    Finding("the start gives %d", started);
  }
  if (!chaos && started == 0 && machine.failures == 0) {
    book.servesSince = NEVER;
  }
  // One that could not have its turn, or not ask whether the service runs, undoes nothing.
  if (!chaos && started == 0 && service.serviceRunning.load() == 0 &&
      service.watcherStopEvent == nullptr && machine.handles != book.handlesOfLoad) {
    Finding("after a start in vain %lld semaphores, events or other objects are left",
            static_cast<long long>(machine.handles - book.handlesOfLoad));
  }
  book.runs = !chaos && started == 1 && RunsNow();
  Sleep(1);  // what begins from now on is undisturbed by the start
  sendActors();
  if (taken != nullptr) {
    Reached("a start without its port");
    GivePortBack(taken);
  }
  if (!hasAddress) {
    Sleep(dice->Spread(2 * SECOND));
    if (OwnInterface() == nullptr) {
      std::array<Interface, 2> interfaces = network.interfaces;
      interfaces[static_cast<std::size_t>(dice->Below(2))].isUp = true;
      EnterInterfaces(interfaces);
    }
    const std::int32_t changesNow = book.addressChanges;
    Sleep(2 * SECOND);
    const bool runs = RunsNow();
    if (!chaos && started == 1 && taken == nullptr && machine.failures == 0 &&
        changesNow == book.addressChanges && !runs) {
      Finding("an address has come, and the service does not run");
    }
    Reached("an address that comes");
    book.runs = !chaos && runs;
  }
  const Micros from = machine.now;
  if (dice->OneIn(2)) {
    Sleep(dice->Spread(12 * SECOND));
  } else {
    WaitForActors();
  }
  if (!chaos && book.addressChanges != changes && dice->OneIn(2)) {
    // Whatever changed, the PC can be found where it is now.
    WaitForActors();
    Sleep(SETTLES_WITHIN);
    const auto finder = static_cast<std::int32_t>(FIRST_FINDER + book.ended.size());
    Send("finder", finder, [d = Dice(dice->Next()), finder] { SearchForPcs(d, finder, 2); });
    WaitForActors();
  }
  if (book.runs) {
    book.served.emplace_back(from, machine.now);
  }
  const bool unloads = dice->OneIn(4) && !chaos;
  const bool ran = book.runs && machine.failures == 0;
  book.runs = false;
  if (unloads) {
    Reached("an unload without a stop");
    UnloadLibrary();
  } else {
    const std::int32_t stopped = StopService();
    if (ran && machine.failures == 0 && stopped != 1) {
      Finding("the stop gives %d", stopped);
    }
  }
  return unloads;
}

// Nothing fails any more: the library is as good as new.
void ProveItself(Dice* dice) {
  machine.faultsOn = false;
  book.hadFailures = machine.failures > 0;
  machine.failures = 0;
  book.exportsAreCalled = book.mutations = book.stalls = book.unloads = false;
  std::array<Interface, 2> interfaces = network.interfaces;
  interfaces[0].isUp = true;
  ChangeInterfaces(interfaces);
  Sleep(SECOND);
  if (service.runLock.semaphore.load() == nullptr && !Load()) {
    Finding("the next load fails");
  }
  StopService();  // a service that could not be stopped, or waits
  book.servesSince = NEVER;
  if (StartService() != 1) {
    Finding("the next start fails");
  }
  book.runs = true;
  Sleep(10 * MS);
  Begin("last", 99, [] { AskOnce(99); });
  WaitForActors();
  book.runs = false;
  if (dice->OneIn(8)) {
    // The process ends: that takes no time, whatever still runs.
    const Micros begin = machine.now;
    platform::OnLibraryUnload(true);
    if (machine.temper.exact && machine.now != begin) {
      Finding("the end of the process waits for something");
    }
  } else if (StopService() != 1) {
    Finding("the next stop fails");
  }
  UnloadLibrary();
}

void Direct(std::uint64_t seed) {
  Dice dice(seed * 2 + 1);
  BeginSeam();
  BeginNetwork(ThrowWeather(&dice));
  BeginBook();
  constexpr Utility UTILITIES[] = {UTILITY_KNOWS, UTILITY_KNOWS, UTILITY_KNOWS,
                                   UTILITY_KNOWS_SLOWLY, UTILITY_MISSING};
  utility = dice.Of(UTILITIES);
  machine.getTwainName = utility == UTILITY_MISSING ? nullptr : &KnowDriver;
  // Where characters have two bytes the last two end in half a one.
  const char* const names[] = {"OFFICE-PC", "A(1),B\\", "\x83\\(", "AB\x83", "\x83"};
  machine.computerName = dice.OneIn(2) ? names[0] : dice.Of(names);
  machine.canWatchAddresses = !dice.OneIn(6);
  book.names = {machine.computerName};
  BeginHost({Dice(dice.Next()), dice.OneIn(4) ? dice.Between(1, 20 * SECOND) : dice.Spread(SECOND),
             dice.OneIn(6), dice.OneIn(4), dice.OneIn(4)});
  ThrowFaults(&dice);
  const bool chaos = dice.OneIn(6);
  book.exportsAreCalled = book.wasChaos = chaos;
  machine.faultsOn = true;
  if (Load()) {
    // Mostly there is a service when they come.
    const bool early = dice.OneIn(4);
    bool sent = early;
    if (early) {
      SendActors(&dice, chaos);
    }
    bool unloaded = false;
    for (std::int64_t runs = dice.Between(1, 3); runs > 0 && !unloaded; runs--) {
      unloaded = Run(&dice, chaos, [&] {
        if (!sent) {
          sent = true;
          SendActors(&dice, chaos);
        }
      });
    }
    // Nobody calls a library that is not there.
    WaitForActors();
    if (!unloaded) {
      StopService();
      UnloadLibrary();
    }
  } else {
    UnloadLibrary();
  }
  ProveItself(&dice);
  CheckLife();
}

}  // namespace

void Live(std::uint64_t seed) {
  Dice dice(seed * 2);
  RunLife(seed, ThrowTemper(&dice), [seed] { Direct(seed); });
  Reached("a life");
}

}  // namespace zvqrn::simulation
