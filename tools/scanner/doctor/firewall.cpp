#include "scanner/doctor/firewall.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <sstream>
#include <vector>

#include "common/text.h"
#include "common/this_machine.h"

namespace zvqrn::scanner {

namespace {

constexpr std::int32_t PORT = 2968;

using Tokens = std::vector<std::string>;

Tokens Split(const std::string& line) {
  std::istringstream stream(line);
  Tokens words;
  for (std::string word; stream >> word;) {
    words.push_back(word);
  }
  return words;
}

// True for "2968", and for a range or a set that has it.
bool HoldsPort(const std::string& text) {
  std::istringstream stream(text);
  for (std::string item; std::getline(stream, item, ',');) {
    const std::size_t dash = item.find('-');
    std::int32_t first = 0;
    std::int32_t last = 0;
    if (tools::ParseNumber(item.substr(0, dash), &first) &&
        tools::ParseNumber(dash == std::string::npos ? item : item.substr(dash + 1), &last) &&
        first <= PORT && PORT <= last) {
      return true;
    }
  }
  return false;
}

// True when the rule has a word that decides, or that leads to one.
bool Decides(const Tokens& words) {
  return std::any_of(words.begin(), words.end(), [](const std::string& word) {
    return word == "drop" || word == "reject" || word == "accept" || word == "queue" ||
           word == "jump" || word == "goto" || word == "vmap";
  });
}

// True for conditions that a scanner's first packet from outside does not meet.
bool IsForOthers(const std::string& word, const std::string& next, const std::string& protocol) {
  const bool isLoopback =
      (word == "iif" || word == "iifname") && (next == "\"lo\"" || next == "lo");
  const bool isOther = word == "tcp" || word == "udp" || word.rfind("icmp", 0) == 0 ||
                       word == "ip6" || word == "ct" || word == "igmp" ||
                       (word == "nfproto" && next == "ipv6");
  return isLoopback || (isOther && word != protocol) ||
         ((word == "l4proto" || word == "protocol") && next != protocol);
}

// What a rule does with a packet to the port: "drop", "accept", "jump" or "goto" with the chain,
// "?" when that hangs on more than the port, nothing when it is for others.
std::string DecisionOf(const std::string& line, const std::string& protocol) {
  const Tokens words = Split(line);
  std::string decision;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    const std::string next = i + 1 < words.size() ? words[i + 1] : std::string();
    if (word == "counter" || word == "log") {
      while (i + 1 < words.size() && (words[i + 1] == "packets" || words[i + 1] == "bytes")) {
        i += 2;
      }
    } else if (word == protocol && next == "dport") {
      std::string ports;
      for (i += 2; i < words.size(); ++i) {
        std::string part = words[i];
        part.erase(std::remove_if(part.begin(), part.end(),
                                  [](char letter) { return letter == '{' || letter == '}'; }),
                   part.end());
        ports += part;
        const bool inSet = words[i].find('{') != std::string::npos || ports.back() == ',';
        if (!inSet && (words[i].find('}') != std::string::npos || i + 1 == words.size() ||
                       words[i + 1] != "}")) {
          break;
        }
      }
      const bool isPlain = ports.find_first_not_of("0123456789,-") == std::string::npos;
      if (!isPlain || !HoldsPort(ports)) {
        return isPlain ? "" : "?";
      }
    } else if ((word == "protocol" || word == "l4proto") && (next == protocol)) {
      ++i;
    } else if (word == "drop" || word == "reject") {
      return "drop";
    } else if (word == "accept") {
      return "accept";
    } else if (word == "jump" || word == "goto") {
      return std::string(word).append(" ").append(next);
    } else if (IsForOthers(word, next, protocol)) {
      return {};
    } else if (word != "ip" && word != "meta") {
      const std::string other = protocol == "udp" ? "tcp" : "udp";
      const bool isOthers = std::find(words.begin(), words.end(), other) != words.end();
      return Decides(words) && !isOthers ? "?" : "";
    }
  }
  return decision;
}

struct Chain {
  bool arriving = false;  // what comes to this machine passes it
  bool policyDrops = false;
  std::vector<std::string> rules;
};
using Chains = std::map<std::string, Chain>;  // by "family table chain name"

// The first rule that decides, here or in a chain that a rule leads to.
FirewallFinding JudgeRules(const Chains& chains, const std::string& name,
                           const std::string& protocol, int depth) {
  constexpr int DEEPEST = 16;
  const auto chain = chains.find(name);
  if (chain == chains.end() || depth > DEEPEST) {
    return {FIREWALL_NONE, {}};
  }
  for (const std::string& rule : chain->second.rules) {
    const std::string decision = DecisionOf(rule, protocol);
    const std::string place = std::string(name).append(": ").append(rule);
    if (decision == "drop" || decision == "accept") {
      return {decision == "drop" ? FIREWALL_DROPS : FIREWALL_ALLOWS, place};
    }
    if (decision == "?") {
      return {FIREWALL_UNREADABLE, place};
    }
    if (!decision.empty()) {
      const std::string other = name.substr(0, name.rfind(' ') + 1) + decision.substr(5);
      FirewallFinding finding = JudgeRules(chains, other, protocol, depth + 1);
      if (finding.verdict != FIREWALL_NONE || decision.rfind("goto", 0) == 0) {
        return finding;
      }
    }
  }
  return {FIREWALL_NONE, {}};
}

// How much a finding of one chain counts beside another's.
int Weight(FirewallVerdict verdict) {
  return verdict == FIREWALL_DROPS        ? 3
         : verdict == FIREWALL_UNREADABLE ? 2
         : verdict == FIREWALL_ALLOWS     ? 1
                                          : 0;
}

std::string Trim(const std::string& line) {
  const std::size_t first = line.find_first_not_of(" \t");
  return first == std::string::npos ? std::string() : line.substr(first);
}

#if defined(_WIN32)

// Whatever the language of the system: the blocks of its rules that have the port in them.
FirewallFinding ReadWindowsFirewall(const std::string& protocol) {
  std::string rules;
  if (!tools::RunCommand("netsh advfirewall firewall show rule name=all dir=in", &rules) ||
      rules.empty()) {
    return {};
  }
  std::string upper = protocol;
  std::transform(upper.begin(), upper.end(), upper.begin(),
                 [](char letter) { return static_cast<char>(letter - 'a' + 'A'); });
  std::istringstream lines(rules);
  std::string block;
  for (std::string line; std::getline(lines, line);) {
    if (line.find_first_not_of(" \r-") == std::string::npos) {
      if (block.find(" 2968") != std::string::npos && block.find(upper) != std::string::npos) {
        return {FIREWALL_ALLOWS,
                "a rule for inbound " + upper + " has port 2968; see that it allows"};
      }
      block.clear();
    }
    block += line + "\n";
  }
  return {FIREWALL_DROPS, "no rule for inbound " + upper + " has port 2968"};
}

#endif

}  // namespace

