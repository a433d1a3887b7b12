#include "support/process.h"
#include "support/replaced_calls.h"

// The system's own notice, of a change that is none.
void zvqrn::test::TellOfAddressChange() {
  RunCommand("ip address replace 10.68.77.7/32 dev lo && ip address delete 10.68.77.7/32 dev lo");
}
