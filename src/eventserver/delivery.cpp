#include "eventserver/delivery.h"

#include <cstring>

#include "base/allocation.h"
#include "base/service_state.h"
#include "base/text.h"
#include "eventserver/connection_tables.h"
#include "platform/thread.h"
#include "pushscan/documents.h"

namespace zvqrn {
namespace {

// What a delivery thread works on; it frees this block.
struct DeliveryArgument {
  ListNode* job;
  ListNode* entry;
};

DeliveryEntry* EntryOf(const ListNode* node) {
  return static_cast<DeliveryEntry*>(node->item);
}

// The entry's word is written even when its lock cannot be had: the end of the connection waits
// for it.
void SetEntryState(ListNode* node, DeliveryState state) {
  const LockScope scope(&service.deliveryListLock);
  EntryOf(node)->state.store(state);
}

void RemoveEntry(const ListNode* node) {
  const LockScope scope(&service.deliveryListLock);
  ListRemove(&service.deliveryList, node);
}

// Answers a request whose delivery could not be started, and forgets it.
void AbandonDelivery(const ListNode* jobNode) {
  const JobRecord* job = JobOf(jobNode);
  QueueMessage(job->socket,
               AnswerWithoutBody(job->header, STATUS_INTERNAL_FAILURE, job->parentUid));
  const LockScope scope(&service.jobTableLock);
  if (scope.Held()) {
    ListRemove(&service.jobTable, jobNode);
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

void AskHost(const JobRecord& job, Verdict* verdict) {
  const std::int32_t result = service.eventCallback(job.header, job.documentKind, job.requestData,
                                                    job.requestDataSize, service.eventContext);
  if (result == QRN_RESPONSE_BUSY) {
    DecideWithoutBody(verdict, STATUS_BUSY);
    return;
  }
  char* body = nullptr;
  if (BuildResponseBody(result, job.header->protocolVersion, &body, &verdict->bodyLength) != 1) {
    DecideWithoutBody(verdict, STATUS_INTERNAL_FAILURE);
    return;
  }
  verdict->body.reset(body);
  CopyBounded(verdict->status, job.status, STATUS_SIZE);
}

// The header as it stands now: the host may just be sending data for this job, which changes the
// uid under the lock.
EventHeader CopyHeader(const JobRecord& job) {
  const LockScope scope(&service.jobTableLock);
  return *job.header;
}

void SettleJob(ListNode* node) {
  const LockScope scope(&service.jobTableLock);
  if (!scope.Held()) {
    return;
  }
  JobRecord* job = JobOf(node);
  if (job->header->exchangeType == EXCHANGE_SINGLE) {
    ListRemove(&service.jobTable, node);
  } else if (job->header->subevent == SUBEVENT_END) {
    char parentUid[UID_SIZE];
    CopyBounded(parentUid, job->parentUid, UID_SIZE);
    // This may remove the END itself, when it carries its START's uid; its node is then unknown
    // to the list, and removing it does nothing.
    RemoveJobsWithUid(parentUid);
    ListRemove(&service.jobTable, node);
  } else {
    job->delivered = 1;
  }
}

void Deliver(ListNode* jobNode) {
  const JobRecord& job = *JobOf(jobNode);
  Verdict verdict{};
  if (StopRequested()) {
    DecideWithoutBody(&verdict, STATUS_BUSY);
  } else {
    AskHost(job, &verdict);
  }
  const EventHeader header = CopyHeader(job);
  QueueMessage(job.socket, OutgoingContent{&header, verdict.body.get(), verdict.bodyLength,
                                           verdict.status, job.parentUid, 1});
  SettleJob(jobNode);
}

void DeliveryThread(void* argument) {
  const OwnedBlock<DeliveryArgument> delivery(static_cast<DeliveryArgument*>(argument));
  SetEntryState(delivery->entry, DELIVERY_RUNNING);
  Deliver(delivery->job);
  // After this word the tables may go at any moment.
  SetEntryState(delivery->entry, DELIVERY_DONE);
}

}  // namespace

std::int32_t StartDelivery(ListNode* jobNode) {
  if (jobNode == nullptr || jobNode->item == nullptr) {
    return 0;
  }
  ListNode* entryNode = AddDeliveryEntry();
  if (entryNode == nullptr) {
    AbandonDelivery(jobNode);
    return -1;
  }
  OwnedBlock<DeliveryArgument> argument(NewRecord<DeliveryArgument>());
  if (!argument) {
    AbandonDelivery(jobNode);
    RemoveEntry(entryNode);
    return 0;
  }
  *argument = DeliveryArgument{jobNode, entryNode};
  const std::uintptr_t thread =
      platform::StartThread(&DeliveryThread, argument.get(), platform::STACK_FOR_HOST_CALLBACKS);
  if (thread == 0) {
    RemoveEntry(entryNode);
    AbandonDelivery(jobNode);
    return -1;
  }
  argument.release();
  const LockScope scope(&service.deliveryListLock);
  EntryOf(entryNode)->thread = thread;
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
  const char* text = nullptr;
  std::int32_t length = 0;
  if (GetPushScanText(document.get(), &text, &length) != DOC_OK) {
    return 0;
  }
  char* copy = NewBytes(static_cast<std::int64_t>(length) + 1);
  if (copy == nullptr) {
    return 0;
  }
  std::memcpy(copy, text, static_cast<std::size_t>(length));
  *body = copy;
  *bodyLength = length;
  return 1;
}

void WaitForDeliveries() {
  for (const ListNode* node = service.deliveryList.head; node != nullptr; node = node->next) {
    while (EntryOf(node)->state.load() != DELIVERY_DONE) {
      platform::SleepMilliseconds(1);
    }
  }
}

}  // namespace zvqrn
