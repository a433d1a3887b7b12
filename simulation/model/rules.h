// What must become of a scanner's request, and the exact bytes of what the library sends: written
// from the rules of docs/protocol.md, with nothing of the library's own code.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "machine/machine.h"
#include "platform/socket.h"
#include "zvqrn/zvqrn.h"

namespace zvqrn::simulation {

// A request as its scanner makes it; an empty text is a header that it leaves out.
struct Request {
  std::string protocol, version, uid, subevent, parent;
  enum Body { FOR_V1, FOR_V2, BAD_VALUE, RESPONSE, RUBBISH, NOTHING } body;
  std::string product;  // in the document
  std::int32_t number;  // in the document: a width, or the push-scan ID
  std::string bytes;    // the whole message

  // What became of it.
  bool isWhole;                      // its last byte has been given to the network
  std::int64_t endsAt;               // place of that byte in the connection's stream
  bool mayBeRefused, mustBeRefused;  // an END, by what is known of its START
  std::int32_t hostCalls;
  bool hasVerdict;
  std::int32_t verdict;
  Micros verdictAt;
  std::string currentUid;  // the host may rename it
  bool isAnswered;
  std::string answer;
};

// Writes `bytes`.
void WriteRequest(Request* request, Dice* dice);

enum Fate { DROPPED, REFUSED, ANSWERED_BY_LIBRARY, FOR_HOST };
struct Judgement {
  Fate fate;
  std::string status;   // of a refusal; or the one under which it is accepted
  std::string version;  // of the answer
  std::int32_t subevent;
  std::string parent;     // in the answer
  std::int32_t response;  // of the library's own answer
  std::int32_t documentKind;
};

// What the PC knows of scanners; the utility library may be missing.
enum Utility { UTILITY_MISSING, UTILITY_KNOWS, UTILITY_KNOWS_SLOWLY };
extern Utility utility;
bool KnowsDriver(const std::string& product);
std::string DriverOf(const std::string& product);

// Judges a request; `openStart` says whether an END's START is open.
Judgement Judge(const Request& request, bool openStart);

// The data that the host must get.
std::string DataFor(const Request& request, const Judgement& judgement);

// Whole messages of the library's.
std::string Answer(const Judgement& judgement, const std::string& uid, const std::string& status,
                   std::int32_t response);
std::string AnswerOfVerdict(const Judgement& judgement, const std::string& uid,
                            std::int32_t verdict);
std::string BusyAnswerToExtra(const Request& request);
std::string HostMessage(const EventHeader& header, const std::string& parent,
                        const std::string& data);

// ---- Discovery
// -----------------------------------------------------------------------------------

struct Search {
  std::int32_t xid;
  std::string language, responders, url, scope, tags;
  std::int32_t hostSays;  // when it is asked
  std::int32_t searcher;  // its machine
  std::string bytes;
  std::vector<std::pair<Micros, Micros>> filterCalls;
};
void WriteSearch(Search* search);

// True when the search deserves a reply from a PC with this address, as far as its bytes say; then
// `asksHost` says whether the host decides.
bool DeservesReply(const Search& search, const std::string& address, bool* asksHost);
// Empty for a name of which nothing can be told.
std::string Reply(const Search& search, const std::string& name, const std::string& address);

}  // namespace zvqrn::simulation
