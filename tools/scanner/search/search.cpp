#include "scanner/search/search.h"

#include <algorithm>
#include <chrono>
#include <random>

#include "common/adapters.h"
#include "common/output.h"
#include "common/text.h"
#include "scanner/wire/connection.h"

namespace zvqrn::scanner {

const char* const DISCOVERY_GROUP = "239.255.255.253";

namespace {

using Clock = std::chrono::steady_clock;
using Moment = Clock::time_point;

// As large as a datagram can be, so that one that is too large for a reply is seen for what it is.
constexpr std::int32_t DATAGRAM_SIZE = 65536;
// A flood of rubbish must not eat the time in which good replies come.
constexpr std::size_t LISTED_MALFORMED = 200;

void Trace(const Search& search, const std::string& what, const std::string& bytes,
           const platform::Endpoint& place) {
  const std::string text = what + " " + tools::AddressText(place.address) + " port " +
                           std::to_string(place.port) + ": " + std::to_string(bytes.size()) +
                           " bytes";
  if (search.record != nullptr) {
    *search.record += tools::TimeText() + "  " + text + "\n" + tools::HexDump(bytes, "  ");
  }
  if (search.trace) {
    tools::PrintError(text);
    if (!bytes.empty()) {
      const std::string dump = tools::HexDump(bytes, "  ");
      tools::PrintError(dump.substr(0, dump.size() - 1));
    }
  }
}

void SendRequest(const Search& search, platform::SocketHandle socket, const std::string& bytes) {
  const platform::Endpoint receiver{search.to, DISCOVERY_PORT};
  Trace(search, "sent to", bytes, receiver);
  if (search.capture != nullptr) {
    const auto port = static_cast<std::uint16_t>(platform::BoundPort(socket));
    search.capture->Datagram({search.from, port}, receiver, bytes);
  }
  if (!platform::SendDatagramTo(socket, bytes.data(), static_cast<std::int32_t>(bytes.size()),
                                receiver)) {
    throw Failure(EXIT_LOCAL_TROUBLE, "the system does not send " + std::to_string(bytes.size()) +
                                          " bytes from " + tools::AddressText(search.from) +
                                          " to " + tools::AddressText(search.to));
  }
}

void NoteMalformed(SearchResult* result, std::uint32_t sender, const std::string& problem) {
  for (MalformedReply& known : result->malformed) {
    if (known.sender == sender && known.problem == problem) {
      ++known.datagrams;
      return;
    }
  }
  if (result->malformed.size() == LISTED_MALFORMED) {
    ++result->moreMalformed;
    return;
  }
  result->malformed.push_back({sender, problem, 1});
}

void NotePc(SearchResult* result, std::uint32_t sender, const PcDescription& description,
            const std::string& bytes, double replyMs) {
  for (FoundPc& known : result->pcs) {
    if (known.sender == sender) {
      ++known.datagrams;
      known.differs = known.differs || known.firstReply != bytes;
      return;
    }
  }
  result->pcs.push_back({sender, description, replyMs, 1, false, bytes});
}

// Takes one datagram in; false when none had come.
bool TakeReply(const Search& search, platform::SocketHandle socket, Moment start,
               SearchResult* result) {
  std::string bytes(DATAGRAM_SIZE, '\0');
  platform::Endpoint sender{};
  const std::int32_t size = platform::ReceiveDatagram(socket, bytes.data(), DATAGRAM_SIZE, &sender);
  // An error here is the echo of an earlier send that found nobody.
  if (size < 0) {
    return false;
  }
  const double replyMs = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
  bytes.resize(static_cast<std::size_t>(size));
  Trace(search, "received from", bytes, sender);
  if (search.capture != nullptr) {
    search.capture->Datagram(sender, {search.from, DISCOVERY_PORT}, bytes);
  }
  if (IsAttributeRequest(bytes)) {
    return false;
  }
  PcDescription description;
  const std::string problem = ReadReply(bytes, search.request, &description);
  if (problem.empty()) {
    NotePc(result, sender.address, description, bytes, replyMs);
  } else if (AnswersAnotherRequest(bytes, search.request)) {
    ++result->foreign;
  } else {
    NoteMalformed(result, sender.address, problem);
  }
  return true;
}

std::int32_t MillisecondsUntil(Moment moment) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(moment - Clock::now()).count();
  return static_cast<std::int32_t>(std::max<std::int64_t>(left, 0));
}

}  // namespace

Search MakeSearch(std::uint32_t to) {
  Search search;
  search.to = to;
  search.request.multicast = IsGroup(to);
  search.request.xid = static_cast<std::uint16_t>(std::random_device()() & 0xFFFFU);
  return search;
}

SearchResult RunSearch(const Search& search,
                       const std::function<bool(const SearchResult&)>& isEnough) {
  const OwnedSocket replies(OpenReplySocket(search.from));
  const bool sendsElsewhere = search.sourcePort != DISCOVERY_PORT;
  const OwnedSocket source(sendsElsewhere ? OpenSourceSocket(search.from, search.sourcePort)
                                          : platform::NO_SOCKET);
  const platform::SocketHandle sender = sendsElsewhere ? source.handle : replies.handle;
  if (IsGroup(search.to) && !platform::SendMulticastFrom(sender, search.from)) {
    throw Failure(EXIT_LOCAL_TROUBLE, "cannot multicast from " + tools::AddressText(search.from));
  }
  const std::string bytes =
      search.rawBytes.empty() ? RequestBytes(search.request) : search.rawBytes;
  const std::chrono::milliseconds interval(search.intervalMs);
  SearchResult result;
  const Moment start = Clock::now();
  const Moment end =
      start + (search.repeat - 1) * interval + std::chrono::milliseconds(search.timeoutMs);
  std::int32_t sent = 0;
  while (true) {
    const Moment now = Clock::now();
    if (sent < search.repeat && now >= start + sent * interval) {
      SendRequest(search, sender, bytes);
      ++sent;
      continue;
    }
    if (now >= end) {
      return result;
    }
    const Moment wake = sent < search.repeat ? std::min(end, start + sent * interval) : end;
    const platform::SocketWait wait =
        platform::WaitReadable(replies.handle, MillisecondsUntil(wake));
    if (wait == platform::SOCKET_FAILED) {
      throw Failure(EXIT_LOCAL_TROUBLE, "the socket for the replies broke");
    }
    if (wait == platform::SOCKET_READY && TakeReply(search, replies.handle, start, &result) &&
        isEnough(result)) {
      return result;
    }
  }
}

}  // namespace zvqrn::scanner
