#include "system/placement.h"

#include <fstream>

#include "common/sockets.h"

namespace zvqrn::bench {
namespace {

// A processor's core, as text that its threads share.
std::string CoreOf(std::size_t processor) {
  std::ifstream file("/sys/devices/system/cpu/cpu" + std::to_string(processor) +
                     "/topology/thread_siblings_list");
  std::string siblings;
  return std::getline(file, siblings) ? siblings : std::to_string(processor);
}

void SetProcessors(const cpu_set_t& processors) {
  Checked(sched_setaffinity(0, sizeof processors, &processors), "pinning to a core");
}

cpu_set_t AllowedProcessors() {
  cpu_set_t processors;
  Checked(sched_getaffinity(0, sizeof processors, &processors), "asking for the cores");
  return processors;
}

}  // namespace

std::vector<Placement> AllPlacements() {
  const cpu_set_t allowed = AllowedProcessors();
  std::vector<std::size_t> cores;
  for (std::size_t processor = 0; processor < CPU_SETSIZE; processor++) {
    if (CPU_ISSET(processor, &allowed) &&
        (cores.empty() || CoreOf(processor) != CoreOf(cores.front()))) {
      cores.push_back(processor);
    }
  }
  // The first core serves most interrupts of the machine.
  std::vector<Placement> placements{{ONE_CORE, cores.back(), cores.back()}};
  if (cores.size() > 1) {
    placements.push_back({TWO_CORES, cores.front(), cores.back()});
  }
  return placements;
}

Pinned::Pinned(std::size_t core) : before_(AllowedProcessors()) {
  if (core != ANY_CORE) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(core, &one);
    SetProcessors(one);
  }
}

Pinned::~Pinned() {
  sched_setaffinity(0, sizeof before_, &before_);
}

}  // namespace zvqrn::bench