FirewallFinding JudgeNftables(const std::string& ruleset, const std::string& protocol) {
  std::istringstream lines(ruleset);
  Chains chains;
  Chain* chain = nullptr;
  std::string table;
  for (std::string line; std::getline(lines, line);) {
    const std::string text = Trim(line);
    const Tokens words = Split(text);
    if (words.size() >= 3 && words[0] == "table") {
      // The service is IPv4 only, and bridges are another matter.
      table = words[1] == "ip" || words[1] == "inet" ? words[1] + " " + words[2] : std::string();
    } else if (words.size() >= 2 && words[0] == "chain" && !table.empty()) {
      chain = &chains[table + " chain " + words[1]];
    } else if (text == "}") {
      chain = nullptr;
    } else if (chain != nullptr && text.rfind("type ", 0) == 0) {
      chain->arriving = text.rfind("type filter hook input", 0) == 0 ||
                        text.rfind("type filter hook prerouting", 0) == 0;
      chain->policyDrops = text.find("policy drop") != std::string::npos;
    } else if (chain != nullptr) {
      chain->rules.push_back(text);
    }
  }
  FirewallFinding worst{FIREWALL_NONE, {}};
  for (const auto& [name, judged] : chains) {
    FirewallFinding finding{FIREWALL_NONE, {}};
    if (judged.arriving) {
      finding = JudgeRules(chains, name, protocol, 0);
    }
    if (finding.verdict == FIREWALL_NONE && judged.arriving && judged.policyDrops) {
      finding = {FIREWALL_DROPS, name + ": policy drop, and no rule lets the port in"};
    }
    worst = Weight(finding.verdict) > Weight(worst.verdict) ? finding : worst;
  }
  return worst;
}

FirewallFinding ReadFirewall(const std::string& protocol) {
#if defined(_WIN32)
  return ReadWindowsFirewall(protocol);
#else
  std::string output;
  if (tools::RunCommand("PATH=$PATH:/usr/sbin:/sbin nft -n list ruleset", &output)) {
    return JudgeNftables(output, protocol);
  }
  output.clear();
  if (tools::RunCommand("firewall-cmd --list-all", &output)) {
    const std::string port = "2968/" + protocol;
    if (output.find(port) == std::string::npos) {
      return {FIREWALL_DROPS, "firewalld runs, and its zone has no port " + port};
    }
    return {FIREWALL_ALLOWS, "firewalld has the port " + port};
  }
  return {};
#endif
}

}  // namespace zvqrn::scanner
