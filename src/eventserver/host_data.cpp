#include "eventserver/host_data.h"

#include <cstring>

#include "base/allocation.h"
#include "base/service_state.h"
#include "base/text.h"
#include "eventserver/connection_tables.h"
#include "eventserver/job_index.h"
#include "platform/clock.h"

namespace zvqrn {

char* MakeUid() {
  const platform::LocalTimeStamp now = platform::ReadLocalTime();
  char* uid = NewBytes(UID_SIZE);
  if (uid == nullptr) {
    return nullptr;
  }
  char milliseconds[DECIMAL_TEXT_SIZE];
  FormatDecimal(now.milliseconds, milliseconds);
  const std::size_t used = std::strlen(now.text);
  std::memcpy(uid, now.text, used);
  CopyBounded(uid + used, milliseconds, UID_SIZE - static_cast<std::int32_t>(used));
  return uid;
}

namespace {

// The job with this uid whose own header the host has handed in, or null.  jobTableLock is held.
JobRecord* JobWithHeader(const EventHeader* header, const char* uid) {
  JobRecord* job = FirstJobWithUid(uid);
  while (job != nullptr && &job->header != header) {
    job = NextJobWithUid(job, uid);
  }
  return job;
}

}  // namespace

std::int32_t SendHostData(EventHeader* request, const void* data, std::int32_t length) {
  // The host's record need not end its text.
  char requestUid[UID_SIZE];
  const LockScope scope(&service.jobTableLock);
  if (!scope.Held()) {
    return 0;
  }
  std::memcpy(requestUid, request->uid, sizeof requestUid);
  requestUid[UID_SIZE - 1] = '\0';
  const JobRecord* job = FindOpenJob(requestUid);
  if (job == nullptr) {
    return 0;
  }
  const OwnedBlock<char> freshUid(MakeUid());
  if (!freshUid) {
    return 0;
  }
  // A host that hands in a job's own header renames that job.
  JobRecord* renamed = JobWithHeader(request, requestUid);
  CopyBounded(request->uid, freshUid.get(), UID_SIZE);
  if (renamed != nullptr) {
    UnindexJob(renamed);
    IndexJob(renamed);
  }
  QueueMessage(job->socket,
               OutgoingContent{request, data, length, STATUS_ACCEPTED, job->header.uid, 0});
  return 1;
}

}  // namespace zvqrn
