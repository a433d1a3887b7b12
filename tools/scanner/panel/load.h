// The panel's load: requests at a steady pace on one connection, with the times of their answers,
// and now and then an exchange of as many bytes with a thread of this program that answers at once,
// to compare with.  One thread does both in turn, and so both meet the same machine.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "scanner/exchange/request_options.h"
#include "scanner/panel/state.h"

namespace zvqrn::scanner {

constexpr std::int32_t LOAD_RATE_LIMIT = 20'000;  // requests a second
constexpr std::int32_t LOAD_SECONDS_LIMIT = 3600;

// Times counted in classes, each a quarter of a doubling wide, from 1 us on.
class Histogram {
 public:
  static constexpr std::size_t CLASSES = 100;

  void Add(double microseconds);
  std::int64_t Count() const { return count_; }
  // The time that this share (0 to 1) of all is not above, to the width of a class; 0 for none.
  double Quantile(double share) const;
  double Worst() const { return worst_; }
  // Where class `index` ends.
  static double EndOf(std::size_t index);
  const std::array<std::int64_t, CLASSES>& Classes() const { return classes_; }

 private:
  std::array<std::int64_t, CLASSES> classes_{};
  std::int64_t count_ = 0;
  double worst_ = 0;
};

struct LoadOrder {
  RequestOptions options;
  std::int32_t perSecond = 1000;
  std::int32_t seconds = 10;
};

class Load {
 public:
  explicit Load(PanelState* state) : state_(state) {}
  Load(const Load&) = delete;
  Load& operator=(const Load&) = delete;

  // ---- From any thread, with the state's lock ----

  // False when one runs already, or the system gives no thread.
  bool Start(const LoadOrder& order);
  void Stop() { stops_.store(true); }
  tools::JsonObject Describe() const;

 private:
  static void Run(void* load);
  void Work();
  void SendAll();
  bool AskOnce(OpenConnection* connection, std::int64_t number);
  void AskPlain(const Connection& plain);
  void TellHowItIs();

  PanelState* state_;
  std::atomic<bool> stops_{false};
  std::size_t requestSize_ = 0;  // the thread's own

  // ---- Guarded by the state's lock ----
  LoadOrder order_;
  bool runs_ = false;
  std::string trouble_;
  double elapsedMs_ = 0;
  std::map<std::string, std::int64_t> answers_;  // by x-status and StatusOut
  std::int64_t lost_ = 0;                        // connections that ended, answers that never came
  Histogram times_;
  Histogram plainTimes_;
};

}  // namespace zvqrn::scanner
