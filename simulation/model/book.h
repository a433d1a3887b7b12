// The book of a life: what scanners have sent, what the host has met and said, what has come back;
// and what must hold of it, checked with each entry.  Actors make the entries.
//
// While something is wrong with the machine (a fault has struck, a stop or an unload is on its way)
// less must hold: "undisturbed" says when everything must.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "model/rules.h"
#include "network/network.h"

namespace zvqrn::simulation {

// Data that the host has queued.
struct HostData {
  std::string bytes;
  Request* request;      // whose
  std::int32_t callers;  // thread that queued it
  bool insideCallback;
  bool isHeard;
};

// A connection, from its scanner's side.
struct Conversation {
  platform::SocketHandle socket;  // the scanner's end
  std::string name;
  Micros begunAt;
  bool isPolite;  // it sends whole messages of the protocol and reads what comes
  bool isBulky;   // more data is on its way than fits: answers wait
  bool isTurnedAway;
  bool isServed;
  std::deque<Request> requests;
  std::deque<HostData> data;
  std::int64_t heard;  // bytes of whole messages so far
};

struct Book {
  std::deque<Conversation> conversations;
  std::deque<Search> searches;
  Micros disturbedAt;      // last moment of a disturbance so far; -1: none
  std::int32_t stops;      // stops and unloads on their way
  std::int32_t starts;     // starts on their way
  std::int32_t callbacks;  // of the host's, at work
  Micros lastCallbackAt;   // end of the last one
  Micros servesSince;      // a start has begun, and no stop has ended it; NEVER otherwise
  bool runs;               // it runs, as the one who starts and stops it knows
  bool hadFailures;
  bool unloads;  // while the service runs: threads cannot be started any more
  bool isLoaded;
  std::int64_t handlesOfLoad;      // open objects of the library's when it was loaded
  std::int32_t calls;              // of exports, by threads of the host's
  bool oddSearches;                // so do searchers
  bool mutations;                  // scanners send bytes that nobody has judged
  bool exportsAreCalled;           // start and stop by threads that nobody keeps track of
  bool stalls;                     // a scanner does not read: sends may stall
  std::vector<std::string> names;  // that the PC has had
  std::vector<std::string> addresses;
  Micros addressChangedAt;
  std::int32_t addressChanges;
  std::string ownAddress;                         // of the PC since then; empty without an adapter
  std::vector<std::pair<Micros, Micros>> served;  // from a start that serves to the next stop
  std::vector<std::pair<Micros, Micros>> ended;   // from a stop's or unload's begin to its end
  bool wasChaos;

  bool slowStatus;  // StatusCallback has taken time, for which others may wait

  // Whether nothing has failed and nobody is slow without saying so; whether then the library must
  // take up what it hears at once; and whether it served at that time.
  bool IsCalm() const;
  bool IsPrompt() const;
  bool ServedAt(Micros time) const;
};
extern Book book;

void BeginBook();

// Whether nothing has disturbed the service from that time on.
bool Undisturbed(Micros since);
void NoteDisturbance();

// Adapters come or go; so much later that is known, and bursts that had begun before are over.
constexpr Micros SETTLES_WITHIN = 3 * SECOND;
void EnterInterfaces(const std::array<Interface, 2>& interfaces);

Conversation* NewConversation(platform::SocketHandle socket, const std::string& name, bool polite);

// Enters a request that is about to be sent, and judges what is known of its START; the copy that
// is kept.
Request* EnterRequest(Conversation* conversation, const Request& request);

// The host has got a request, and has given its verdict.
Request* EnterHostCall(const EventHeader* header, std::int32_t kind, const void* data,
                       std::int32_t size);
void EnterVerdict(Request* request, std::int32_t verdict);

// The host has called QRNSendData with a header that named `request`; `fresh` is the header after.
void EnterHostData(Request* request, const EventHeader& fresh, const std::string& data,
                   std::int32_t result, bool renames);
Conversation* ConversationOf(const Request* request);
// Whether no other request of the conversation has its uid.
bool IsUnique(const Conversation& conversation, const Request& request);

// A scanner has heard a whole message, or the end.
void EnterHeard(Conversation* conversation, const std::string& message);
void EnterEnd(Conversation* conversation, bool byReset);

// A polite scanner that has waited long enough: nothing of its may be missing.
void CheckNothingIsMissing(const Conversation& conversation);
bool SomethingIsDue(const Conversation& conversation);

// How many connections the library has at once.
void CheckConnections();

// What can be told of the whole life only: searches and their replies.
void CheckLife();

}  // namespace zvqrn::simulation
