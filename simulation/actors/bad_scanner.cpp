// Scanners that do not keep to the protocol, and those that wait for the library's limits.

#include <algorithm>

#include "actors/line.h"
#include "network/streams.h"
#include "platform/clock.h"

namespace zvqrn::simulation {
namespace {

std::string StartOf(const std::string& length) {
  return "POST /PushScan HTTP/1.0\r\nx-protocol-name : Zorva Network Service Protocol\r\n"
         "x-protocol-version : 2.00\r\nx-uid : bad\r\nContent-Length : " +
         length + "\r\n\r\nbegin";
}

void Drip(Line* line, Dice* dice) {
  Give(line, StartOf("100000"));
  for (std::int64_t i = dice->Between(10, 150); i > 0 && Give(line, "x"); i--) {
    Sleep(dice->Between(1, 290) * MS);
  }
}

// Asks, and never reads what comes.
void BeDeaf(Line* line, Dice* dice, std::int32_t number) {
  book.stalls = true;
  for (std::int64_t i = dice->Between(1, 40); i > 0; i--) {
    Request request =
        MakeRequest(dice, "deaf" + std::to_string(number) + "." + std::to_string(i), true);
    request.subevent = "START";
    WriteRequest(&request, dice);
    Ask(line, request, dice);
  }
  Sleep(dice->Spread(20 * SECOND));
}

// Sends request after request without a pause, which the library answers by itself, and throws the
// answers away.  Where calls take time, it cannot keep up for many seconds.
void Flood(Line* line, Dice* dice) {
  Request request = MakeRequest(dice, "flood", true);
  request.product = "unknown";
  WriteRequest(&request, dice);
  bool goesOn = true;
  for (std::int64_t i = machine.temper.callCost > 100 ? 3000 : 30; goesOn && i > 0; i--) {
    char answers[4096];
    goesOn = Give(line, request.bytes) &&
             platform::ReceiveBytes(line->conversation->socket, answers, sizeof answers) != 0;
  }
}

void Knock(Dice* dice) {
  std::vector<platform::SocketHandle> sockets;
  const Interface* own = OwnInterface();
  for (std::int64_t i = dice->Between(5, 12); i > 0 && own != nullptr; i--) {
    sockets.push_back(platform::OpenTcpSocket());
    platform::ConnectTo(sockets.back(), own->address, 2968,
                        static_cast<std::int32_t>(dice->Spread(2000)));
    CheckConnections();
  }
  Sleep(dice->Spread(3 * SECOND));
  for (const platform::SocketHandle socket : sockets) {
    platform::CloseSocket(socket);
  }
}

}  // namespace

std::string Mutated(std::string bytes, Dice* dice) {
  for (std::int64_t i = dice->Between(1, 3); i > 0 && !bytes.empty(); i--) {
    const auto size = static_cast<std::int64_t>(bytes.size());
    const auto at = static_cast<std::size_t>(dice->Below(size));
    switch (dice->Below(3)) {
      case 0:
        bytes[at] = static_cast<char>(dice->Below(256));
        break;
      case 1:
        bytes.erase(at, static_cast<std::size_t>(dice->Spread(20)));
        break;
      default:
        bytes.insert(at, bytes.substr(at, static_cast<std::size_t>(dice->Spread(200))));
    }
  }
  return bytes;
}

void BehaveBadly(Dice dice, std::int32_t number) {
  if (dice.OneIn(8)) {
    Knock(&dice);
    return;
  }
  Line line{};
  if (!Connect(&line, "bad scanner " + std::to_string(number), false)) {
    return;
  }
  // What the host may get of it is nobody's business.
  const bool mutates = dice.OneIn(2);
  book.mutations = book.mutations || mutates;
  const std::string sound = MakeRequest(&dice, "bad" + std::to_string(number), true).bytes;
  if (mutates) {
    for (std::int64_t i = dice.Between(1, 6); i > 0; i--) {
      Give(&line, Mutated(sound, &dice));
      Hear(&line, machine.now + dice.Spread(SECOND));
    }
  } else {
    switch (dice.Below(11)) {
      case 0:
        break;  // never speaks
      case 1:
        Give(&line, sound.substr(0, static_cast<std::size_t>(dice.Between(1, 60))));
        break;
      case 2:
        book.mutations = true;
        Give(&line, StartOf("100000"));
        break;
      case 3:
        book.mutations = true;
        Give(&line, StartOf(dice.OneIn(2) ? "2147483647" : "99999999999999999999"));
        break;
      case 4:
        Give(&line, StartOf("-2147483648"));
        break;
      case 5:
        Give(&line, std::string(static_cast<std::size_t>(dice.Spread(20000)), 'x'));
        break;
      case 6:
        book.mutations = true;
        Drip(&line, &dice);
        break;
      case 7:
        BeDeaf(&line, &dice, number);
        break;
      case 9:
        Flood(&line, &dice);
        break;
      case 8:
        Give(&line, "HTTP/1.0 200 OK" + sound.substr(sound.find("\r\n")));
        break;
      default:
        book.mutations = true;
        Give(&line,
             StartOf("3000000") + std::string(static_cast<std::size_t>(dice.Spread(3000000)), ' '));
    }
    if (dice.OneIn(2)) {
      Sleep(dice.Spread(3 * SECOND));
    } else {
      Hear(&line, machine.now + dice.Spread(3 * SECOND));
    }
  }
  if (dice.OneIn(3) && SocketOf(line.conversation->socket)->isOpen) {
    BreakOff(line.conversation->socket);
  } else if (dice.OneIn(3) && SocketOf(line.conversation->socket)->isOpen) {
    platform::EndSending(line.conversation->socket);
    Hear(&line, machine.now + dice.Spread(5 * SECOND));
  }
  HangUp(&line);
}

// ---- Limits
// --------------------------------------------------------------------------------------

namespace {

constexpr Micros LOOK = 300 * MS;  // the library looks at its clock so often at least

// Whether the machine is such that the limit can be checked.
bool IsExact(const Line& line) {
  return machine.temper.exact && Undisturbed(line.conversation->begunAt) &&
         !line.conversation->isTurnedAway;
}

// The library counts whole milliseconds of its clock.
void CheckLimit(const char* what, Micros took, Micros limit, Micros slack) {
  Reached(what);
  if (took <= limit - MS || took > limit + slack) {
    Finding("%s: after %lld ms instead of %lld", what, static_cast<long long>(took / MS),
            static_cast<long long>(limit / MS));
  }
}

// A main connection on which nothing is said; pieces of a message say nothing.
void StayIdle(Line* line, Dice* dice) {
  line->conversation->isPolite = false;
  const Micros begin = SocketOf(line->conversation->socket)->peer->sentMarks.back().time;
  if (dice->OneIn(2)) {
    Hear(line, machine.now + dice->Between(1, 200) * SECOND);
    Give(line, "rubbish\r\n\r\n");
  }
  Hear(line, machine.now + 400 * SECOND);
  if (IsExact(*line)) {
    CheckLimit("an idle connection is closed",
               SocketOf(line->conversation->socket)->peer->closedAt - begin, 300 * SECOND, LOOK);
  }
}

// A head that is broken off is forgotten after 10 s.
void BreakAHeadOff(Line* line, Dice* dice) {
  Request good = MakeRequest(dice, "behind", true);
  Give(line, dice->OneIn(2) ? "some rubbish " : "POST / HTTP/1.0\r\nx-uid : 9\r\n");
  const bool forgotten = dice->OneIn(2);
  Sleep(2 * SECOND);  // until all of it has come
  const Micros last = SocketOf(line->conversation->socket)->peer->cameMarks.back().time;
  constexpr Micros LIMIT = 10 * SECOND;
  Sleep(last + LIMIT - machine.now + (forgotten ? LOOK + MS : -SECOND / 2));
  if (!IsExact(*line)) {
    return;
  }
  Request* asked = Ask(line, good, dice);
  if (forgotten) {
    Reached("a broken-off head is forgotten");
    HearAll(line);
    return;
  }
  asked->isWhole = false;
  Reached("a head is waited for");
  Hear(line, machine.now + 2 * SECOND);
  if (asked->isAnswered && Undisturbed(line->conversation->begunAt)) {
    Finding("a head is forgotten too early");
  }
  line->conversation->isPolite = false;
}

// A body that stops short is judged after 0.3 s, one that comes in drops after 30 s.
void StopInTheBody(Line* line, Dice* dice, bool drips) {
  Request cut = MakeRequest(dice, "cut", true);
  const std::size_t body = cut.bytes.find("\r\n\r\n") + 4;
  const std::size_t last = dice->OneIn(3) ? body : cut.bytes.find("<p:");
  Request* asked = EnterRequest(line->conversation, cut);
  asked->body = last == body && !drips ? Request::NOTHING : Request::RUBBISH;
  const Socket* server = SocketOf(line->conversation->socket)->peer;
  Give(line, cut.bytes.substr(0, drips ? body + 2 : last));
  Hear(line, machine.now + network.weather.jitter + network.weather.delay + MS);
  const std::int64_t headEnds = asked->endsAt - static_cast<std::int64_t>(cut.bytes.size() - body);
  asked->endsAt = server->cameMarks.back().end;
  asked->isWhole = true;
  line->conversation->isBulky = true;  // not at once
  const auto answered = [asked] { return asked->isAnswered; };
  for (int i = 0; drips && i < 200 && !answered() && !line->hasEnded; i++) {
    Give(line, " ");
    Hear(line, machine.now + 200 * MS, answered);
  }
  Hear(line, machine.now + 40 * SECOND, answered);
  if (IsExact(*line)) {
    if (!asked->isAnswered) {
      Finding("a body that stops is not judged");
    }
    const Micros sent = server->sentMarks.back().time;
    if (drips) {
      const Micros begin =
          std::find_if(server->cameMarks.begin(), server->cameMarks.end(), [&](const auto& mark) {
            return mark.end >= headEnds;
          })->time;
      CheckLimit("a body in drops is judged", sent - begin, 29 * SECOND, 2 * SECOND);
    } else {
      CheckLimit("a body that stops is judged", sent - server->cameMarks.back().time, LOOK, 0);
    }
  }
  line->conversation->isPolite = false;
}

// A scanner that takes nothing has gone after 300 s.
void StopReading(Line* line, Dice* dice) {
  book.stalls = true;
  line->conversation->isBulky = true;
  line->conversation->isPolite = false;  // else it would read when it cannot send
  const std::int64_t fits = network.weather.window + network.weather.sendBuffer;
  const Socket* server = SocketOf(line->conversation->socket)->peer;
  for (std::int64_t i = 0; i < fits / 250 + 20 && RoomToSend(*server) > 0; i++) {
    Ask(line, MakeRequest(dice, "unread" + std::to_string(i), true), dice);
  }
  Sleep(20 * SECOND);  // the host's callbacks
  const bool stalls = RoomToSend(*server) <= 0 || server->closedAt != NEVER;
  Sleep(400 * SECOND);
  if (IsExact(*line) && stalls) {
    const Micros last = server->sentMarks.back().time;
    if (server->isOpen) {
      Finding("a scanner that takes nothing is not given up");
    }
    // Its idle time counts from the last whole message, which may be a little earlier.
    CheckLimit("a scanner that takes nothing is given up", server->closedAt - last,
               300 * SECOND - LOOK, 2 * LOOK + SECOND);
  }
}

}  // namespace

// Whether another connection was ending, or seemed to be, when this one was accepted.
static bool OthersEndAround(const Socket& server) {
  constexpr Micros LOOKS = 20 * MS;
  for (const Socket& other : network.sockets) {
    if (&other != &server && other.machine == PC && other.kind == Socket::STREAM &&
        other.closedAt >= server.acceptedAt &&
        (machine.temper.likeWindows || other.peerGoneAt <= server.acceptedAt + LOOKS)) {
      return true;
    }
  }
  return false;
}

void WaitForALimit(Dice dice, std::int32_t number) {
  Line line{};
  if (!Connect(&line, "patient scanner " + std::to_string(number), true)) {
    return;
  }
  if (dice.OneIn(4)) {
    // Says nothing from the beginning: as a main connection, or as an extra one.
    line.conversation->isPolite = false;
    Hear(&line, machine.now + 400 * SECOND);
    const Socket* server = SocketOf(line.conversation->socket)->peer;
    const Micros took = server->closedAt - server->acceptedAt;
    if (IsExact(line) && took >= SECOND) {
      // The listener may have waited for another connection's end first.
      const Micros placeWait = OthersEndAround(*server) ? 5 * SECOND + 20 * MS : 20 * MS;
      const bool isExtra = took < 200 * SECOND;
      CheckLimit(isExtra ? "a silent extra connection is closed" : "a silent connection is closed",
                 took, (isExtra ? 90 : 300) * SECOND, LOOK + placeWait);
    }
    HangUp(&line);
    return;
  }
  Ask(&line, MakeRequest(&dice, "patient" + std::to_string(number), true), &dice);
  if (HearAll(&line) && !SomethingIsDue(*line.conversation) && line.conversation->isServed) {
    switch (dice.Below(5)) {
      case 0:
        StayIdle(&line, &dice);
        break;
      case 1:
        BreakAHeadOff(&line, &dice);
        break;
      case 2:
        StopInTheBody(&line, &dice, false);
        break;
      case 3:
        StopInTheBody(&line, &dice, true);
        break;
      default:
        StopReading(&line, &dice);
    }
  }
  HangUp(&line);
}

}  // namespace zvqrn::simulation
