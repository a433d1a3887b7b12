// Lives of the service on the simulated machine.
//
// simulate --seeds N [--first S] [--jobs J]: N lives on J processes; how fast, and what they
// reached. simulate --seed S: one life, with its diary. simulate --kept FILE: the seeds of a file,
// which once found something.
//
// Exit code 1: something does not hold; the diary of that life is on the standard output.

#include <poll.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <map>

#include "actors/actors.h"

namespace zvqrn::simulation {
namespace {

constexpr std::size_t MOST_JOBS = 64;
constexpr std::size_t MOST_STATES = 128;
constexpr int HANG_SECONDS = 60;

struct State {
  std::atomic<const char*> name;
  std::atomic<std::int64_t> count;
};

// What the processes share.
struct Shared {
  std::atomic<std::uint64_t> next;
  std::atomic<std::int64_t> lives;
  std::atomic<std::uint64_t> current[MOST_JOBS];
  State states[MOST_STATES];
  std::atomic<std::uint64_t> virtualSeconds;
};
Shared* shared = nullptr;

[[noreturn]] void RunWorker(std::size_t job, std::uint64_t end) {
  for (;;) {
    const std::uint64_t seed = shared->next.fetch_add(1);
    if (seed >= end) {
      break;
    }
    shared->current[job] = seed;
    Live(seed);
    shared->lives++;
    shared->virtualSeconds += static_cast<std::uint64_t>(machine.now / SECOND);
  }
  _exit(0);
}

[[noreturn]] void ShowLife(std::uint64_t seed) {
  diaryOn = true;
  alarm(HANG_SECONDS);
  std::printf("seed %llu\n", static_cast<unsigned long long>(seed));
  Live(seed);
  std::printf("nothing found in the life of seed %llu\n", static_cast<unsigned long long>(seed));
  std::fflush(stdout);
  _exit(0);
}

void PrintProgress(std::int64_t count, double seconds) {
  const std::int64_t lives = shared->lives;
  std::printf("%s%lld of %lld lives, %.0f a second, %llu virtual hours%s", isatty(1) ? "\r" : "",
              static_cast<long long>(lives), static_cast<long long>(count),
              static_cast<double>(lives) / std::max(seconds, 0.001),
              static_cast<unsigned long long>(shared->virtualSeconds / 3600),
              isatty(1) ? "   " : "\n");
  std::fflush(stdout);
}

double Now() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// Ends the other workers of this run, and shows the life that found something.
[[noreturn]] void ShowFinding(const char* program, const std::vector<pid_t>& workers,
                              std::size_t finder, const char* how) {
  for (std::size_t i = 0; i < workers.size(); i++) {
    if (i != finder) {
      kill(workers[i], SIGKILL);
    }
  }
  const std::string seed = std::to_string(shared->current[finder]);
  std::printf("\nFOUND by seed %s%s\n", seed.c_str(), how);
  std::fflush(stdout);
  execl(program, "simulate", "--seed", seed.c_str(), nullptr);
  std::exit(1);
}

void RunLives(const char* program, std::uint64_t first, std::int64_t count, std::size_t jobs) {
  shared->next = first;
  const double begin = Now();
  std::vector<pid_t> workers;
  std::vector<double> lastChange(jobs, begin);
  std::vector<std::uint64_t> lastSeed(jobs, 0);
  for (std::size_t job = 0; job < jobs; job++) {
    std::fflush(stdout);
    const pid_t worker = fork();
    if (worker == 0) {
      RunWorker(job, first + static_cast<std::uint64_t>(count));
    }
    workers.push_back(worker);
  }
  std::size_t running = jobs;
  for (double told = begin; running > 0;) {
    int status = 0;
    const pid_t ended = waitpid(-1, &status, WNOHANG);
    if (ended > 0) {
      const auto finder = static_cast<std::size_t>(
          std::find(workers.begin(), workers.end(), ended) - workers.begin());
      if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        ShowFinding(program, workers, finder, WIFSIGNALED(status) ? ", by a crash" : "");
      }
      running--;
      continue;
    }
    poll(nullptr, 0, 20);
    for (std::size_t job = 0; job < jobs; job++) {
      if (shared->current[job] != lastSeed[job]) {
        lastSeed[job] = shared->current[job];
        lastChange[job] = Now();
      } else if (Now() - lastChange[job] > HANG_SECONDS &&
                 shared->next < first + static_cast<std::uint64_t>(count)) {
        kill(workers[job], SIGKILL);
        ShowFinding(program, workers, job, ", which does not come to an end");
      }
    }
    if (Now() - told >= (isatty(1) ? 1 : 30)) {
      told = Now();
      PrintProgress(count, told - begin);
    }
  }
  if (count > 1) {
    PrintProgress(count, Now() - begin);
  }
}

void PrintStates() {
  std::printf("\nreached, how often:\n");
  std::map<std::string, std::int64_t> counts;
  for (const State& state : shared->states) {
    if (state.name.load() != nullptr) {
      counts[state.name.load()] += state.count.load();
    }
  }
  for (const auto& [name, count] : counts) {
    std::printf("  %10lld  %s\n", static_cast<long long>(count), name.c_str());
  }
}

std::vector<std::uint64_t> ReadKept(const char* path) {
  std::vector<std::uint64_t> seeds;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (!line.empty() && line[0] != '#') {
      seeds.push_back(std::strtoull(line.c_str(), nullptr, 10));
    }
  }
  return seeds;
}

