// The discovery requests that have been accepted and not yet answered, and the rules by which one
// is accepted.  Datagrams are handled on the discovery listener's thread; reply threads read their
// request and remove it.  discoveryTableLock guards the table and its index by sender and XID, with
// which a flood of requests does not slow down the look for repeats.
#pragma once

#include <cstdint>

#include "base/tagged_list.h"
#include "discovery/slp_message.h"
#include "platform/socket.h"
#include "zvqrn/zvqrn.h"

namespace zvqrn {

// UDP port of requests and of replies; not the port that RFC 2608 registers.
constexpr std::uint16_t SLP_PORT = 2968;
constexpr char SLP_SERVICE_TYPE[] = "service:Quorin-agent";
constexpr char SLP_DEFAULT_SCOPE[] = "default";

// One request; owned by discoveryTable, written before it gets there.
struct DiscoveryRequest {
  std::uint32_t peerAddress;  // the sender's, network byte order
  std::uint16_t replyPort;    // SLP_PORT, whatever port the request came from
  std::int32_t xid;
  std::int32_t languageTagLength;
  char* languageTag;                 // owned
  PeerDescription* peerDescription;  // owned; present exactly when needsFilter is 1
  std::int32_t needsFilter;          // 1: a scanner's own scope, ask the host first
  std::int32_t errorCode;            // of the reply: always 0
  DiscoveryRequest** bucket;         // in the index, or null; its neighbour there follows
  DiscoveryRequest* next;
};

void ReleaseDiscoveryRequest(DiscoveryRequest* request);

// Handles one datagram: the node of a new request that is to be answered, or null.  Everything that
// is malformed or not accepted is dropped without a word.
ListNode* HandleDatagram(const char* bytes, std::int32_t byteCount, std::uint32_t sender);

// Releases a request, when its reply has been sent or cannot be.
void RemoveDiscoveryRequest(ListNode* node);

}  // namespace zvqrn
