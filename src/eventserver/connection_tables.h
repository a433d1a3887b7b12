// The three tables of the main connection: the jobs (requests from their acceptance to their
// answer, STARTs to the answer of their END), the messages waiting to be sent, and the delivery
// threads.  They exist while a main connection is served; before and after, their locks cannot be
// acquired and every operation fails.
//
// jobTableLock guards the jobs, their index, their `delivered` and header uid; sendQueueLock guards
// the send queue, of which only the main connection's thread removes; deliveryListLock guards the
// entries' `thread` and `state`, while the list itself is changed and walked by the main
// connection's thread only.  sendQueueLock may be taken inside jobTableLock; nothing else nests.
#pragma once

#include <atomic>
#include <cstdint>

#include "base/tagged_list.h"
#include "eventproto/outgoing_message.h"
#include "platform/socket.h"
#include "zvqrn/zvqrn.h"

namespace zvqrn {

struct JobBucket;

// A request that has passed every check.  Owned by the job table.
struct JobRecord {
  platform::SocketHandle socket;  // the main connection's; not owned
  EventHeader header;             // the host gets its address; QRNSendData may change its uid
  std::int32_t documentKind;      // DOCUMENT_PUSHSCAN_V1 or DOCUMENT_PUSHSCAN_V2
  void* requestData;              // owned; the record that the host gets
  std::int32_t requestDataSize;
  char status[STATUS_SIZE];  // x-status of the answer that carries the host's result
  char parentUid[UID_SIZE];  // of an END: the uid of its START; else empty
  std::int32_t delivered;    // 0: its delivery is at work; 1: a START whose answer has been queued

  std::int32_t ended;  // 1: an END has come while its delivery is at work; nobody finds it any more

  ListNode* node;     // in the job table
  std::uint64_t age;  // lower for an older job
  JobBucket* bucket;  // in the index (job_index.h), or null; its neighbours there follow
  JobRecord* older;
  JobRecord* younger;
};

enum DeliveryState : std::int32_t {
  DELIVERY_DONE = 0,
  DELIVERY_STARTING = 1,
  DELIVERY_RUNNING = 2
};

// One delivery thread.  Owned by the delivery list.
struct DeliveryEntry {
  JobRecord* job;                   // what it delivers; not owned
  std::uintptr_t thread;            // its id; 0 until it has been started
  std::atomic<std::int32_t> state;  // DeliveryState; DELIVERY_DONE is the thread's last word
};

// Makes the three locks and empty tables; false, and nothing made, when the system refuses one.
bool CreateConnectionTables();

// The end of each table, with everything still in it.
void DestroyDeliveryList();
void DestroyJobTableAndSendQueue();

// What a job is made from; `requestData` is taken over, the rest is copied.
struct JobContent {
  const EventHeader* header;
  std::int32_t documentKind;
  void* requestData;
  std::int32_t requestDataSize;
  const char* status;
  const char* parentUid;
};

// Records a job; null when a part is missing, memory runs out or the table is not there.  The
// request data belongs to this call in every case.
JobRecord* AddJob(platform::SocketHandle socket, const JobContent& content,
                  std::int32_t delivered = 0);

// Frees a job that is in no table any more.
void ReleaseJob(JobRecord* job);

// Queues a message for the main connection's thread to send, and wakes that thread; drops the
// message when it cannot be made or queued.  The caller keeps the tables from going: it holds
// jobTableLock, or is the main connection's thread or one of its deliveries.
void QueueMessage(platform::SocketHandle socket, const OutgoingContent& content);

// Makes an entry in DELIVERY_STARTING; gives its node, or null when memory runs out.
ListNode* AddDeliveryEntry(JobRecord* job);

// Removes entries whose threads have finished: a few at each call, more than are added between two
// calls, so that the list stays about as long as there are threads at work.
void DropFinishedDeliveries();

// The oldest job whose header carries this uid (case matters); null when there is none, or when an
// END with that uid is among the jobs.  jobTableLock is held.
JobRecord* FindOpenJob(const char* uid);

// Judges an END's x-parent-uid: STATUS_ACCEPTED when it names an open START that has been
// delivered, else STATUS_UNKNOWN_PARENT; null when the table is not there.
const char* CheckParentUid(const char* parentUid);

// Ends every job with this uid: those whose delivery is over are removed and released, the others
// are not found any more; the uid must not lie in one of the former.  jobTableLock is held.
void RemoveJobsWithUid(const char* uid);

// The end of a job's delivery: removes the job from the table and releases it.  jobTableLock is
// held.
void FinishJob(JobRecord* job);

}  // namespace zvqrn
