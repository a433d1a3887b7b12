#include "eventserver/connection_tables.h"

#include <cstring>

#include "base/allocation.h"
#include "base/service_state.h"
#include "base/text.h"

namespace zvqrn {
namespace {

using OwnedJob = Owned<JobRecord, ReleaseJob>;

bool HasUid(const ListNode* node, const char* uid) {
  return std::strcmp(JobOf(node)->header->uid, uid) == 0;
}

}  // namespace

bool CreateConnectionTables() {
  ServiceLock* const locks[] = {&service.jobTableLock, &service.sendQueueLock,
                                &service.deliveryListLock};
  service.jobTable = TaggedList{};
  service.sendQueue = TaggedList{};
  service.deliveryList = TaggedList{};
  for (ServiceLock* lock : locks) {
    if (!CreateServiceLock(lock, 1, 1)) {
      for (ServiceLock* const* made = locks; *made != lock; made++) {
        DestroyServiceLock(*made);
      }
      return false;
    }
  }
  return true;
}

void DestroyDeliveryList() {
  DestroyTable(&service.deliveryList, &service.deliveryListLock);
}

void DestroyJobTableAndSendQueue() {
  DestroyTable(&service.jobTable, &service.jobTableLock);
  DestroyTable(&service.sendQueue, &service.sendQueueLock);
}

ListNode* AddJob(platform::SocketHandle socket, const JobContent& content, std::int32_t delivered) {
  OwnedBlock<void> requestData(content.requestData);
  if (content.header == nullptr || !requestData || content.status == nullptr) {
    return nullptr;
  }
  OwnedJob job(NewRecord<JobRecord>());
  if (!job) {
    return nullptr;
  }
  job->socket = socket;
  job->documentKind = content.documentKind;
  job->requestDataSize = content.requestDataSize;
  job->delivered = delivered;
  job->requestData = requestData.release();
  job->header = NewRecord<EventHeader>();
  job->status = CopyText(content.status);
  if (job->header == nullptr || job->status == nullptr) {
    return nullptr;
  }
  *job->header = *content.header;
  if (content.parentUid != nullptr) {
    CopyBounded(job->parentUid, content.parentUid, UID_SIZE);
  }
  const LockScope scope(&service.jobTableLock);
  if (!scope.Held()) {
    return nullptr;
  }
  ListNode* node = ListAppend(&service.jobTable, job.get(), TAG_JOB);
  if (node != nullptr) {
    job.release();
  }
  return node;
}

void ReleaseJob(JobRecord* job) {
  std::free(job->header);
  std::free(job->requestData);
  std::free(job->status);
  std::free(job);
}

void QueueMessage(platform::SocketHandle socket, const OutgoingContent& content) {
  OwnedOutgoingMessage message(MakeOutgoingMessage(socket, content));
  if (!message) {
    return;
  }
  const LockScope scope(&service.sendQueueLock);
  if (scope.Held() && ListAppend(&service.sendQueue, message.get(), TAG_OUTGOING) != nullptr) {
    message.release();
  }
}

ListNode* AddDeliveryEntry() {
  OwnedBlock<DeliveryEntry> entry(NewRecord<DeliveryEntry>());
  if (!entry) {
    return nullptr;
  }
  entry->state.store(DELIVERY_STARTING);
  ListNode* node = ListAppend(&service.deliveryList, entry.get(), TAG_DELIVERY);
  if (node != nullptr) {
    entry.release();
  }
  return node;
}

ListNode* FindOpenJob(const char* uid) {
  ListNode* first = nullptr;
  for (ListNode* node = service.jobTable.head; node != nullptr; node = node->next) {
    if (!HasUid(node, uid)) {
      continue;
    }
    if (JobOf(node)->header->subevent == SUBEVENT_END) {
      return nullptr;
    }
    if (first == nullptr) {
      first = node;
    }
  }
  return first;
}

const char* CheckParentUid(const char* parentUid) {
  const LockScope scope(&service.jobTableLock);
  if (!scope.Held()) {
    return nullptr;
  }
  const ListNode* node = FindOpenJob(parentUid);
  return node != nullptr && JobOf(node)->delivered != 0 ? STATUS_ACCEPTED : STATUS_UNKNOWN_PARENT;
}

void RemoveJobsWithUid(const char* uid) {
  ListNode* node = service.jobTable.head;
  while (node != nullptr) {
    ListNode* next = node->next;
    if (HasUid(node, uid)) {
      ListRemove(&service.jobTable, node);
    }
    node = next;
  }
}

}  // namespace zvqrn
