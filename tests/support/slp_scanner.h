// A scanner that looks for PCs: a datagram socket at an address of its own in the private network.
#pragma once

#include <climits>
#include <cstdint>
#include <map>
#include <string>

#include "platform/socket.h"
#include "support/patience.h"
#include "support/process.h"

namespace zvqrn::test {

// Address of the service's PC in the private network.
constexpr char PC_ADDRESS[] = "10.68.0.2";

// True inside a private network (scripts/private_network.sh): only there may a test change
// addresses or send multicasts.  Fails the test elsewhere.
bool InPrivateNetwork();

// An Attribute Request with the texts in wire order, and a body's rest.
struct SlpRequest {
  int xid;
  std::string scope = "default";
  std::string previousResponders = "";
  std::string url = "service:Quorin-agent";
  std::string tagList = "";
  std::string languageTag = "en";
};
std::string Encode(const SlpRequest& request);

class SlpScanner {
 public:
  // Binds to the port of replies at `address`, which it adds to an adapter of the private network
  // unless it is a loopback one.
  explicit SlpScanner(const char* address = SCANNER_ADDRESS, const char* adapter = "quorin0");
  ~SlpScanner();
  SlpScanner(const SlpScanner&) = delete;
  SlpScanner& operator=(const SlpScanner&) = delete;

  // Sends from the port of replies, or from another port of the same address.
  void Send(const std::string& bytes, const char* to = PC_ADDRESS) const;
  void SendFromAnotherPort(const std::string& bytes, const char* to = PC_ADDRESS);
  void SendByMulticast(const std::string& bytes) const;

  // The next datagram; empty when none comes in time.
  std::string Receive(std::int32_t milliseconds);

  // Asks once, at `to` or by multicast, with an XID that no other call of these two has used.  The
  // reply; empty when none comes in time.
  std::string Ask(const char* to, std::int32_t milliseconds = PATIENCE_MS);
  std::string AskByMulticast(std::int32_t milliseconds);

  // How many datagrams with each XID come within that time; ends early when `enough` have come.
  std::map<int, int> CountReplies(std::int32_t milliseconds, int enough = INT_MAX);

 private:
  // The reply with that XID; those to other requests are passed over.
  std::string ReceiveReply(int xid, std::int32_t milliseconds);

  platform::SocketHandle socket_;
};

}  // namespace zvqrn::test
