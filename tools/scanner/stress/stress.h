// What the parts of the stress command share: an attack on a PC (one kind of bad scanner, at one
// place), what came of it, and the well-behaved scanner beside it.
//
// An attack runs on a thread of its own.  That thread alone writes the tally; the command reads it
// when the thread has ended.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "scanner/exchange/request_options.h"
#include "scanner/wire/connection.h"

namespace zvqrn::scanner {

// Where the bad scanners stand.  A PC serves one connection in full, its main one.
enum Place {
  PLACE_BESIDE,  // the well-behaved scanner has the main connection
  PLACE_BEFORE,  // a bad one has it
};

// What the bad scanners did, and what they got.
struct Tally {
  std::int64_t connections = 0;
  std::int64_t notConnected = 0;  // the PC had no room for the connection, or was not there
  std::int64_t messages = 0;      // whole requests, or pieces and datagrams of other kinds
  std::int64_t bytes = 0;
  std::int64_t closed = 0;                      // connections that the PC ended
  std::map<std::string, std::int64_t> answers;  // by x-status; "data" for the host's data
  std::vector<std::string> problems;            // wrong answers, the first few
};

struct Kind;

struct Attack {
  const Kind* kind = nullptr;
  RequestOptions request;
  std::uint32_t address = 0;   // network byte order
  bool multicast = false;      // discovery also to the group
  bool reachesHost = false;    // the host accepts these requests, so a START stays open
  std::uint32_t firstUid = 0;  // uids and XIDs are counted from here
  std::atomic<bool> stop{false};
  std::atomic<bool> inPlace{false};  // the first bad scanner is connected
  Tally tally;
};

// A kind of bad scanner.
struct Kind {
  const char* name;
  const char* help;
  bool crowded;   // it may hold every connection that the PC has, so that others are closed
  bool datagram;  // it has no connection, and thus one place only
  void (*run)(Attack* attack);
};

const std::vector<Kind>& Kinds();

// How a PC answers a request that it serves: the yardstick of every later answer.
struct ServedAnswer {
  std::string status;
  std::string statusOut;
};

// What the well-behaved scanner got.
struct Service {
  std::vector<double> answerMs;  // from the request (before the connection, when it makes one)
  std::int64_t served = 0;
  std::int64_t busy = 0;
  std::int64_t closed = 0;
  std::int64_t missed = 0;  // no answer in time, or no way to the PC
  double recoveryMs = 0;    // from the end of the attack to the next request served
  std::vector<std::string> problems;
};

struct KindResult {
  const Kind* kind = nullptr;
  Tally tally[2];  // by Place
  Service service[2];
};

// Notes a problem unless there are enough of them to read.
void NoteProblem(std::vector<std::string>* problems, const std::string& problem);

// How the well-behaved scanner goes about it.
struct GoodScanner {
  RequestOptions request;
  ServedAnswer expected;
  bool notAlone = false;  // busy answers and ended connections prove nothing
};

// Connects and asks until a request is served, at most the link's time-out; throws a Failure when
// none is.  Gives the connection, which is then the PC's main one.
OpenConnection AwaitService(const GoodScanner& scanner, ServedAnswer* served);

// Sends requests until `endMs` of the monotonic clock: on `connection`, the main one, or when there
// is none on a new connection for each.
void SendBesideAttack(const GoodScanner& scanner, const Kind& kind, Place place, std::int64_t endMs,
                      OpenConnection connection, Service* service);

// The report on one kind; `json`: as one object.
void PrintKindResult(bool json, const KindResult& result);

// True when nothing was wrong with the answers, or with their coming.
bool AnswersWereRight(const KindResult& result);
bool NothingWasMissed(const KindResult& result);

}  // namespace zvqrn::scanner
