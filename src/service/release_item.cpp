// ReleaseItem, declared in base/tagged_list.h: the one place that knows the records of every floor.

#include <cstdlib>

#include "base/tagged_list.h"
#include "discovery/requests.h"
#include "eventproto/outgoing_message.h"
#include "eventserver/connection_tables.h"

namespace zvqrn {

void ReleaseItem(void* item, std::int32_t tag) {
  switch (tag) {
    case TAG_JOB:
      ReleaseJob(static_cast<JobRecord*>(item));
      break;
    case TAG_OUTGOING:
      ReleaseOutgoingMessage(static_cast<OutgoingMessage*>(item));
      break;
    case TAG_DISCOVERY_REQUEST:
      ReleaseDiscoveryRequest(static_cast<DiscoveryRequest*>(item));
      break;
    case TAG_DELIVERY:
      std::free(item);
      break;
    default:
      break;
  }
}

}  // namespace zvqrn
