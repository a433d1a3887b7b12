#include "discovery/requests.h"

#include <initializer_list>
#include <utility>

#include "base/allocation.h"
#include "base/driver_name.h"
#include "base/service_state.h"
#include "base/text.h"
#include "discovery/slp_lists.h"

namespace zvqrn {
namespace {

constexpr char LIST_SEPARATOR[] = ",";

void ReleasePeerDescription(PeerDescription* peer) {
  for (const char* text : {peer->driverName, peer->serviceType, peer->scopeList, peer->tagList}) {
    std::free(const_cast<char*>(text));
  }
  std::free(peer);
}

using OwnedPeerDescription = Owned<PeerDescription, ReleasePeerDescription>;
using OwnedDiscoveryRequest = Owned<DiscoveryRequest, ReleaseDiscoveryRequest>;

using TextAccessor = std::int32_t (*)(const SlpMessage* message, const char** text);

// A text of the request; an absent one is the empty text, and so is one that the message does not
// have.
const char* TextOf(const SlpMessage* message, TextAccessor accessor) {
  const char* text = nullptr;
  return accessor(message, &text) > 0 ? text : "";
}

// The scope that a request names.
struct Scope {
  bool needsFilter;  // a scanner's own: the utility library knows it
  char driverName[DRIVER_NAME_SIZE];
};

// "default" alone, or exactly one name for which the utility library has a driver.
bool MatchScope(const SlpMessage* message, Scope* scope) {
  const char* list = TextOf(message, GetScopeList);
  scope->needsFilter = EqualsIgnoringCase(list, SLP_DEFAULT_SCOPE) != 0;
  if (!scope->needsFilter) {
    return true;
  }
  std::int32_t count = 0;
  char* element = nullptr;
  if (CountListElements(list, LIST_SEPARATOR, &count) != 1 || count != 1 ||
      GetListElement(list, LIST_SEPARATOR, 1, &element) != 1) {
    return false;
  }
  const OwnedBlock<char> name(element);
  char answer[DRIVER_NAME_SIZE] = {};
  if (CallGetTwainName(service.getTwainName, name.get(), answer) != DRIVER_NAME_FOUND) {
    return false;
  }
  // An answer may fill its buffer to the last byte.
  CopyBounded(scope->driverName, answer, DRIVER_NAME_SIZE);
  return true;
}

// True when this PC has an address to announce and has not been heard by the sender already.
bool IsNewsToSender(const SlpMessage* message) {
  const LockScope scope(&service.identityLock);
  if (!scope.Held() || service.localAddress == 0) {
    return false;
  }
  char address[platform::ADDRESS_TEXT_SIZE];
  platform::AddressToText(service.localAddress, address);
  return IsInResponderList(TextOf(message, GetPreviousResponders), address, ',') == 0;
}

// An XID is 16 bits wide: the requests of one sender share no bucket unless they are a thousand.
DiscoveryRequest** BucketOf(std::uint32_t sender, std::int32_t xid) {
  const std::uint32_t folded = sender ^ (sender >> 10U) ^ (sender >> 20U);
  return &service.discoveryIndex[(folded ^ static_cast<std::uint32_t>(xid)) % DISCOVERY_BUCKETS];
}

void IndexRequest(DiscoveryRequest* request) {
  request->bucket = BucketOf(request->peerAddress, request->xid);
  request->next = *request->bucket;
  *request->bucket = request;
}

void UnindexRequest(DiscoveryRequest* request) {
  if (request->bucket == nullptr) {
    return;
  }
  DiscoveryRequest** slot = request->bucket;
  while (*slot != request) {
    slot = &(*slot)->next;
  }
  *slot = request->next;
}

// True when the same request (sender and XID) waits for its reply; also when that cannot be told.
bool IsRequestPending(std::uint32_t sender, std::int32_t xid) {
  const LockScope scope(&service.discoveryTableLock);
  if (!scope.Held()) {
    return true;
  }
  const DiscoveryRequest* request = *BucketOf(sender, xid);
  while (request != nullptr && (request->peerAddress != sender || request->xid != xid)) {
    request = request->next;
  }
  return request != nullptr;
}

// The rules in their order; the language tag, the tag list and the flags play no part.
bool AcceptDiscoveryRequest(std::uint32_t sender, const SlpMessage* message, Scope* scope) {
  return GetUrl(message, nullptr) >= 0 &&
         EqualsIgnoringCase(TextOf(message, GetUrl), SLP_SERVICE_TYPE) == 0 &&
         MatchScope(message, scope) && IsNewsToSender(message) &&
         !IsRequestPending(sender, GetXid(message));
}

// What the host is asked about; null when memory runs out.
PeerDescription* BuildPeerDescription(const SlpMessage* message, const Scope& scope) {
  OwnedPeerDescription peer(NewRecord<PeerDescription>());
  if (!peer) {
    return nullptr;
  }
  peer->driverName = CopyText(scope.driverName);
  peer->serviceType = CopyText(TextOf(message, GetUrl));
  peer->scopeList = CopyText(TextOf(message, GetScopeList));
  peer->tagList = CopyText(TextOf(message, GetTagList));
  const bool whole = peer->driverName != nullptr && peer->serviceType != nullptr &&
                     peer->scopeList != nullptr && peer->tagList != nullptr;
  return whole ? peer.release() : nullptr;
}

ListNode* AddDiscoveryRequest(OwnedDiscoveryRequest request) {
  const LockScope scope(&service.discoveryTableLock);
  if (!scope.Held()) {
    return nullptr;
  }
  ListNode* node = ListAppend(&service.discoveryTable, request.get(), TAG_DISCOVERY_REQUEST);
  if (node != nullptr) {
    IndexRequest(request.release());
  }
  return node;
}

}  // namespace

void ReleaseDiscoveryRequest(DiscoveryRequest* request) {
  UnindexRequest(request);
  if (request->peerDescription != nullptr) {
    ReleasePeerDescription(request->peerDescription);
  }
  std::free(request->languageTag);
  std::free(request);
}

ListNode* HandleDatagram(const char* bytes, std::int32_t byteCount, std::uint32_t sender) {
  SlpMessage* made = nullptr;
  if (DecodeSlpMessage(bytes, byteCount, &made) != SLP_OK) {
    return nullptr;
  }
  const OwnedSlpMessage message(made);
  Scope scope{};
  const char* languageTag = nullptr;
  if (!AcceptDiscoveryRequest(sender, made, &scope) || GetLanguageTag(made, &languageTag) < 1) {
    return nullptr;
  }
  OwnedDiscoveryRequest request(NewRecord<DiscoveryRequest>());
  if (!request) {
    return nullptr;
  }
  request->peerAddress = sender;
  request->replyPort = SLP_PORT;
  request->xid = GetXid(made);
  request->languageTag = CopyText(languageTag);
  request->languageTagLength = GetLanguageTag(made, nullptr);
  request->needsFilter = scope.needsFilter ? 1 : 0;
  if (scope.needsFilter) {
    request->peerDescription = BuildPeerDescription(made, scope);
  }
  if (request->languageTag == nullptr || (scope.needsFilter && !request->peerDescription)) {
    return nullptr;
  }
  return AddDiscoveryRequest(std::move(request));
}

void RemoveDiscoveryRequest(ListNode* node) {
  const LockScope scope(&service.discoveryTableLock);
  if (scope.Held()) {
    ListRemoveMember(&service.discoveryTable, node);
  }
}

}  // namespace zvqrn
