#include "eventserver/connection_tables.h"

#include "base/allocation.h"
#include "base/service_state.h"
#include "base/text.h"
#include "eventserver/job_index.h"

namespace zvqrn {
namespace {

using OwnedJob = Owned<JobRecord, ReleaseJob>;

// Finished entries are looked for at this many places for each entry that is added.
constexpr int DELIVERY_LOOKS = 2;

DeliveryEntry* EntryOf(const ListNode* node) {
  return static_cast<DeliveryEntry*>(node->item);
}

void CloseConnectionWaker() {
  if (service.connectionWaker != nullptr) {
    platform::CloseWaker(service.connectionWaker);
    service.connectionWaker = nullptr;
  }
}

}  // namespace

bool CreateConnectionTables() {
  ServiceLock* const locks[] = {&service.jobTableLock, &service.sendQueueLock,
                                &service.deliveryListLock};
  service.jobTable = TaggedList{};
  service.sendQueue = TaggedList{};
  service.deliveryList = TaggedList{};
  service.deliveryLook = nullptr;
  for (ServiceLock* lock : locks) {
    if (!CreateServiceLock(lock, 1, 1)) {
      for (ServiceLock* const* made = locks; *made != lock; made++) {
        DestroyServiceLock(*made);
      }
      return false;
    }
  }
  service.connectionWaker = platform::MakeWaker();
  return true;
}

void DestroyDeliveryList() {
  DestroyTable(&service.deliveryList, &service.deliveryListLock);
}

void DestroyJobTableAndSendQueue() {
  DestroyTable(&service.jobTable, &service.jobTableLock);
  DestroyTable(&service.sendQueue, &service.sendQueueLock);
  CloseConnectionWaker();
}

JobRecord* AddJob(platform::SocketHandle socket, const JobContent& content,
                  std::int32_t delivered) {
  OwnedBlock<void> requestData(content.requestData);
  if (content.header == nullptr || !requestData || content.status == nullptr) {
    return nullptr;
  }
  OwnedJob job(NewRecord<JobRecord>());
  if (!job) {
    return nullptr;
  }
  job->socket = socket;
  job->header = *content.header;
  job->documentKind = content.documentKind;
  job->requestDataSize = content.requestDataSize;
  job->delivered = delivered;
  job->requestData = requestData.release();
  CopyBounded(job->status, content.status, STATUS_SIZE);
  if (content.parentUid != nullptr) {
    CopyBounded(job->parentUid, content.parentUid, UID_SIZE);
  }
  const LockScope scope(&service.jobTableLock);
  if (!scope.Held()) {
    return nullptr;
  }
  job->node = ListAppend(&service.jobTable, job.get(), TAG_JOB);
  if (job->node == nullptr) {
    return nullptr;
  }
  job->age = service.jobsAdded++;
  IndexJob(job.get());
  return job.release();
}

void ReleaseJob(JobRecord* job) {
  UnindexJob(job);
  std::free(job->requestData);
  std::free(job);
}

void QueueMessage(platform::SocketHandle socket, const OutgoingContent& content) {
  OwnedOutgoingMessage message(MakeOutgoingMessage(socket, content));
  if (!message) {
    return;
  }
  {
    const LockScope scope(&service.sendQueueLock);
    if (!scope.Held() || ListAppend(&service.sendQueue, message.get(), TAG_OUTGOING) == nullptr) {
      return;
    }
    message.release();
  }
  // After the lock, which is the first thing that the woken thread wants.
  if (service.connectionWaker != nullptr) {
    platform::Wake(service.connectionWaker);
  }
}

ListNode* AddDeliveryEntry(JobRecord* job) {
  OwnedBlock<DeliveryEntry> entry(NewRecord<DeliveryEntry>());
  if (!entry) {
    return nullptr;
  }
  entry->job = job;
  entry->state.store(DELIVERY_STARTING);
  ListNode* node = ListAppend(&service.deliveryList, entry.get(), TAG_DELIVERY);
  if (node != nullptr) {
    entry.release();
  }
  return node;
}

void DropFinishedDeliveries() {
  const LockScope scope(&service.deliveryListLock);
  for (int i = 0; scope.Held() && i < DELIVERY_LOOKS; i++) {
    ListNode* node =
        service.deliveryLook != nullptr ? service.deliveryLook : service.deliveryList.head;
    if (node == nullptr) {
      return;
    }
    service.deliveryLook = node->next;
    if (EntryOf(node)->state.load() == DELIVERY_DONE) {
      ListRemoveMember(&service.deliveryList, node);
    }
  }
}

JobRecord* FindOpenJob(const char* uid) {
  JobRecord* first = FirstJobWithUid(uid);
  for (const JobRecord* job = first; job != nullptr; job = NextJobWithUid(job, uid)) {
    if (job->header.subevent == SUBEVENT_END) {
      return nullptr;
    }
  }
  return first;
}

const char* CheckParentUid(const char* parentUid) {
  const LockScope scope(&service.jobTableLock);
  if (!scope.Held()) {
    return nullptr;
  }
  const JobRecord* job = FindOpenJob(parentUid);
  return job != nullptr && job->delivered != 0 ? STATUS_ACCEPTED : STATUS_UNKNOWN_PARENT;
}

void RemoveJobsWithUid(const char* uid) {
  JobRecord* job = FirstJobWithUid(uid);
  while (job != nullptr) {
    JobRecord* next = NextJobWithUid(job, uid);
    // The host's callback may just be reading a job that is being delivered: nobody finds that one
    // any more, and it goes with its delivery, or with the table if that cannot have the lock.
    UnindexJob(job);
    job->ended = 1;
    if (job->delivered != 0) {
      FinishJob(job);
    }
    job = next;
  }
}

void FinishJob(JobRecord* job) {
  ListTake(&service.jobTable, job->node);
  ReleaseJob(job);
}

}  // namespace zvqrn
