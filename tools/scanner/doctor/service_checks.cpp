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
bool ReportReply(Account* account, const std::string& topic, const ServiceChecks& checks,
                 const SearchResult& result) {
  const FoundPc* own = FindOwnReply(result, checks.address);
  if (own != nullptr) {
    account->answered = true;
    char time[32];
    std::snprintf(time, sizeof time, "%.1f ms", own->replyMs);
    const std::string text = "answered after " + std::string(time) + " as '" +
                             tools::EscapeUtf8(own->description.name) + "', " +
                             own->description.address + " event port " +
                             std::to_string(own->description.eventPort);
    if (own->description.address == tools::AddressText(checks.address)) {
      Report(account, topic, VERDICT_OK, text);
    } else {
      Report(account, topic, VERDICT_WARNING, text + ": not the address expected",
             "the PC's addresses have changed; if it stays so, start the host program again");
    }
    return true;
  }
  for (const MalformedReply& reply : result.malformed) {
    if (IsOwnAddress(reply.sender)) {
      Report(account, topic, VERDICT_PROBLEM, "answered wrongly: " + reply.problem,
             "the program that holds UDP 2968 is another one, or faulty");
      return true;
    }
  }
  return false;
}

std::uint16_t LearntPort(const SearchResult& result, std::uint32_t address) {
  const FoundPc* own = FindOwnReply(result, address);
  return own == nullptr ? std::uint16_t{0} : own->description.eventPort;
}

SearchResult Ask(const ServiceChecks& checks, std::uint32_t to, std::uint32_t from) {
  Search search = MakeSearch(to);
  search.from = from;
  search.timeoutMs = checks.timeoutMs;
  search.trace = checks.trace;
  return RunSearch(search, [&](const SearchResult& soFar) {
    return FindOwnReply(soFar, checks.address) != nullptr;
  });
}

std::uint32_t Group() {
  std::uint32_t group = 0;
  platform::TextToAddress(DISCOVERY_GROUP, &group);
  return group;
}

std::string OthersText(const SearchResult& result, std::uint32_t address) {
  const std::size_t own = FindOwnReply(result, address) == nullptr ? 0 : 1;
  const std::size_t others = result.pcs.size() - own;
  return others == 0 ? std::string() : "; other PCs that answered: " + std::to_string(others);
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
           "the service does not start without it; see to the adapter of the default route");
  }
}

std::uint16_t CheckDirectRequest(Account* account, const ServiceChecks& checks) {
  const std::string topic = "request";
  SearchResult result;
  try {
    result = Ask(checks, checks.address, ChooseSource(checks.address));
  } catch (const Failure& failure) {
    // The service shares its port with whoever asks it, so only another program is in the way.
    Report(account, topic, checks.portHeld ? VERDICT_PROBLEM : VERDICT_WARNING,
           std::string("not tried: ") + failure.what(),
           checks.portHeld ? "another program holds UDP 2968; end it" : "");
    return 0;
  }
  if (ReportReply(account, topic, checks, result)) {
    return LearntPort(result, checks.address);
  }
  const std::string text = "not answered at " + tools::AddressText(checks.address);
  if (checks.portHeld) {
    Report(
        account, topic, VERDICT_PROBLEM, text + ", though UDP 2968 is held",
        "the program that holds it is another one, is stopping, or a firewall on this PC is in the way");
  } else {
    Report(account, topic, VERDICT_WARNING, text, "start the host program");
  }
  return 0;
}

std::uint16_t CheckGroupRequest(Account* account, const ServiceChecks& checks) {
  const std::string topic = "multicast";
  SearchResult result;
  try {
    result = Ask(checks, Group(), checks.address);
  } catch (const Failure& failure) {
    Report(account, topic, VERDICT_WARNING, std::string("not tried: ") + failure.what());
    return 0;
  }
  if (ReportReply(account, topic, checks, result)) {
    return LearntPort(result, checks.address);
  }
  const std::string text =
      "a request to the group is not answered by this PC" + OthersText(result, checks.address);
  if (account->answered) {
    Report(
        account, topic, VERDICT_PROBLEM, text,
        "the service hears the group on another adapter, or a firewall is in the way; start the host program again once the network is up");
  } else {
    Report(account, topic, VERDICT_WARNING, text, "see the findings above");
  }
  return 0;
}

void CheckEventPort(Account* account, const ServiceChecks& checks, std::uint16_t port) {
  const std::string place =
      tools::AddressText(checks.address) + " TCP port " + std::to_string(port);
  const OwnedSocket socket(platform::OpenTcpSocket());
  if (socket.handle <= platform::NO_SOCKET) {
    Report(account, "event port", VERDICT_WARNING, "not tried: this machine gives no socket");
    return;
  }
  switch (platform::ConnectTo(socket.handle, checks.address, port, checks.timeoutMs)) {
    case platform::CONNECT_DONE:
      Report(account, "event port", VERDICT_OK, place + " takes a connection");
      break;
    case platform::CONNECT_REFUSED:
      Report(account, "event port", VERDICT_PROBLEM, place + " refuses connections",
             "start the host program again");
      break;
    default:
      Report(account, "event port", VERDICT_PROBLEM, "no connection to " + place,
             "see to the firewall of this PC");
      break;
  }
}

}  // namespace zvqrn::scanner
