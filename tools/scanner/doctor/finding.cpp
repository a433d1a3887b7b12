#include "scanner/doctor/finding.h"

#include <cstdio>

#include "common/json_lines.h"
#include "common/output.h"
#include "common/utf8.h"

namespace zvqrn::scanner {

namespace {

constexpr const char* VERDICT_WORDS[] = {"ok", "warning", "problem"};

std::string Column(const std::string& text, std::size_t width) {
  return text.size() < width ? text + std::string(width - text.size(), ' ') : text + " ";
}

// "1 problem", "2 problems".
std::string Count(int number, const std::string& noun) {
  return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

}  // namespace

void PrintAdapter(const Account& account, const tools::Adapter& adapter) {
  const std::string address = adapter.address == 0 ? "" : tools::AddressText(adapter.address);
  if (account.json) {
    tools::PrintJsonLine({{"event", "adapter"},
                          {"name", adapter.name},
                          {"address", address},
                          {"prefixLength", adapter.prefixLength},
                          {"up", adapter.up},
                          {"loopback", adapter.loopback},
                          {"multicast", adapter.multicast},
                          {"defaultRoute", adapter.defaultRoute}});
    return;
  }
  const std::string place =
      address.empty() ? "no IPv4 address" : address + "/" + std::to_string(adapter.prefixLength);
  std::string text = "adapter  " + Column(tools::EscapeUtf8(adapter.name), 12) + Column(place, 19) +
                     (adapter.up ? "up" : "down");
  if (adapter.loopback) {
    text += ", loopback";
  }
  text += adapter.multicast ? ", multicast" : ", no multicast";
  if (adapter.defaultRoute) {
    text += ", default route";
  }
  tools::PrintLine(text);
}

void Report(Account* account, const std::string& topic, Verdict verdict, const std::string& text,
            const std::string& advice) {
  account->warnings += verdict == VERDICT_WARNING ? 1 : 0;
  account->problems += verdict == VERDICT_PROBLEM ? 1 : 0;
  if (account->json) {
    tools::PrintJsonLine({{"event", "finding"},
                          {"topic", topic},
                          {"verdict", VERDICT_WORDS[verdict]},
                          {"text", text},
                          {"advice", advice}});
    return;
  }
  tools::PrintLine(Column(VERDICT_WORDS[verdict], 9) + Column(topic, 12) + text);
  if (!advice.empty()) {
    tools::PrintLine(std::string(21, ' ') + "-> " + advice);
  }
}

void PrintSummary(const Account& account, int exitCode) {
  if (account.json) {
    tools::PrintJsonLine({{"event", "summary"},
                          {"problems", account.problems},
                          {"warnings", account.warnings},
                          {"answered", account.answered},
                          {"exitCode", exitCode}});
    return;
  }
  tools::PrintLine(Count(account.problems, "problem") + ", " + Count(account.warnings, "warning") +
                   "; the service on this PC " +
                   (account.answered ? "answers." : "does not answer."));
}

}  // namespace zvqrn::scanner
