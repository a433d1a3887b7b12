#include "eventserver/job_index.h"

#include <cstring>

#include "base/service_state.h"

namespace zvqrn {
namespace {

// FNV-1a.  A scanner that chooses its uids to share a bucket slows its own connection only.
JobBucket* BucketOf(const char* uid) {
  std::uint32_t hash = 2166136261U;
  for (; *uid != '\0'; uid++) {
    hash = (hash ^ static_cast<unsigned char>(*uid)) * 16777619U;
  }
  return &service.jobIndex[(hash ^ hash >> 16U) % JOB_BUCKETS];
}

JobRecord* SeekUid(JobRecord* job, const char* uid) {
  while (job != nullptr && std::strcmp(job->header.uid, uid) != 0) {
    job = job->younger;
  }
  return job;
}

}  // namespace

void IndexJob(JobRecord* job) {
  JobBucket* bucket = BucketOf(job->header.uid);
  JobRecord* older = bucket->last;
  while (older != nullptr && older->age > job->age) {
    older = older->older;
  }
  job->bucket = bucket;
  job->older = older;
  job->younger = older != nullptr ? older->younger : bucket->first;
  (older != nullptr ? older->younger : bucket->first) = job;
  (job->younger != nullptr ? job->younger->older : bucket->last) = job;
}

void UnindexJob(JobRecord* job) {
  if (job->bucket == nullptr) {
    return;
  }
  (job->older != nullptr ? job->older->younger : job->bucket->first) = job->younger;
  (job->younger != nullptr ? job->younger->older : job->bucket->last) = job->older;
  job->bucket = nullptr;
}

JobRecord* FirstJobWithUid(const char* uid) {
  return SeekUid(BucketOf(uid)->first, uid);
}

JobRecord* NextJobWithUid(const JobRecord* job, const char* uid) {
  return SeekUid(job->younger, uid);
}

}  // namespace zvqrn
