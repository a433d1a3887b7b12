// Notification of changes of the machine's IPv4 addresses.  One thread arms and closes a notifier,
// and lives until it has been closed: Windows ends what a thread has asked for with the thread.
#pragma once

#include "platform/sync.h"

namespace zvqrn::platform {

struct AddressNotifier;

// Makes a notifier that signals `event`; null when the system refuses.  Nothing is signalled before
// it has been armed.
AddressNotifier* MakeAddressNotifier(Event* event);

// Resets the event and asks to be told of the next change: a change from now on sets the event
// once.  False when the system refuses.
bool ArmAddressNotifier(AddressNotifier* notifier);

// Ends the notification: the event is not touched any more when this returns.
void CloseAddressNotifier(AddressNotifier* notifier);

}  // namespace zvqrn::platform
