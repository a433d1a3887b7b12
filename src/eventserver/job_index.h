// Finds the jobs of the job table by the uid in their headers, the oldest first, without walking
// the table: a scanner may leave thousands of STARTs open.  Every function needs jobTableLock.
#pragma once

#include "eventserver/connection_tables.h"

namespace zvqrn {

// Enters a job under the uid that its header has now.
void IndexJob(JobRecord* job);

// Takes a job out; does nothing for one that is not in.
void UnindexJob(JobRecord* job);

// The oldest job with this uid (case matters), and the next one after `job`; null at the end.
JobRecord* FirstJobWithUid(const char* uid);
JobRecord* NextJobWithUid(const JobRecord* job, const char* uid);

}  // namespace zvqrn
