// A scanner at the other end of a real connection.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/socket.h"
#include "support/patience.h"

namespace zvqrn::test {

class Scanner {
 public:
  enum Listener { MUST_LISTEN, MAY_BE_GONE };

  // Connects to the event port of this machine; fails the test when nobody listens who must.
  explicit Scanner(Listener listener = MUST_LISTEN);
  ~Scanner();
  Scanner(const Scanner&) = delete;
  Scanner& operator=(const Scanner&) = delete;

  // Sends all bytes; false when the library does not take them.
  bool Send(std::string_view bytes);

  // The next whole message; empty when the connection ends or nothing comes in time.
  std::string Receive(std::int32_t milliseconds = PATIENCE_MS);

  // True when the library closes the connection in time, without a further byte.
  bool SeesClose(std::int32_t milliseconds = PATIENCE_MS);

  // True when the library ends its side of the connection in time, without a further byte and
  // without a reset, which may cost the scanner answers that it has not read yet.
  bool SeesEnd(std::int32_t milliseconds = PATIENCE_MS);

  // True when not a byte comes for that long and the connection stays open.
  bool HearsNothing(std::int32_t milliseconds);

  // True once the library's end of the connection has been met.
  bool HasEnded() const { return ended_; }

  // Ends its own side only; closes the connection; breaks it off with a reset.
  void EndSending();
  void Close();
  void Reset();

 private:
  enum Filled { FILLED, ENDED, BROKEN_OFF, TIMED_OUT };
  Filled Fill(std::int64_t deadline);

  platform::SocketHandle socket_;
  std::string received_;
  bool ended_ = false;
};

}  // namespace zvqrn::test
