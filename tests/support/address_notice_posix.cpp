#include "support/process.h"
#include "support/replaced_calls.h"

// The system's own notice, one message of a change that is none.
void zvqrn::test::TellOfAddressChange() {
  RunCommand("ip address replace 10.68.0.2/24 dev quorin0");
}
