#include "scanner/doctor/ticket.h"

#include <fstream>

#include "common/machine_text.h"
#include "common/module_loader.h"
#include "common/output.h"
#include "common/this_machine.h"
#include "common/utf8.h"
#include "scanner/command/exit_code.h"

namespace zvqrn::scanner {

namespace {

constexpr char CONTENTS[] =
    "Report of quorin-scanner doctor\n"
    "\n"
    "In this file: the date, the versions and places of the tool, the library and the utility library,\n"
    "the system's version, this PC's adapters, addresses, routes and name, the programs that hold port\n"
    "2968, rules of the firewall about that port, what was found, and the bytes that were exchanged\n"
    "with the service on this PC (and with other PCs that answered a search).  Nothing else of this PC\n"
    "is in it: no passwords, no documents, no scans, no other programs.\n";

std::string Section(const std::string& title, const std::string& text) {
  return "\n== " + title + " ==\n" + (text.empty() ? "none\n" : text);
}

std::string LibraryLine(const std::string& what, const std::string& path, bool known) {
  if (path.empty()) {
    return what + (known ? " not loaded by the program that holds the ports\n" : " not known\n");
  }
  const std::string version = tools::ModuleVersion(path);
  return what + " " + (version.empty() ? "of unknown version" : version) + ", " +
         tools::EscapeUtf8(path) + "\n";
}

std::string Versions(const Patient& patient) {
  return "quorin-scanner " QUORIN_VERSION ", " + tools::EscapeUtf8(tools::ProgramFolder()) + "\n" +
         LibraryLine("library", patient.libraryPath, patient.modulesKnown) +
         LibraryLine("utility library", patient.utilityPath, patient.modulesKnown);
}

std::string Routes() {
  std::vector<tools::Route> routes;
  if (!tools::ListRoutes(&routes)) {
    return "the system does not list them\n";
  }
  std::string text;
  for (const tools::Route& route : routes) {
    text += tools::AddressText(route.destination) + "/" + std::to_string(route.prefixLength) +
            (route.gateway == 0 ? std::string() : " via " + tools::AddressText(route.gateway)) +
            " on " + tools::EscapeUtf8(route.adapter) + ", metric " + std::to_string(route.metric) +
            "\n";
  }
  return text;
}

std::string Holders(const char* protocol, const std::vector<tools::PortOwner>& owners) {
  std::string text;
  for (const tools::PortOwner& owner : owners) {
    text += std::string(protocol) + " 2968: " + tools::OwnerText(owner) + " at " +
            tools::AddressText(owner.address) + (owner.ipv6 ? " (IPv6)" : "") + "\n";
  }
  return text;
}

}  // namespace

void CheckTicket(const std::string& path) {
  if (!std::ofstream(tools::PathOf(path), std::ios::binary | std::ios::app)) {
    throw Failure(EXIT_LOCAL_TROUBLE, "cannot write '" + path + "'");
  }
}

void WriteTicket(const std::string& path, const Account& account, const Patient& patient) {
  std::ofstream file(tools::PathOf(path), std::ios::binary | std::ios::trunc);
  file << CONTENTS << Section("Date", tools::TimeText() + "\n")
       << Section("Versions", Versions(patient)) << Section("System", tools::SystemText() + "\n")
       << Section("Adapters and findings", account.log) << Section("Routes", Routes())
       << Section("Holders of the ports",
                  Holders("UDP", patient.udpOwners) + Holders("TCP", patient.tcpOwners))
       << Section("Exchanged bytes", account.trace);
  file.close();
  if (!file) {
    throw Failure(EXIT_LOCAL_TROUBLE, "cannot write '" + path + "'");
  }
}

}  // namespace zvqrn::scanner
