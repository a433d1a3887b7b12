#include "model/book.h"

#include <algorithm>

namespace zvqrn::simulation {

Book book;

namespace {

// A connection that ends keeps others waiting for so long, all together; it is 5 s less what the
// listener has spent on looking twice.
constexpr Micros PATIENCE = 4 * SECOND;

// A connection that takes so much for sending takes all answers at once.
constexpr std::int64_t FITS_EVERYTHING = 16384;

const char* Name(const Request& request) {
  return request.uid.c_str();
}

// The library's end of a conversation; null before it has been accepted.
const Socket* ServerOf(const Conversation& conversation) {
  return SocketOf(conversation.socket)->peer;
}

// When the byte before `place` passed a mark; NEVER when it has not.
Micros TimeOf(const std::vector<StreamMark>& marks, std::int64_t place) {
  const auto mark = std::lower_bound(
      marks.begin(), marks.end(), place,
      [](const StreamMark& each, std::int64_t wanted) { return each.end < wanted; });
  return mark == marks.end() ? NEVER : mark->time;
}

// The first moment from `from` on at which no message of the scanner's was in the middle: until
// then the library waits for nothing but its rest.
Micros WholeFrom(const Conversation& conversation, Micros from) {
  const std::vector<StreamMark>& marks = ServerOf(conversation)->cameMarks;
  for (std::size_t i = 0; i < marks.size(); i++) {
    const bool isLast = i + 1 == marks.size();
    const Micros until = isLast ? NEVER : marks[i + 1].time;
    const bool isWhole =
        std::any_of(conversation.requests.begin(), conversation.requests.end(),
                    [&](const Request& request) { return request.endsAt == marks[i].end; });
    if (until > from && until > marks[i].time && (isWhole || isLast)) {
      return isWhole ? std::max(from, marks[i].time) : NEVER;
    }
  }
  return from;
}

// When the library can begin to serve a connection: it waits a little for the end of the one
// before.
Micros ServesFrom(const Conversation& conversation) {
  const Socket* server = ServerOf(conversation);
  Micros from = server->acceptedAt;
  for (const Socket& other : network.sockets) {
    if (&other != server && other.machine == PC && other.acceptedAt <= server->acceptedAt &&
        other.closedAt >= server->acceptedAt && other.closedAt != NEVER) {
      from = std::max(from, other.closedAt + MS);
    }
  }
  return from;
}

bool IsPrompt(const Conversation& conversation) {
  return machine.temper.exact && utility != UTILITY_KNOWS_SLOWLY && !conversation.isBulky &&
         conversation.isPolite && Undisturbed(conversation.begunAt);
}

// Whether an answer that the scanner has heard is one that may be.
bool MayBeAnswer(const Conversation& conversation, const Request& request,
                 const std::string& message) {
  const bool disturbed = !Undisturbed(conversation.begunAt);
  const std::string& uid = request.currentUid;
  for (const bool open : {false, true}) {
    const bool isPossible = request.parent.empty() ||
                            (open ? !request.mustBeRefused : request.mayBeRefused || disturbed);
    if (!isPossible) {
      continue;
    }
    const Judgement judgement = Judge(request, open);
    if (judgement.fate == DROPPED) {
      continue;
    }
    const bool isRefusal = judgement.fate == REFUSED && request.hostCalls == 0;
    if (isRefusal && message == Answer(judgement, uid, judgement.status, 0)) {
      Reached(judgement.status == "1001"   ? "refused 1001"
              : judgement.status == "1003" ? "refused 1003"
              : judgement.status == "1004" ? "refused 1004"
              : judgement.status == "2002" ? "refused 2002"
                                           : "refused 2003");
      return true;
    }
    if (judgement.fate == ANSWERED_BY_LIBRARY &&
        message == Answer(judgement, uid, judgement.status, judgement.response)) {
      Reached("answered without a driver");
      return true;
    }
    if (judgement.fate == FOR_HOST && request.hasVerdict &&
        message == AnswerOfVerdict(judgement, uid, request.verdict)) {
      Reached(request.verdict == QRN_RESPONSE_BUSY ? "answered busy by the host"
                                                   : "answered by the host");
      return true;
    }
    // A stop answers for the host, and what cannot be had is told.
    if (disturbed && request.hostCalls == 0 && message == Answer(judgement, uid, "2001", 0)) {
      Reached("answered busy by a stop");
      return true;
    }
    if ((machine.failures > 0 || book.unloads) && message == Answer(judgement, uid, "3001", 0)) {
      Reached("answered 3001");
      return true;
    }
  }
  return false;
}

bool DataIsDue(const Conversation& conversation, const Request& request) {
  return std::any_of(conversation.data.begin(), conversation.data.end(), [&](const HostData& data) {
    return data.request == &request && data.insideCallback && !data.isHeard;
  });
}

// A refusal is not overtaken by a later one, and what the host has sent for a request comes before
// its answer.
void CheckOrder(const Conversation& conversation, const Request& answered) {
  for (const Request& earlier : conversation.requests) {
    if (&earlier == &answered) {
      break;
    }
    if (!earlier.isAnswered && earlier.isWhole && Judge(earlier, false).fate == REFUSED &&
        earlier.subevent.empty() && Judge(answered, false).fate == REFUSED &&
        machine.failures == 0) {
      Finding("%s: the refusal of %s comes before that of %s", conversation.name.c_str(),
              Name(answered), Name(earlier));
    }
  }
  if (DataIsDue(conversation, answered) && machine.failures == 0) {
    Finding("%s: the answer to %s comes before what the host has sent for it",
            conversation.name.c_str(), Name(answered));
  }
}

// An answer leaves when it is there, not at the next look.
void CheckPromptness(const Conversation& conversation, const Request& request, std::int64_t end) {
  if (!IsPrompt(conversation) || !IsUnique(conversation, request)) {
    return;
  }
  const Socket* server = ServerOf(conversation);
  const Micros sent = TimeOf(server->sentMarks, end);
  const Micros from =
      request.hasVerdict ? request.verdictAt : TimeOf(server->cameMarks, request.endsAt);
  if (sent < from || sent > WholeFrom(conversation, std::max(from, ServesFrom(conversation)))) {
    Finding("%s: the answer to %s was there at %lld us and was sent at %lld us",
            conversation.name.c_str(), Name(request), static_cast<long long>(from),
            static_cast<long long>(sent));
  }
}

void HearAnswer(Conversation* conversation, const std::string& message) {
  const std::string uid = "\r\nx-uid : ";
  const std::size_t at = message.find(uid);
  const std::size_t begin = at == std::string::npos ? 0 : at + uid.size();
  const std::string named = message.substr(begin, message.find("\r\n", begin) - begin);
  bool isDouble = false;
  Request* answered = nullptr;
  for (Request& request : conversation->requests) {
    if (request.currentUid != named) {
      continue;
    }
    isDouble = isDouble || (request.isAnswered && request.answer == message);
    // Of several with one uid it may be any; rather one that the host has judged.
    if (!request.isAnswered && MayBeAnswer(*conversation, request, message) &&
        (answered == nullptr || DataIsDue(*conversation, *answered) ||
         (request.hasVerdict && !answered->hasVerdict))) {
      answered = &request;
    }
  }
  if (answered != nullptr) {
    CheckOrder(*conversation, *answered);
    answered->isAnswered = true;
    answered->answer = message;
    // A stop answers a single request as one that finds the place taken is answered.
    conversation->isServed = conversation->isServed || message != BusyAnswerToExtra(*answered);
    CheckPromptness(*conversation, *answered, conversation->heard);
    return;
  }
  // Of several with one uid nobody can tell which one a fault has struck.
  for (const Request& request : conversation->requests) {
    if (request.uid == named && machine.failures > 0 && !IsUnique(*conversation, request)) {
      return;
    }
  }
  // What a connection hears that found the place taken is the first thing that it hears.
  const Request& first = conversation->requests.front();
  if (!conversation->isServed && message == BusyAnswerToExtra(first)) {
    conversation->isTurnedAway = true;
    return;
  }
  Finding("%s hears %s: %s", conversation->name.c_str(),
          isDouble ? "an answer twice" : "what it must not",
          Shown(message.data(), static_cast<std::int64_t>(message.size())).c_str());
}

void HearData(Conversation* conversation, const std::string& message) {
  for (HostData& data : conversation->data) {
    if (data.isHeard || data.bytes != message) {
      continue;
    }
    for (const HostData& earlier : conversation->data) {
      if (&earlier == &data) {
        break;
      }
      if (!earlier.isHeard && earlier.callers == data.callers && machine.failures == 0) {
        Finding("%s: what the host sent comes in another order", conversation->name.c_str());
      }
    }
    data.isHeard = true;
    conversation->isServed = true;
    Reached("the host's data");
    return;
  }
  // It may come before QRNSendData has returned, which the book hears of only then.
  conversation->data.push_back(HostData{message, nullptr, 0, false, true});
}

// A connection that was accepted while no other was there must be served.
void CheckTurnedAway(const Conversation& conversation) {
  const Socket* server = ServerOf(conversation);
  // Another program may have the port, which a service that waits for an address finds out later.
  if (!Undisturbed(conversation.begunAt) || server == nullptr || !book.runs) {
    return;
  }
  for (const Socket& other : network.sockets) {
    if (other.machine != PC || other.kind != Socket::STREAM || &other == server ||
        other.acceptedAt > server->acceptedAt || other.closedAt < server->acceptedAt) {
      continue;
    }
    const bool isExtra = std::any_of(
        book.conversations.begin(), book.conversations.end(),
        [&](const Conversation& each) { return each.isTurnedAway && ServerOf(each) == &other; });
    // As under Windows, a scanner may seem to have gone when bytes of its wait.
    const Micros endingSince = machine.temper.likeWindows ? other.acceptedAt : other.peerGoneAt;
    if (!isExtra &&
        (other.peerGoneAt >= server->acceptedAt || machine.now - endingSince >= PATIENCE)) {
      Reached("turned away");
      return;
    }
  }
  Finding("%s was turned away, and nobody else was there", conversation.name.c_str());
}

}  // namespace

void BeginBook() {
  book = Book{};
  book.addresses = {"10.68.0.2", "10.68.0.3"};
  book.disturbedAt = -1;
  book.servesSince = NEVER;
  EnterInterfaces(network.interfaces);
  book.addressChangedAt = -NEVER;
  book.addressChanges = 0;
}

void EnterInterfaces(const std::array<Interface, 2>& interfaces) {
  DIARY("the adapters are %s and %s", interfaces[0].isUp ? "up" : "down",
        interfaces[1].isUp ? "up" : "down");
  book.addressChangedAt = machine.now;
  book.addressChanges++;
  ChangeInterfaces(interfaces);
  const Interface* own = OwnInterface();
  book.ownAddress = own == nullptr ? "" : book.addresses[own->index - 1];
}

bool Undisturbed(Micros since) {
  return machine.failures == 0 && book.stops == 0 && book.starts == 0 && book.disturbedAt < since &&
         !book.exportsAreCalled;
}

void NoteDisturbance() {
  book.disturbedAt = machine.now;
}

Conversation* NewConversation(platform::SocketHandle socket, const std::string& name, bool polite) {
  Conversation& conversation = book.conversations.emplace_back();
  conversation.socket = socket;
  conversation.name = name;
  conversation.isPolite = polite;
  conversation.isBulky = network.weather.sendBuffer < FITS_EVERYTHING;
  conversation.begunAt = machine.now;
  return &conversation;
}

bool IsUnique(const Conversation& conversation, const Request& request) {
  std::int32_t count = 0;
  for (const Request& other : conversation.requests) {
    count += other.uid == request.uid || other.currentUid == request.currentUid ? 1 : 0;
  }
  return count == 1;
}

Request* EnterRequest(Conversation* conversation, const Request& request) {
  conversation->requests.push_back(request);
  Request* entered = &conversation->requests.back();
  // Counted by the socket: a scanner may have given bytes that are no request.
  entered->endsAt =
      SocketOf(conversation->socket)->given + static_cast<std::int64_t>(request.bytes.size());
  if (request.parent.empty()) {
    return entered;
  }
  // An END is sure of its START when the START's answer has been heard and nothing else has that
  // uid or names it; and it is lost when no START was ever called so.
  std::int32_t named = 0;
  bool answered = false;
  bool disputed = false;
  for (const Request& other : conversation->requests) {
    if (&other == entered) {
      continue;
    }
    const bool isIt = other.currentUid == request.parent || other.uid == request.parent;
    named += isIt ? 1 : 0;
    answered = answered || (isIt && other.currentUid == request.parent && other.isAnswered &&
                            other.hasVerdict && other.subevent == "START");
    disputed = disputed || other.parent == request.parent;
  }
  entered->mustBeRefused = named == 0;
  entered->mayBeRefused = !(named == 1 && answered && !disputed && entered->uid != request.parent);
  return entered;
}

Conversation* ConversationOf(const Request* request) {
  for (Conversation& conversation : book.conversations) {
    for (const Request& each : conversation.requests) {
      if (&each == request) {
        return &conversation;
      }
    }
  }
  return nullptr;
}

// Whether the host must get a request like this.
static bool Fits(const Request& request, const EventHeader& header, std::int32_t kind,
                 const std::string& data) {
  const Judgement judgement = Judge(request, !request.mustBeRefused);
  return judgement.fate == FOR_HOST && header.subevent == judgement.subevent &&
         header.exchangeType == (judgement.subevent == SUBEVENT_NONE ? 1 : 2) &&
         judgement.version == header.protocolVersion && kind == judgement.documentKind &&
         DataFor(request, judgement) == data;
}

Request* EnterHostCall(const EventHeader* header, std::int32_t kind, const void* data,
                       std::int32_t size) {
  const std::string given(static_cast<const char*>(data), static_cast<std::size_t>(size));
  book.callbacks++;
  Conversation* owner = nullptr;
  Request* found = nullptr;
  for (Conversation& conversation : book.conversations) {
    for (Request& request : conversation.requests) {
      if (request.uid != header->uid || !request.isWhole || request.hostCalls != 0) {
        continue;
      }
      // Of several with one uid it is the one that looks like this.
      if (found == nullptr ||
          (Fits(request, *header, kind, given) && !Fits(*found, *header, kind, given))) {
        owner = &conversation;
        found = &request;
      }
    }
  }
  if (found == nullptr) {
    if (!book.mutations) {
      Finding("the host gets a request that nobody has made, or gets one twice: %s", header->uid);
    }
    return nullptr;
  }
  found->hostCalls++;
  owner->isServed = true;
  if (!Fits(*found, *header, kind, given)) {
    Finding("the host gets %s, which it must not get like that", Name(*found));
  }
  if (IsPrompt(*owner)) {
    const Socket* server = ServerOf(*owner);
    const Micros came = TimeOf(server->cameMarks, found->endsAt);
    const Micros most = WholeFrom(*owner, std::max(came, ServesFrom(*owner)));
    if (machine.now < came || machine.now > most) {
      Finding("%s came at %lld us, and the host gets it later", Name(*found),
              static_cast<long long>(came));
    }
  }
  CheckConnections();
  return found;
}

void EnterVerdict(Request* request, std::int32_t verdict) {
  book.callbacks--;
  book.lastCallbackAt = machine.now;
  if (request != nullptr) {
    request->hasVerdict = true;
    request->verdict = verdict;
    request->verdictAt = machine.now;
  }
}

void EnterHostData(Request* request, const EventHeader& fresh, const std::string& data,
                   std::int32_t result, bool renames) {
  Conversation* conversation = ConversationOf(request);
  if (result == 0) {
    return;
  }
  const std::string uid = fresh.uid;
  if (uid.size() < 15 || uid.size() > 17 ||
      uid.find_first_not_of("0123456789") != std::string::npos) {
    Finding("the host's data has the uid %s", uid.c_str());
  }
  if (renames) {
    request->currentUid = uid;
  }
  HostData queued{HostMessage(fresh, request->currentUid, data), request, machine.current->number,
                  request->hostCalls > 0 && !request->hasVerdict, false};
  conversation->isBulky = conversation->isBulky ||
                          static_cast<std::int64_t>(data.size()) > network.weather.sendBuffer / 4;
  for (HostData& heard : conversation->data) {
    if (heard.request == nullptr && heard.bytes == queued.bytes) {
      heard.request = request;
      return;
    }
  }
  conversation->data.push_back(queued);
}

void EnterHeard(Conversation* conversation, const std::string& message) {
  conversation->heard += static_cast<std::int64_t>(message.size());
  CheckConnections();
  if (message.compare(0, 5, "POST ") == 0) {
    HearData(conversation, message);
  } else if (conversation->isPolite) {
    HearAnswer(conversation, message);
  }
}

void EnterEnd(Conversation* conversation, bool byReset) {
  // Closed without a word: more connections were there than there are places.
  if (conversation->isTurnedAway || (!conversation->isServed && conversation->isPolite)) {
    conversation->isTurnedAway = true;
    CheckTurnedAway(*conversation);
  } else if (conversation->isPolite && Undisturbed(conversation->begunAt)) {
    Finding("%s was closed", conversation->name.c_str());
  }
  // A stop sends what is due before it ends a connection; it has 2 s for that, in which much goes
  // through a good network.
  const Weather& weather = network.weather;
  const bool isFast = weather.delay + weather.jitter <= 2 * MS && weather.segment > 1000 &&
                      weather.window >= 16384 && weather.acknowledgeDelay < 100 * MS;
  const bool hearsAll = machine.temper.exact && machine.failures == 0 && !book.exportsAreCalled &&
                        conversation->isPolite && (isFast || !conversation->isBulky) && !byReset;
  for (const Request& request : conversation->requests) {
    if (hearsAll && request.hasVerdict && !request.isAnswered && IsUnique(*conversation, request)) {
      Finding("%s ends, and the answer to %s was due", conversation->name.c_str(), Name(request));
    }
  }
}

bool SomethingIsDue(const Conversation& conversation) {
  return std::any_of(conversation.requests.begin(), conversation.requests.end(),
                     [](const Request& request) {
                       return !request.isAnswered && request.isWhole &&
                              Judge(request, true).fate != DROPPED;
                     }) ||
         std::any_of(conversation.data.begin(), conversation.data.end(),
                     [](const HostData& data) { return !data.isHeard; });
}

void CheckNothingIsMissing(const Conversation& conversation) {
  if (!Undisturbed(conversation.begunAt) || conversation.isTurnedAway) {
    return;
  }
  for (const Request& request : conversation.requests) {
    if (request.isWhole && !request.isAnswered && Judge(request, true).fate != DROPPED) {
      Finding("%s never hears the answer to %s", conversation.name.c_str(), Name(request));
    }
  }
  for (const HostData& data : conversation.data) {
    if (!data.isHeard) {
      Finding("%s misses the host's data", conversation.name.c_str());
    }
  }
}

void CheckConnections() {
  // The main one, five extra ones, and the one that the listener is looking at.
  constexpr std::int64_t MOST = 7;
  const std::int64_t open =
      std::count_if(network.sockets.begin(), network.sockets.end(), [](const Socket& socket) {
        return socket.machine == PC && socket.isOpen && socket.acceptedAt != NEVER;
      });
  if (open > MOST) {
    Finding("%lld connections at once", static_cast<long long>(open));
  }
  std::int64_t served = 0;
  for (const Conversation& conversation : book.conversations) {
    const Socket* server = ServerOf(conversation);
    served += conversation.isServed && server != nullptr && server->isOpen ? 1 : 0;
  }
  if (served > 1) {
    Finding("two main connections at once");
  }
  if (open == MOST) {
    Reached("all places taken");
  }
}

namespace {

constexpr Micros REPLY_PAUSE = 500 * MS;
constexpr Micros BURST = 3 * REPLY_PAUSE;

// The bursts that a search has got, by the times at which they began; each is three equal replies
// to the searcher's port 2968, 500 ms apart.
std::vector<Micros> BurstsOf(const Search& search) {
  std::vector<const SentDatagram*> sent;
  for (const SentDatagram& datagram : network.datagrams) {
    if (datagram.machine == PC && datagram.to.address == AddressOf(search.searcher) &&
        datagram.bytes.size() > 11 && datagram.bytes.compare(10, 2, search.bytes, 10, 2) == 0) {
      sent.push_back(&datagram);
    }
  }
  std::vector<Micros> begins;
  for (std::size_t i = 0; i < sent.size() && !book.hadFailures; i++) {
    const bool begins3 = i % 3 == 0;
    const Micros pause = begins3 ? REPLY_PAUSE : sent[i]->time - sent[i - 1]->time;
    const bool isSame = begins3 || sent[i]->bytes == sent[i - 1]->bytes;
    if (pause < REPLY_PAUSE || (machine.temper.exact && pause != REPLY_PAUSE) || !isSame ||
        sent.size() % 3 != 0 || sent[i]->to.port != 2968) {
      Finding("search %s gets %zu replies, one of them after %lld us, to port %d",
              search.tags.c_str(), sent.size(), static_cast<long long>(pause), sent[i]->to.port);
    }
    if (begins3) {
      begins.push_back(sent[i]->time);
    }
  }
  for (const SentDatagram* reply : sent) {
    const bool isSettled = book.IsCalm() && machine.canWatchAddresses &&
                           reply->time > book.addressChangedAt + SETTLES_WITHIN;
    bool isRight = false;
    for (const std::string& name : book.names) {
      for (const std::string& address : book.addresses) {
        isRight = isRight || (Reply(search, name, address) == reply->bytes &&
                              (!isSettled || address == book.ownAddress));
      }
    }
    if (!isRight) {
      Finding("search %s gets %s", search.tags.c_str(),
              Shown(reply->bytes.data(), static_cast<std::int64_t>(reply->bytes.size())).c_str());
    }
  }
  return begins;
}

// While a search is with the host or being answered, its repeats are dropped.
struct Span {
  Micros begin, end;
};

void CheckSearch(const Search& search) {
  const std::vector<Micros> bursts = BurstsOf(search);
  bool asksHost = false;
  // The second address is the PC's only after a change.
  const bool fits = DeservesReply(search, book.addresses[0], &asksHost);
  const bool isNamed = std::none_of(
      book.names.begin(), book.names.end(),
      [&](const std::string& name) { return Reply(search, name, book.addresses[0]).empty(); });
  const bool deserves = fits && isNamed;
  const bool mayBeAnswered = fits || DeservesReply(search, book.addresses[1], &asksHost);
  std::vector<Micros> heard;
  for (const SentDatagram& sent : network.datagrams) {
    if (sent.machine == search.searcher && sent.bytes == search.bytes) {
      heard.insert(heard.end(), sent.heardAt.begin(), sent.heardAt.end());
    }
    if (sent.machine == search.searcher && sent.missedAt > book.addressChangedAt + SETTLES_WITHIN &&
        book.ServedAt(sent.missedAt) && book.IsCalm() && machine.canWatchAddresses) {
      Finding("search %s is not heard, for the group is not joined", search.tags.c_str());
    }
  }
  if (!bursts.empty() && (!mayBeAnswered || (asksHost && search.hostSays != 1))) {
    Finding("search %s is answered, and must not be", search.tags.c_str());
  }
  for (const auto& [begin, end] : book.ended) {
    // The watcher is waited for before discovery hears of a stop.
    constexpr Micros HEARD_WITHIN = 20 * MS;
    for (const Micros burst : bursts) {
      if (book.IsPrompt() && burst > begin + HEARD_WITHIN && burst < end) {
        Finding("search %s: a burst begins in the middle of a stop", search.tags.c_str());
      }
    }
  }
  std::vector<Span> spans;
  if (asksHost) {
    for (const auto& [begin, end] : search.filterCalls) {
      // No burst follows when a stop or a fault has come; and each follows its own call.
      const Micros asked = end;
      const auto isLater = [&](Micros burst) {
        return std::any_of(
            search.filterCalls.begin(), search.filterCalls.end(),
            [&](const auto& call) { return call.second > asked && call.second <= burst; });
      };
      const bool follows = std::any_of(bursts.begin(), bursts.end(), [&](Micros burst) {
        return burst >= asked && burst < asked + REPLY_PAUSE && !isLater(burst);
      });
      spans.push_back({begin, end + (follows && isNamed ? BURST : 0)});
      const bool isServed = book.ServedAt(begin) && book.ServedAt(end) && !book.hadFailures;
      if (isServed && isNamed && search.hostSays == 1 && machine.temper.exact && !book.slowStatus &&
          book.addressChanges == 0 && std::count(bursts.begin(), bursts.end(), end) != 1) {
        Finding("search %s is not answered when the host has agreed", search.tags.c_str());
      }
    }
  } else {
    for (const Micros begin : bursts) {
      spans.push_back({begin, begin + BURST});
    }
  }
  for (std::size_t i = 0; i < spans.size(); i++) {
    const Micros after = i > 0 ? spans[i - 1].end : 0;
    const bool hasCause = std::any_of(heard.begin(), heard.end(), [&](Micros at) {
      return at <= spans[i].begin && (at >= after || !book.IsPrompt());
    });
    if (!hasCause || spans[i].begin < after) {
      Finding("search %s is taken up without a cause, or twice at once", search.tags.c_str());
    }
  }
  for (const Micros at : heard) {
    const bool isTaken = std::any_of(spans.begin(), spans.end(), [&](const Span& span) {
      return span.begin <= at && at <= span.end;
    });
    const bool mustBeTaken =
        book.addressChanges == 0
            ? deserves && !book.slowStatus
            : at > book.addressChangedAt + SETTLES_WITHIN && machine.canWatchAddresses && isNamed &&
                  !book.ownAddress.empty() && DeservesReply(search, book.ownAddress, &asksHost);
    if (mustBeTaken && !isTaken && machine.temper.exact && book.IsCalm() && book.ServedAt(at)) {
      Finding("search %s, heard at %lld us, is not taken up", search.tags.c_str(),
              static_cast<long long>(at));
    }
  }
  Reached(!bursts.empty() ? "a search that is answered"
          : deserves      ? "a search in vain"
                          : "a search that deserves nothing");
}

}  // namespace

bool Book::IsCalm() const {
  return !hadFailures && utility != UTILITY_KNOWS_SLOWLY && !wasChaos;
}

bool Book::IsPrompt() const {
  return machine.temper.exact && IsCalm() && !slowStatus;
}

bool Book::ServedAt(Micros time) const {
  return std::any_of(served.begin(), served.end(),
                     [&](const auto& span) { return span.first < time && time < span.second; });
}

void CheckLife() {
  for (const Conversation& conversation : book.conversations) {
    for (const HostData& data : conversation.data) {
      if (data.request == nullptr) {
        Finding("%s hears data that the host has not sent", conversation.name.c_str());
      }
    }
  }
  for (const Search& search : book.searches) {
    CheckSearch(search);
  }
}

}  // namespace zvqrn::simulation
