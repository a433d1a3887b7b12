#include "actors/line.h"

#include <algorithm>
#include <cstdlib>

namespace zvqrn::simulation {
namespace {

constexpr std::uint16_t PORT = 2968;

// What is due comes after the host's longest callbacks, and after what others wait for.
constexpr Micros LONGEST_WAIT = 120 * SECOND;
constexpr Micros LONGEST_SEND = 600 * SECOND;

std::size_t MessageLength(const std::string& bytes) {
  const std::size_t end = bytes.find("\r\n\r\n");
  if (end == std::string::npos) {
    return 0;
  }
  const std::string mark = "Content-Length : ";
  const std::size_t at = bytes.find(mark);
  return end + 4 + (at < end ? std::strtoul(bytes.c_str() + at + mark.size(), nullptr, 10) : 0);
}

// Takes what has come; false when there was nothing more to come.
bool TakeBytes(Line* line) {
  char bytes[4096];
  const std::int32_t count =
      platform::ReceiveBytes(line->conversation->socket, bytes, sizeof bytes);
  if (count == platform::RECEIVE_NOTHING) {
    return true;
  }
  if (count <= 0) {
    DIARY("%s hears the end%s", line->conversation->name.c_str(), count < 0 ? ", by a reset" : "");
    // Who is turned away in the middle of a request may lose the answer by a reset.
    if (!line->received.empty() && Undisturbed(line->conversation->begunAt) &&
        line->conversation->isPolite && (line->conversation->isServed || count == 0)) {
      Finding("%s gets half a message", line->conversation->name.c_str());
    }
    line->hasEnded = true;
    EnterEnd(line->conversation, count < 0);
    return false;
  }
  line->received.append(bytes, static_cast<std::size_t>(count));
  for (std::size_t length = MessageLength(line->received);
       length != 0 && length <= line->received.size(); length = MessageLength(line->received)) {
    const std::string message = line->received.substr(0, length);
    line->received.erase(0, length);
    EnterHeard(line->conversation, message);
  }
  return true;
}

}  // namespace

bool Connect(Line* line, const std::string& name, bool polite) {
  *line = Line{};
  const platform::SocketHandle socket = platform::OpenTcpSocket();
  line->conversation = NewConversation(socket, name, polite);
  const Micros begin = machine.now;
  const bool runs = book.runs;
  const Interface* own = OwnInterface();
  const platform::ConnectResult result =
      own == nullptr ? platform::CONNECT_REFUSED
                     : platform::ConnectTo(line->conversation->socket, own->address, PORT, 60000);
  if (result == platform::CONNECT_REFUSED && runs && Undisturbed(begin) && own != nullptr &&
      book.addressChangedAt < begin) {
    Finding("%s is refused", name.c_str());
  }
  if (result != platform::CONNECT_DONE) {
    platform::CloseSocket(line->conversation->socket);
    line->hasEnded = true;
  }
  return result == platform::CONNECT_DONE;
}

bool Give(Line* line, const std::string& bytes) {
  std::size_t given = 0;
  const Micros patience = machine.now + LONGEST_SEND;
  while (given < bytes.size()) {
    const std::int32_t count = platform::SendBytes(line->conversation->socket, bytes.data() + given,
                                                   static_cast<std::int32_t>(bytes.size() - given));
    if (count == platform::SEND_NO_ROOM && machine.now < patience) {
      // Who keeps to the protocol reads when it cannot send.
      if (!line->conversation->isPolite) {
        platform::WaitWritable(line->conversation->socket, 1000);
      } else if (platform::WaitReadable(line->conversation->socket, 10) == platform::SOCKET_READY &&
                 !TakeBytes(line)) {
        return false;
      }
    } else if (count <= 0) {
      return false;
    } else {
      given += static_cast<std::size_t>(count);
    }
  }
  return true;
}

bool GiveInPieces(Line* line, const std::string& bytes, Dice* dice, Micros longestPause) {
  // In the middle of a body no pause is as long as the library waits.
  constexpr Micros BODY_PAUSE = 20 * MS;
  const std::size_t body = bytes.find("\r\n\r\n");
  bool goesOn = true;
  for (std::size_t at = 0; goesOn && at < bytes.size();) {
    const auto left = static_cast<std::int64_t>(bytes.size() - at);
    const auto size = static_cast<std::size_t>(longestPause == 0 ? left : dice->Spread(left));
    goesOn = Give(line, bytes.substr(at, size));
    at += size;
    if (at < bytes.size()) {
      Sleep(dice->Spread(at < body ? longestPause : std::min(longestPause, BODY_PAUSE)));
    }
  }
  return goesOn;
}

Request* Ask(Line* line, const Request& request, Dice* dice, Micros longestPause) {
  Request* entered = EnterRequest(line->conversation, request);
  // The last byte goes by itself, so that the book knows before the library can.
  const std::size_t all = request.bytes.size() - 1;
  if (GiveInPieces(line, request.bytes.substr(0, longestPause == 0 ? 0 : all), dice,
                   longestPause)) {
    entered->isWhole = true;
    entered->isWhole = Give(line, request.bytes.substr(longestPause == 0 ? 0 : all));
  }
  return entered;
}

void Hear(Line* line, Micros until, const std::function<bool()>& enough) {
  while (!line->hasEnded && machine.now < until && !(enough && enough())) {
    const auto left = static_cast<std::int32_t>((until - machine.now + MS - 1) / MS);
    if (platform::WaitReadable(line->conversation->socket, left) == platform::SOCKET_READY) {
      TakeBytes(line);
    }
  }
}

bool HearAll(Line* line) {
  Hear(line, machine.now + LONGEST_WAIT, [line] { return !SomethingIsDue(*line->conversation); });
  if (!line->hasEnded) {
    CheckNothingIsMissing(*line->conversation);
  }
  return !line->hasEnded;
}

void HangUp(Line* line) {
  if (SocketOf(line->conversation->socket)->isOpen) {
    platform::CloseSocket(line->conversation->socket);
  }
}

Request MakeRequest(Dice* dice, const std::string& uid, bool sound) {
  Request request{};
  request.protocol =
      dice->OneIn(6) ? "zorva network SERVICE protocol" : "Zorva Network Service Protocol";
  const bool isV2 = dice->OneIn(2);
  request.version = isV2 ? "2.00" : dice->OneIn(3) ? "1.5" : "1.00";
  request.uid = uid;
  request.body = isV2 ? Request::FOR_V2 : Request::FOR_V1;
  request.product = dice->OneIn(2) ? "XS-200" : "XS-a-name-of-31-bytes-in-all---";
  request.number = static_cast<std::int32_t>(dice->Between(1, 3));
  if (!sound) {
    switch (dice->Below(9)) {
      case 0:
        request.version = dice->OneIn(2) ? "2.01" : dice->OneIn(2) ? "" : "3.00";
        break;
      case 1:
        request.subevent = dice->OneIn(2) ? "STOP" : "END";
        break;
      case 2:
        request.subevent = "END";
        request.parent = "a stranger";
        break;
      case 3:
        request.body = Request::NOTHING;
        break;
      case 4:
        request.body = isV2 ? Request::FOR_V1 : Request::FOR_V2;
        break;
      case 5:
        request.body = dice->OneIn(2) ? Request::RUBBISH : Request::RESPONSE;
        break;
      case 6:
        request.product = "unknown";
        break;
      case 7:
        request.body = isV2 ? Request::RUBBISH : Request::BAD_VALUE;
        break;
      default:
        request.uid = dice->OneIn(2) ? "" : "a-uid-of-20-bytes---";
    }
  }
  WriteRequest(&request, dice);
  return request;
}

}  // namespace zvqrn::simulation
