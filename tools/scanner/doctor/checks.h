// The checks of doctor, in the order in which they are made.  Those of the machine send nothing;
// of those of the service, the one with the group in its name sends to the network.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/adapters.h"
#include "common/port_owner.h"
#include "scanner/doctor/finding.h"
#include "scanner/wire/attribute_message.h"

namespace zvqrn::scanner {

// What has been learnt of this PC so far.
struct Patient {
  std::vector<tools::Adapter> adapters;
  std::uint32_t address = 0;  // the one that the service announces; 0: none
  std::vector<tools::PortOwner> udpOwners;
  std::vector<tools::PortOwner> tcpOwners;
  bool modulesKnown = false;    // what libraries the holder of the ports has loaded
  std::string libraryPath;      // of the service; empty: it has none, or is not known
  bool mayLoad = false;         // they are of this user, so their code may run here
  std::string utilityPath;      // of the utility library
  std::uint16_t eventPort = 0;  // learnt from a reply; 0: none
};

// How the service is asked.
struct ServiceChecks {
  std::int32_t timeoutMs = 2500;
  bool trace = false;
};

// ---- The machine: machine_checks.cpp -----------------------------------------------------------

// Lists the adapters; is there one that scanners can reach, and is there only one?
void CheckAdapters(Account* account, Patient* patient);

// Which address will the service announce, and why that one?  `scanner` is the address of a
// scanner that is to reach it, or 0.
void CheckAnnouncedAddress(Account* account, std::uint32_t scanner, Patient* patient);

// Can the PC's name be announced?
void CheckName(Account* account);

// Are the two ports of the service in one and the same hand, and is it a service's?
void CheckPorts(Account* account, Patient* patient);

// Does the firewall let the ports in, as far as it can be read?
void CheckFirewall(Account* account);

// ---- The service: service_checks.cpp -----------------------------------------------------------

// Can the group be joined?
void CheckGroup(Account* account);

// Is a request to the PC's own address answered?
void CheckDirectRequest(Account* account, const ServiceChecks& checks, Patient* patient);

// Is a request to the group answered, and does nobody else answer under the same name?
void CheckGroupRequest(Account* account, const ServiceChecks& checks, Patient* patient);

// Does the event port take a connection?
void CheckEventPort(Account* account, const ServiceChecks& checks, const Patient& patient);

// ---- Scanners' drivers: driver_checks.cpp ------------------------------------------------------

// Is there a utility library?  Sends a request for a product that no driver serves, which the
// library answers by itself.
void CheckUtilityLibrary(Account* account, const ServiceChecks& checks, const Patient& patient);

// Is the PC found by a scanner of this product, and if not, why?
void CheckProduct(Account* account, const ServiceChecks& checks, const std::string& product,
                  const Patient& patient);

}  // namespace zvqrn::scanner
