// One search for PCs: an attribute request sent to the group or to one address, and the replies
// that come until the time is up.  A PC answers with a burst of identical datagrams.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "scanner/wire/attribute_message.h"
#include "scanner/wire/capture_file.h"
#include "scanner/wire/reply_socket.h"

namespace zvqrn::scanner {

extern const char* const DISCOVERY_GROUP;

// Addresses are in network byte order.
struct Search {
  AttributeRequest request;
  std::uint32_t to = 0;
  std::uint32_t from = 0;
  std::uint16_t sourcePort = DISCOVERY_PORT;
  std::int32_t repeat = 1;  // how often the same request is sent
  std::int32_t intervalMs = 500;
  std::int32_t timeoutMs = 2500;  // from the last request
  std::string rawBytes;           // sent instead of the request, unless empty
  bool trace = false;
  std::string* record = nullptr;         // gets the trace too
  std::shared_ptr<CaptureFile> capture;  // null: none is kept
};

struct FoundPc {
  std::uint32_t sender = 0;
  PcDescription description;
  double replyMs = 0;  // from the first request to the first reply
  int datagrams = 0;
  bool differs = false;  // the datagrams that it sent are not identical
  std::string firstReply;
};

struct MalformedReply {
  std::uint32_t sender = 0;
  std::string problem;
  int datagrams = 0;
};

struct SearchResult {
  std::vector<FoundPc> pcs;               // in the order of their first replies
  std::vector<MalformedReply> malformed;  // as many as anyone will read
  int moreMalformed = 0;                  // datagrams beyond these
  int foreign = 0;                        // datagrams that answer other requests
};

// What is worth a look though the reply is well-formed.
std::vector<std::string> NotesOn(const FoundPc& pc);

// Gives a search for any PC: the default request with a fresh XID, to `to`.
Search MakeSearch(std::uint32_t to);

// Searches until the time is up or `isEnough` says so, which is asked after each reply.  Throws
// when this machine does not let it.
SearchResult RunSearch(const Search& search,
                       const std::function<bool(const SearchResult&)>& isEnough);

}  // namespace zvqrn::scanner
