#include <algorithm>
#include <cstdio>
#include <string>

#include "common/utf8.h"
#include "platform/socket.h"
#include "scanner/doctor/checks.h"
#include "scanner/search/search.h"
#include "scanner/wire/connection.h"

namespace zvqrn::scanner {

namespace {

// The reply of the PC itself, or null.  A PC that answers itself does so from whichever of its
// addresses was asked, so what it announces tells it from others.
const FoundPc* FindOwnReply(const SearchResult& result, std::uint32_t address) {
  const auto found = std::find_if(result.pcs.begin(), result.pcs.end(), [&](const FoundPc& pc) {
    return pc.description.address == tools::AddressText(address) || IsOwnAddress(pc.sender);
  });
  return found == result.pcs.end() ? nullptr : &*found;
}

// Prints what came of a request that was to reach the PC itself; false when nothing did.
bool ReportReply(Account* account, const std::string& topic, const SearchResult& result,
                 Patient* patient) {
  const FoundPc* own = FindOwnReply(result, patient->address);
  if (own != nullptr) {
    account->answered = true;
    patient->eventPort = own->description.eventPort;
    char time[32];
    std::snprintf(time, sizeof time, "%.1f ms", own->replyMs);
    const std::string text = "answered after " + std::string(time) + " as '" +
                             tools::EscapeUtf8(own->description.name) + "', " +
                             own->description.address + " event port " +
                             std::to_string(own->description.eventPort);
    if (own->description.address == tools::AddressText(patient->address)) {
      Report(account, topic, VERDICT_OK, text);
    } else {
      Report(account, topic, VERDICT_WARNING, text + ": not the address expected", "wrong-adapter",
             "the PC's addresses have changed; if it stays so, start the host program again");
    }
    return true;
  }
  for (const MalformedReply& reply : result.malformed) {
    if (IsOwnAddress(reply.sender)) {
      const bool isName = reply.problem.find("ClientName") != std::string::npos;
      Report(account, topic, VERDICT_PROBLEM, "answered wrongly: " + reply.problem,
             isName ? "name" : "port-taken",
             isName ? "let the host set a name that can be announced (QRNSetPCName)"
                    : "the program that holds UDP 2968 is another one, or faulty");
      return true;
    }
  }
  return false;
}

SearchResult Ask(Account* account, const ServiceChecks& checks, std::uint32_t to,
                 std::uint32_t from, bool toTheEnd, std::uint32_t own) {
  Search search = MakeSearch(to);
  search.from = from;
  search.timeoutMs = checks.timeoutMs;
  search.trace = checks.trace;
  search.record = &account->trace;
  return RunSearch(search, [&](const SearchResult& soFar) {
    return !toTheEnd && FindOwnReply(soFar, own) != nullptr;
  });
}

std::uint32_t Group() {
  std::uint32_t group = 0;
  platform::TextToAddress(DISCOVERY_GROUP, &group);
  return group;
}

// Says who else answered, and whether one of them has this PC's name.
void ReportOthers(Account* account, const SearchResult& result, const Patient& patient) {
  const FoundPc* own = FindOwnReply(result, patient.address);
  std::string others;
  for (const FoundPc& pc : result.pcs) {
    if (&pc == own) {
      continue;
    }
    others += (others.empty() ? "" : ", ") + ("'" + tools::EscapeUtf8(pc.description.name)) +
              "' at " + pc.description.address;
    if (own != nullptr && pc.description.name == own->description.name) {
      Report(account, "same name", VERDICT_PROBLEM,
             "the PC at " + pc.description.address + " answers under the same name '" +
                 tools::EscapeUtf8(pc.description.name) + "'",
             "same-name", "give one of the two another name; the panel cannot tell them apart");
    }
  }
  if (!others.empty()) {
    Report(account, "others", VERDICT_NOTE, "other PCs that answered: " + others);
  }
}

}  // namespace

void CheckGroup(Account* account) {
  const OwnedSocket socket(platform::OpenUdpSocket());
  platform::GroupMembership membership{};
  const bool joined = socket.handle > platform::NO_SOCKET &&
                      platform::BindDatagramPort(socket.handle, 0, 0, false) &&
                      platform::JoinGroup(socket.handle, Group(), &membership);
  if (joined) {
    platform::LeaveGroup(socket.handle, membership);
    Report(account, "group", VERDICT_OK, std::string(DISCOVERY_GROUP) + " can be joined");
  } else {
    Report(account, "group", VERDICT_PROBLEM, std::string(DISCOVERY_GROUP) + " cannot be joined",
           "no-default-route",
           "the service does not start without it; see to the adapter of the default route");
  }
}

void CheckDirectRequest(Account* account, const ServiceChecks& checks, Patient* patient) {
  const std::string topic = "request";
  const bool portHeld = !patient->udpOwners.empty();
  SearchResult result;
  try {
    result = Ask(account, checks, patient->address, ChooseSource(patient->address), false,
                 patient->address);
  } catch (const Failure& failure) {
    // The service shares its port with whoever asks it, so only another program is in the way.
    Report(account, topic, portHeld ? VERDICT_PROBLEM : VERDICT_WARNING,
           std::string("not tried: ") + failure.what(), portHeld ? "port-taken" : "",
           portHeld ? "another program holds UDP 2968; end it" : "");
    return;
  }
  if (ReportReply(account, topic, result, patient)) {
    return;
  }
  const std::string text = "not answered at " + tools::AddressText(patient->address);
  if (!portHeld) {
    Report(account, topic, VERDICT_WARNING, text, "no-service", "start the host program");
  } else if (patient->libraryPath.empty()) {
    Report(account, topic, VERDICT_PROBLEM, text + ", though UDP 2968 is held", "port-taken",
           "the program that holds it is another one, is stopping, or a firewall on this PC is in "
           "the way");
  } else {
    Report(account, topic, VERDICT_PROBLEM, text + ", though the service runs", "firewall-udp",
           "a firewall on this PC drops it, the service is stopping, or its name is empty");
  }
}

void CheckGroupRequest(Account* account, const ServiceChecks& checks, Patient* patient) {
  const std::string topic = "multicast";
  SearchResult result;
  try {
    result = Ask(account, checks, Group(), patient->address, true, patient->address);
  } catch (const Failure& failure) {
    Report(account, topic, VERDICT_WARNING, std::string("not tried: ") + failure.what());
    return;
  }
  if (!ReportReply(account, topic, result, patient)) {
    const std::string text = "a request to the group is not answered by this PC";
    if (account->answered) {
      Report(account, topic, VERDICT_PROBLEM, text, "multicast",
             "the service hears the group on another adapter, or a firewall is in the way; start "
             "the host program again once the network is up");
    } else {
      Report(account, topic, VERDICT_WARNING, text, "no-service", "see the findings above");
    }
  }
  ReportOthers(account, result, *patient);
}

void CheckEventPort(Account* account, const ServiceChecks& checks, const Patient& patient) {
  const std::string place =
      tools::AddressText(patient.address) + " TCP port " + std::to_string(patient.eventPort);
  const OwnedSocket socket(platform::OpenTcpSocket());
  if (socket.handle <= platform::NO_SOCKET) {
    Report(account, "event port", VERDICT_WARNING, "not tried: this machine gives no socket");
    return;
  }
  switch (
      platform::ConnectTo(socket.handle, patient.address, patient.eventPort, checks.timeoutMs)) {
    case platform::CONNECT_DONE:
      Report(account, "event port", VERDICT_OK, place + " takes a connection");
      break;
    case platform::CONNECT_REFUSED:
      Report(account, "event port", VERDICT_PROBLEM, place + " refuses connections", "no-service",
             "start the host program again");
      break;
    default:
      Report(account, "event port", VERDICT_PROBLEM, "no connection to " + place, "firewall-tcp",
             "see to the firewall of this PC");
      break;
  }
}

}  // namespace zvqrn::scanner
