#include "support/late_address.h"

#include "support/process.h"

namespace zvqrn::test {

void TakeAddress() {
  RunCommand("ip address flush dev quorin0");
}

void GiveAddress() {
  RunCommand("ip address replace 10.68.0.2/24 dev quorin0");
  RunCommand("ip route replace default via 10.68.0.1 dev quorin0 onlink");
}

std::int32_t SocketUsesEnded() {
  return 0;
}

}  // namespace zvqrn::test