int Main(int count, char** arguments) {
  std::uint64_t first = 1;
  std::int64_t seeds = 0;
  std::size_t jobs = static_cast<std::size_t>(sysconf(_SC_NPROCESSORS_ONLN));
  const char* kept = nullptr;
  for (int i = 1; i + 1 < count; i += 2) {
    const std::string name = arguments[i];
    const char* value = arguments[i + 1];
    if (name == "--seed") {
      ShowLife(std::strtoull(value, nullptr, 10));
    } else if (name == "--seeds") {
      seeds = std::strtoll(value, nullptr, 10);
    } else if (name == "--first") {
      first = std::strtoull(value, nullptr, 10);
    } else if (name == "--jobs") {
      jobs = std::min<std::size_t>(std::strtoul(value, nullptr, 10), MOST_JOBS);
    } else if (name == "--kept") {
      kept = value;
    }
  }
  if (seeds < 1 && kept == nullptr) {
    std::fprintf(stderr,
                 "usage: simulate --seeds N [--first S] [--jobs J] [--kept FILE] | --seed S\n");
    return 2;
  }
  void* memory =
      mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    return 2;
  }
  shared = static_cast<Shared*>(memory);
  if (kept != nullptr) {
    const std::vector<std::uint64_t> once = ReadKept(kept);
    for (const std::uint64_t seed : once) {
      RunLives(arguments[0], seed, 1, 1);
    }
    std::printf("%zu kept seeds found nothing\n", once.size());
    shared->lives = 0;
  }
  if (seeds > 0 && jobs == 0) {
    for (std::uint64_t seed = first; seed < first + static_cast<std::uint64_t>(seeds); seed++) {
      Live(seed);
    }
  } else if (seeds > 0) {
    RunLives(arguments[0], first, seeds, jobs);
  }
  if (seeds > 0) {
    PrintStates();
    std::printf("%lld lives, nothing found\n", static_cast<long long>(seeds));
  }
  return 0;
}

}  // namespace

void Reached(const char* what) {
  // The workers are copies of one process: a text has the same address in all of them.
  for (State* state = shared != nullptr ? shared->states : nullptr;
       state != nullptr && state != shared->states + MOST_STATES; state++) {
    const char* known = nullptr;
    if (state->name.compare_exchange_strong(known, what) || known == what) {
      state->count++;
      return;
    }
  }
}

void ReportFinding(const std::string& what) {
  DIARY("FOUND: %s", what.c_str());
  std::fflush(stdout);
  std::fprintf(stderr, "seed %llu, at %lld us: %s\n", static_cast<unsigned long long>(machine.seed),
               static_cast<long long>(machine.now), what.c_str());
  _exit(1);
}

}  // namespace zvqrn::simulation

int main(int count, char** arguments) {
  return zvqrn::simulation::Main(count, arguments);
}
