// The panel's virtual scanners: each has a thread and at most one connection, sends what it is told
// to, and hears what comes in between.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "platform/sync.h"
#include "platform/waker.h"
#include "scanner/exchange/request_options.h"
#include "scanner/panel/faults.h"
#include "scanner/panel/live_connection.h"
#include "scanner/panel/state.h"
#include "scanner/wire/connection.h"
#include "scanner/wire/exchange.h"

namespace zvqrn::scanner {

// One connection is served, five more are answered: with two more all that can happen can be seen.
constexpr int SCANNERS_LIMIT = 8;
constexpr std::size_t ORDERS_LIMIT = 20;
constexpr std::int32_t TIMES_LIMIT = 5000;

// A request that a scanner is told to send.
struct ScanOrder {
  RequestOptions options;
  const Fault* fault = nullptr;
  Exchange exchange = EXCHANGE_OF_ONE;
  bool staysConnected = false;  // afterwards; it does while a START is open
  std::int32_t times = 1;
  std::int32_t timeoutMs = 10000;  // for each answer
};

class VirtualScanner {
 public:
  VirtualScanner(PanelState* state, int number);
  VirtualScanner(const VirtualScanner&) = delete;
  VirtualScanner& operator=(const VirtualScanner&) = delete;
  ~VirtualScanner();

  // Starts the thread, which keeps the scanner alive; false when the system gives none.
  static bool Start(const std::shared_ptr<VirtualScanner>& scanner);

  // ---- From any thread, with the lock ----

  // False when it has too much to do already.
  bool Give(const ScanOrder& order);
  // Drops what it has to do, and its connection; with `leaves` for good.
  void Stop(bool leaves);
  tools::JsonObject Describe() const;

 private:
  static void Run(void* scanner);
  void Work();
  bool TakeOrder();
  void SendNext();
  void ConnectTo(const Link& link);
  void SendDuePieces(std::int64_t nowMs);
  void Listen(std::int32_t milliseconds);
  void OnAnswer(const Answer& answer);
  void LookAtTime(std::int64_t nowMs);
  void Disconnect(const char* by);
  void Note(const std::string& kind, const std::string& text);
  void TellHowItIs();
  void Poke();

  PanelState* state_;
  const int number_;
  platform::Waker* waker_;
  platform::Event* event_;

  // ---- Guarded by the lock ----
  std::deque<ScanOrder> orders_;
  bool stops_ = false;
  bool leaves_ = false;
  std::string pc_;         // with which it is connected; empty: with none
  std::string openStart_;  // uid of its START that is open; empty: none
  std::int32_t left_ = 0;  // how often the present request is still to be sent

  // ---- The thread's own ----
  std::optional<ScanOrder> order_;
  std::unique_ptr<LiveConnection> live_;
  OpenConnection connection_;
  std::deque<std::string> pieces_;
  std::int64_t nextPieceMs_ = 0;
  bool awaits_ = false;
  bool holdsMore_ = false;  // bytes that have come may be more messages
  std::string awaitedUid_;
  std::int64_t answerByMs_ = 0;
};

// Adds a scanner; null when there are enough, or the system gives no thread.  With the lock.
VirtualScanner* AddScanner(PanelState* state);

}  // namespace zvqrn::scanner
