// The actors of a life.  Each is a function that runs on a thread of its own, in virtual time, on
// the PC (the host) or on a scanner's machine, and uses src/platform/socket.h like any program.
// What it does follows from dice of its own.
#pragma once

#include "model/book.h"

namespace zvqrn::simulation {

// ---- The host (actors/host.cpp)
// ------------------------------------------------------------------

struct HostManner {
  Dice dice;
  Micros longestCallback;
  bool sendsMuch;  // more than a connection takes at once
  bool sendsNothing;
  bool renames;  // hands in the very header that it got
};
void BeginHost(const HostManner& manner);
std::int32_t StartService();
std::int32_t StopService();  // and checks what must hold of a stop and after it
void UnloadLibrary();        // the same for an unload

// Calls exports at any moment until that time; with `lifecycle` also start and stop.
void CallExports(Dice dice, Micros until, bool lifecycle);

// ---- Scanners (actors/scanner.cpp, actors/bad_scanner.cpp)
// ---------------------------------------

// One that keeps to the protocol: several connections with a few requests each.
void BehaveWell(Dice dice, std::int32_t number, bool bulky);

// One that does not: its kind is thrown.
void BehaveBadly(Dice dice, std::int32_t number);

// Each waits for one of the library's limits, and checks it to the millisecond.
void WaitForALimit(Dice dice, std::int32_t number);

// One request that must be answered, on a new connection that must be served.
void AskOnce(std::int32_t number);

// ---- Those who search (actors/searcher.cpp)
// ------------------------------------------------------

void SearchForPcs(Dice dice, std::int32_t number, std::int32_t count);

// Datagrams that nobody has judged: searches with odd lists, and searches with bytes changed.
void SendOddDatagrams(Dice dice, std::int32_t number);

// Bytes with some of them changed, left out, or twice.
std::string Mutated(std::string bytes, Dice* dice);

// ---- The PC's surroundings (actors/surroundings.cpp)
// ---------------------------------------------

// Adapters come and go, the calendar is set.
void ChangeSurroundings(Dice dice, Micros until);

// ---- The life (actors/life.cpp)
// ------------------------------------------------------------------

// Lives the life of a seed.
void Live(std::uint64_t seed);

}  // namespace zvqrn::simulation
