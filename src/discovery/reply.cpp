#include "discovery/reply.h"

#include "base/allocation.h"
#include "base/service_state.h"
#include "discovery/attribute_list.h"
#include "discovery/requests.h"
#include "discovery/slp_sender.h"
#include "platform/socket.h"
#include "platform/thread.h"

namespace zvqrn {
namespace {

constexpr std::int32_t WAIT_POLL_MS = 5;

void SendReply(const DiscoveryRequest& request) {
  char* list = nullptr;
  std::int32_t length = 0;
  BuildAttributeList(&list, &length);
  const OwnedBlock<char> text(list);
  if (!text) {
    return;
  }
  char address[platform::ADDRESS_TEXT_SIZE];
  platform::AddressToText(request.peerAddress, address);
  SendSlpReply(request.xid, request.errorCode, text.get(), request.languageTag, address,
               request.replyPort, REPLY_COUNT, REPLY_PAUSE_MS);
}

bool HostAgrees(const DiscoveryRequest& request) {
  return request.needsFilter == 0 ||
         service.filterCallback(request.peerDescription, service.filterContext) == 1;
}

void DiscoveryReplyThread(void* argument) {
  auto* node = static_cast<ListNode*>(argument);
  const auto& request = *static_cast<const DiscoveryRequest*>(node->item);
  // The host may take its time: a stop may come meanwhile, and no burst begins after it.
  if (!DiscoveryStopRequested() && HostAgrees(request) && !DiscoveryStopRequested()) {
    SendReply(request);
  }
  RemoveDiscoveryRequest(node);
  // After this the table may go.
  service.replyThreads.fetch_sub(1);
}

}  // namespace

void StartReply(ListNode* node) {
  const auto* request = static_cast<const DiscoveryRequest*>(node->item);
  const platform::StackKind stack =
      request->needsFilter == 1 ? platform::STACK_FOR_HOST_CALLBACKS : platform::STACK_FOR_LIBRARY;
  service.replyThreads.fetch_add(1);
  if (platform::StartThread(&DiscoveryReplyThread, node, stack) == 0) {
    service.replyThreads.fetch_sub(1);
    RemoveDiscoveryRequest(node);
  }
}

void WaitForReplies() {
  while (service.replyThreads.load() != 0) {
    platform::SleepMilliseconds(WAIT_POLL_MS);
  }
}

}  // namespace zvqrn
