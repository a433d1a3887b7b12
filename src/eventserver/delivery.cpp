#include "eventserver/delivery.h"

#include "base/allocation.h"
#include "base/service_state.h"
#include "base/text.h"
#include "eventserver/connection_tables.h"
#include "platform/thread.h"
#include "pushscan/documents.h"

namespace zvqrn {
namespace {

// The entry's word is written even when its lock cannot be had: the end of the connection waits
// for it.
void SetEntryState(DeliveryEntry* entry, DeliveryState state) {
  const LockScope scope(&service.deliveryListLock);
  entry->state.store(state);
}

void RemoveEntry(const ListNode* node) {
  const LockScope scope(&service.deliveryListLock);
  ListRemove(&service.deliveryList, node);
}

bool IsDone(const ListNode* node) {
  return static_cast<const DeliveryEntry*>(node->item)->state.load() == DELIVERY_DONE;
}

// Answers a request whose delivery could not be started, and forgets it.
void AbandonDelivery(JobRecord* job) {
  QueueMessage(job->socket,
               AnswerWithoutBody(&job->header, STATUS_INTERNAL_FAILURE, job->parentUid));
  const LockScope scope(&service.jobTableLock);
  if (scope.Held()) {
    FinishJob(job);
  }
}

// The answer to a job: its status, and a body when the host has given a verdict.
struct Verdict {
  char status[STATUS_SIZE];
  OwnedBlock<char> body;
  std::int32_t bodyLength;
};

void DecideWithoutBody(Verdict* verdict, const char* status) {
  CopyBounded(verdict->status, status, STATUS_SIZE);
}

void AskHost(JobRecord* job, Verdict* verdict) {
  const std::int32_t result =
      service.eventCallback(&job->header, job->documentKind, job->requestData, job->requestDataSize,
                            service.eventContext);
  if (result == QRN_RESPONSE_BUSY) {
    DecideWithoutBody(verdict, STATUS_BUSY);
    return;
  }
  char* body = nullptr;
  if (BuildResponseBody(result, job->header.protocolVersion, &body, &verdict->bodyLength) != 1) {
    DecideWithoutBody(verdict, STATUS_INTERNAL_FAILURE);
    return;
  }
  verdict->body.reset(body);
  CopyBounded(verdict->status, job->status, STATUS_SIZE);
}

// jobTableLock is held.
void SettleJob(JobRecord* job) {
  if (job->header.subevent == SUBEVENT_START && job->ended == 0) {
    job->delivered = 1;
    return;
  }
  if (job->header.subevent == SUBEVENT_END) {
    // Takes the END itself out too, when it carries its START's uid.
    RemoveJobsWithUid(job->parentUid);
  }
  FinishJob(job);
}

void Deliver(JobRecord* job) {
  Verdict verdict{};
  if (StopRequested()) {
    DecideWithoutBody(&verdict, STATUS_BUSY);
  } else {
    AskHost(job, &verdict);
  }
  // Queued and settled under one lock: a scanner that has the answer to its START may send the END
  // at once.  The lock also keeps the header as it is, which the host's sending of data may change.
  const LockScope scope(&service.jobTableLock);
  QueueMessage(job->socket, OutgoingContent{&job->header, verdict.body.get(), verdict.bodyLength,
                                            verdict.status, job->parentUid, 1});
  if (scope.Held()) {
    SettleJob(job);
  }
}

void DeliveryThread(void* argument) {
  auto* entry = static_cast<DeliveryEntry*>(argument);
  SetEntryState(entry, DELIVERY_RUNNING);
  Deliver(entry->job);
  // After this word the entry and the tables may go at any moment.
  SetEntryState(entry, DELIVERY_DONE);
}

}  // namespace

std::int32_t StartDelivery(JobRecord* job) {
  if (job == nullptr) {
    return 0;
  }
  if (StopRequested()) {
    // The host is not asked any more, and so no thread is needed.
    Deliver(job);
    return 1;
  }
  DropFinishedDeliveries();
  ListNode* node = AddDeliveryEntry(job);
  if (node == nullptr) {
    AbandonDelivery(job);
    return -1;
  }
  auto* entry = static_cast<DeliveryEntry*>(node->item);
  const std::uintptr_t thread =
      platform::StartThread(&DeliveryThread, entry, platform::STACK_FOR_HOST_CALLBACKS);
  if (thread == 0) {
    RemoveEntry(node);
    AbandonDelivery(job);
    return -1;
  }
  const LockScope scope(&service.deliveryListLock);
  entry->thread = thread;
  return 1;
}

std::int32_t BuildResponseBody(std::int32_t code, const char* protocolVersion, char** body,
                               std::int32_t* bodyLength) {
  *body = nullptr;
  *bodyLength = 0;
  PushScanResponseRecord record{};
  record.responseCode = code;
  CopyBounded(record.protocolVersion, protocolVersion, sizeof record.protocolVersion);
  PushScanDocument* made = nullptr;
  if (CreatePushScanDocument(DOCUMENT_PUSHSCAN_RESPONSE, &record, sizeof record, &made) != DOC_OK) {
    return 0;
  }
  const OwnedBuiltDocument document(made);
  return TakePushScanText(document.get(), body, bodyLength) == DOC_OK ? 1 : 0;
}

bool DeliveriesAtWork() {
  const ListNode* node = service.deliveryList.head;
  while (node != nullptr && IsDone(node)) {
    node = node->next;
  }
  return node != nullptr;
}

void WaitForDeliveries() {
  for (const ListNode* node = service.deliveryList.head; node != nullptr; node = node->next) {
    while (!IsDone(node)) {
      platform::SleepMilliseconds(1);
    }
  }
}

}  // namespace zvqrn
