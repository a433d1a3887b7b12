// The checks of doctor, in the order in which they are made.  Those of the machine send nothing;
// of those of the service, the two with the group in their name send to the network.
#pragma once

#include <cstdint>
#include <vector>

#include "common/adapters.h"
#include "scanner/doctor/finding.h"
#include "scanner/wire/attribute_message.h"

namespace zvqrn::scanner {

using Adapters = std::vector<tools::Adapter>;

// ---- The machine: machine_checks.cpp -----------------------------------------------------------

// Lists the adapters; is there one that scanners can reach, and is there only one?
Adapters CheckAdapters(Account* account);

// Which address will the service announce?  Gives it, or 0.
std::uint32_t CheckAnnouncedAddress(Account* account, const Adapters& adapters);

// Are the two ports of the service in one and the same hand?  Gives whether UDP 2968 is held.
bool CheckPorts(Account* account);

// ---- The service: service_checks.cpp -----------------------------------------------------------

struct ServiceChecks {
  std::uint32_t address = 0;  // the PC's own, to be asked and expected in the replies
  bool portHeld = false;      // by something that should answer
  std::int32_t timeoutMs = 2500;
  bool trace = false;
};

// Can the group be joined?
void CheckGroup(Account* account);

// Is a request to the PC's own address answered?  Gives the event port learnt, or 0.
std::uint16_t CheckDirectRequest(Account* account, const ServiceChecks& checks);

// Is a request to the group answered?  Gives the event port learnt, or 0.
std::uint16_t CheckGroupRequest(Account* account, const ServiceChecks& checks);

// Does the event port take a connection?
void CheckEventPort(Account* account, const ServiceChecks& checks, std::uint16_t port);

}  // namespace zvqrn::scanner
