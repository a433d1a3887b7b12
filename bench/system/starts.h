// STARTs: their data and answers, and those whose callbacks have not returned.
#pragma once

#include "common/event_client.h"
#include "system/run.h"

namespace zvqrn::bench {

// Sends 100 STARTs and waits until the callbacks of all are running; they do not return before
// ReleaseStarts, which takes the answers.  The client's own requests go on meanwhile.
void HoldStarts(const Child& service, EventClient* client);
void ReleaseStarts(const Child& service, EventClient* client);

// start_data.*: the last bytes of the host's data and of the answer.  The service's host sends with
// each START from then on.
void MeasureStartsWithData(const Settings& settings, const Placement& placement,
                           const Child& service, Results* results);

}  // namespace zvqrn::bench
