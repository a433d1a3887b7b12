#include <algorithm>

#include "common/event_client.h"
#include "common/statistics.h"
#include "system/run.h"

namespace zvqrn::bench {
namespace {

constexpr std::size_t FEW = 10;
constexpr std::size_t MANY[] = {10000, 100000};
constexpr std::size_t OPEN_STARTS[] = {10, 1000, 10000};
constexpr std::size_t BATCH = 500;
constexpr double PATIENCE_FACTOR = 10;

// So many fresh connections before all others and so many after them, which together are observed
// as long as a used one: what the machine does meanwhile must not pass for growth.
constexpr std::size_t FRESH = 5;

// What a request costs: the scanner, in time to its answer, and the PC, in processor time.
struct Window {
  std::vector<double> times;
  double cpuNanoseconds;

  double Cpu() const { return cpuNanoseconds / static_cast<double>(times.size()); }
};

void Observe(const Child& host, EventClient* client, std::size_t samples, const Limits& limits,
             Window* window) {
  const Deadline deadline(limits.seconds);
  const double before = ReadUsage(host).cpuNanoseconds;
  std::size_t taken = 0;
  do {
    window->times.push_back(Exchange(client));
    taken++;
  } while (!deadline.Passed() && taken < samples);
  window->cpuNanoseconds += ReadUsage(host).cpuNanoseconds - before;
}

// A window of a connection that stays as it is meanwhile, or has long been used.  The system is
// busy for a while with the threads that answered many requests at once; that goes by first.
Window ObserveLong(const Child& host, EventClient* client, const Limits& limits) {
  Window unsettled{};
  Observe(host, client, limits.samples, limits, &unsettled);
  Window window{};
  Observe(host, client, 2 * FRESH * limits.samples, limits, &window);
  return window;
}

// Sends until so many have been answered; false when that takes too long.
bool Reach(EventClient* client, std::size_t count, std::size_t* done, const Deadline& deadline) {
  while (*done < count && !deadline.Passed()) {
    const std::size_t batch = std::min(BATCH, count - *done);
    ExchangePipelined(client, batch);
    *done += batch;
  }
  return *done >= count;
}

std::string TooSlow(std::size_t done) {
  return "only " + std::to_string(done) + " were reached in the time there is";
}

void Tell(const std::string& name, const Window& window, Results* results) {
  results->figures[name + ".answer"] = Median(window.times);
  results->figures[name + ".cpu"] = window.Cpu();
}

// Adds what connections cost that have just begun; one before them settles the system.
void ObserveFresh(const Child& host, const Limits& limits, Window* window) {
  Window unsettled{};
  for (std::size_t i = 0; i <= FRESH; i++) {
    EventClient client = ConnectToService();
    while (client.sent < FEW) {
      Exchange(&client);
    }
    Observe(host, &client, limits.samples, limits, i == 0 ? &unsettled : window);
  }
}

void MeasureServed(const Settings& settings, const Child& host, Results* results) {
  const Limits& limits = settings.growth;
  const Deadline deadline(limits.seconds * PATIENCE_FACTOR);
  Window fresh{};
  ObserveFresh(host, limits, &fresh);
  {
    EventClient client = ConnectToService();
    for (const std::size_t count : MANY) {
      const std::string name = "growth.served_" + std::to_string(count);
      std::size_t done = client.sent;
      if (Reach(&client, count, &done, deadline)) {
        Tell(name, ObserveLong(host, &client, limits), results);
      } else {
        results->missing[name] = TooSlow(done);
      }
    }
  }
  ObserveFresh(host, limits, &fresh);
  Tell("growth.served_" + std::to_string(FEW), fresh, results);
}

void MeasureOpenStarts(const Settings& settings, const Child& host, Results* results) {
  const Deadline deadline(settings.growth.seconds * PATIENCE_FACTOR);
  EventClient client = ConnectToService();
  EventClient starts;
  starts.socket = std::move(client.socket);
  starts.sent = client.sent;
  starts.mark = client.mark;
  SendStartsFrom(&starts);
  std::size_t open = 1;
  for (const std::size_t count : OPEN_STARTS) {
    const std::string name = "growth.open_" + std::to_string(count);
    if (!Reach(&starts, count, &open, deadline)) {
      results->missing[name] = TooSlow(open);
      continue;
    }
    // The same connection serves both kinds; only one of the clients holds it at a time.
    client.socket = std::move(starts.socket);
    client.sent = starts.sent;
    const Window window = ObserveLong(host, &client, settings.growth);
    starts.socket = std::move(client.socket);
    starts.sent = client.sent;
    Tell(name, window, results);
  }
}

}  // namespace

void MeasureGrowth(const Settings& settings, Results* results) {
  const Child host = StartService(NativeHost(settings));
  MeasureServed(settings, host, results);
  MeasureOpenStarts(settings, host, results);
  StopService(host);
}

}  // namespace zvqrn::bench
