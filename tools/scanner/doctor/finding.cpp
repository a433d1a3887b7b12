#include "scanner/doctor/finding.h"

#include <algorithm>

#include "common/json_lines.h"
#include "common/output.h"
#include "common/utf8.h"

namespace zvqrn::scanner {

namespace {

std::string Column(const std::string& text, std::size_t width) {
  return text.size() < width ? text + std::string(width - text.size(), ' ') : text + " ";
}

constexpr char DOCUMENT[] = "docs/network.md#";

void Print(Account* account, const std::string& line) {
  account->log += line + "\n";
  if (!account->quiet) {
    tools::PrintLine(line);
  }
}

tools::JsonObject FindingObject(const Finding& finding, const std::string& advice) {
  return {
      {"event", "finding"},     {"topic", finding.topic}, {"verdict", VerdictWord(finding.verdict)},
      {"cause", finding.cause}, {"text", finding.text},   {"advice", advice}};
}

std::string FindingLine(const Finding& finding) {
  return Column(VerdictWord(finding.verdict), 9) + Column(finding.topic, 12) + finding.text;
}

// "1 problem", "2 problems".
std::string Count(int number, const std::string& noun) {
  return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

}  // namespace

const char* VerdictWord(Verdict verdict) {
  constexpr const char* WORDS[] = {"ok", "note", "warning", "problem"};
  return WORDS[verdict];
}

void PrintAdapter(Account* account, const tools::Adapter& adapter) {
  const std::string address = adapter.address == 0 ? "" : tools::AddressText(adapter.address);
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
  if (!account->json) {
    Print(account, text);
    return;
  }
  account->log += text + "\n";
  if (!account->quiet) {
    tools::PrintJsonLine({{"event", "adapter"},
                          {"name", adapter.name},
                          {"address", address},
                          {"prefixLength", adapter.prefixLength},
                          {"up", adapter.up},
                          {"loopback", adapter.loopback},
                          {"multicast", adapter.multicast},
                          {"defaultRoute", adapter.defaultRoute}});
  }
}

void Report(Account* account, const std::string& topic, Verdict verdict, const std::string& text,
            const std::string& cause, const std::string& advice) {
  account->warnings += verdict == VERDICT_WARNING ? 1 : 0;
  account->problems += verdict == VERDICT_PROBLEM ? 1 : 0;
  const Finding finding{topic, verdict, cause, text, advice};
  account->findings.push_back(finding);
  const std::string place = cause.empty() ? "" : " (" + (DOCUMENT + cause) + ")";
  const std::string hint = advice.empty() ? "" : std::string(21, ' ') + "-> " + advice + place;
  if (!account->json) {
    Print(account, FindingLine(finding));
    if (!hint.empty()) {
      Print(account, hint);
    }
    return;
  }
  account->log += FindingLine(finding) + "\n" + hint + (hint.empty() ? "" : "\n");
  if (!account->quiet) {
    tools::PrintJsonLine(FindingObject(finding, advice));
  }
}

void PrintSummary(Account* account, int exitCode) {
  const std::string text = Count(account->problems, "problem") + ", " +
                           Count(account->warnings, "warning") + "; the service on this PC " +
                           (account->answered ? "answers." : "does not answer.");
  if (!account->json) {
    Print(account, text);
    return;
  }
  account->log += text + "\n";
  if (!account->quiet) {
    tools::PrintJsonLine({{"event", "summary"},
                          {"problems", account->problems},
                          {"warnings", account->warnings},
                          {"answered", account->answered},
                          {"exitCode", exitCode}});
  }
}

void PrintChanges(const Account& before, const Account& now) {
  for (const Finding& finding : now.findings) {
    const bool known =
        std::any_of(before.findings.begin(), before.findings.end(), [&](const Finding& earlier) {
          return earlier.topic == finding.topic && earlier.verdict == finding.verdict &&
                 earlier.cause == finding.cause;
        });
    if (known) {
      continue;
    }
    if (now.json) {
      tools::JsonObject object = FindingObject(finding, {});
      object["event"] = "change";
      tools::PrintJsonLine(object);
    } else {
      tools::PrintLine("now      " + FindingLine(finding));
    }
  }
}

}  // namespace zvqrn::scanner
