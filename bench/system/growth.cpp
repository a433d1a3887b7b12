#include <algorithm>

#include "common/event_client.h"
#include "common/statistics.h"
#include "system/run.h"

namespace zvqrn::bench {
namespace {

constexpr std::size_t COUNTS[] = {10, 10000, 100000};
constexpr std::size_t OPEN_STARTS[] = {10, 1000, 10000};
constexpr std::size_t BATCH = 500;
constexpr double PATIENCE_FACTOR = 10;

// What a request costs: the scanner, in time to its answer, and the PC, in processor time.
struct Window {
  std::vector<double> times;
  double cpuNanoseconds;

  double Cpu() const { return cpuNanoseconds / static_cast<double>(times.size()); }
};

Window Observe(const Child& host, EventClient* client, const Limits& limits) {
  const Deadline deadline(limits.seconds);
  Window window{{}, ReadUsage(host).cpuNanoseconds};
  do {
    window.times.push_back(Exchange(client));
  } while (!deadline.Passed() && window.times.size() < limits.samples);
  window.cpuNanoseconds = ReadUsage(host).cpuNanoseconds - window.cpuNanoseconds;
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

void MeasureServed(const Settings& settings, const Child& host, Results* results) {
  const Deadline deadline(settings.growth.seconds * PATIENCE_FACTOR);
  EventClient client = ConnectToService();
  std::vector<Window> fresh;
  for (const std::size_t count : COUNTS) {
    const std::string name = "growth.served_" + std::to_string(count);
    std::size_t done = client.sent;
    if (!Reach(&client, count, &done, deadline)) {
      results->missing[name] = TooSlow(done);
      continue;
    }
    const Window window = Observe(host, &client, settings.growth);
    Tell(name, window, results);
    if (count == COUNTS[0]) {
      fresh.push_back(window);
    }
  }
  // A fresh connection once more: what the machine does meanwhile must not pass for growth.
  client = EventClient{};
  client = ConnectToService();
  std::size_t done = client.sent;
  Reach(&client, COUNTS[0], &done, Deadline(settings.growth.seconds));
  const Window again = Observe(host, &client, settings.growth);
  const std::string name = "growth.served_" + std::to_string(COUNTS[0]);
  results->figures[name + ".answer"] = (Median(fresh[0].times) + Median(again.times)) / 2;
  results->figures[name + ".cpu"] = (fresh[0].Cpu() + again.Cpu()) / 2;
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
    const Window window = Observe(host, &client, settings.growth);
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
