// One connection of a scanner that misbehaves.  It counts what it does in its attack's tally and
// judges each answer that it reads; nothing here throws for what the PC does.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "platform/socket.h"
#include "scanner/stress/stress.h"

namespace zvqrn::scanner {

class BadPeer {
 public:
  // Connects, waiting at most `patienceMs`.
  explicit BadPeer(Attack* attack, std::int32_t patienceMs = 200);
  ~BadPeer();
  BadPeer(const BadPeer&) = delete;
  BadPeer& operator=(const BadPeer&) = delete;

  bool IsOpen() const { return socket_ > platform::NO_SOCKET; }

  // Sends all the bytes, for as long as the attack goes on; false when they did not all go.
  bool Send(const std::string& bytes);

  // Sends a request to which one of the `statuses` ("0001|2003") must be the answer, or none at all
  // when they are empty.  A PC may always be busy.
  bool SendRequest(const std::string& bytes, const std::string& uid, const std::string& statuses);

  // Takes and judges the answers that come within that time.
  void Read(std::int32_t milliseconds);

  // Stops waiting for the answer to a request that gets none.
  void Forget(const std::string& uid) { expected_.erase(uid); }

  // Requests whose answer has not come.
  std::size_t Unanswered() const { return expected_.size(); }

  void EndSending();
  void Close();
  void BreakOff();

 private:
  void Judge();
  void Lose();

  Attack* attack_;
  platform::SocketHandle socket_;
  std::string received_;
  std::map<std::string, std::string> expected_;  // by uid
};

// Waits, but not beyond the end of the attack.
void Rest(const Attack& attack, std::int32_t milliseconds);

// The next uid of the attack, and a request under a uid.
std::string FreshUid(Attack* attack);
std::string RequestText(const Attack& attack, Exchange exchange, const std::string& uid,
                        const std::string& parentUid = {});

}  // namespace zvqrn::scanner
