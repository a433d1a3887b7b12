#include "scanner/doctor/firewall.h"

#include <algorithm>
#include <cstdint>
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

// What a rule does with a packet to the port: "drop", "accept", or nothing that it decides alone.
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
      if (!HoldsPort(ports)) {
        return {};
      }
    } else if ((word == "protocol" || word == "l4proto") && (next == protocol)) {
      ++i;
    } else if (word == "drop" || word == "reject") {
      return "drop";
    } else if (word == "accept") {
      return "accept";
    } else if (word != "ip" && word != "meta") {
      return {};
    }
  }
  return decision;
}

struct Chain {
  std::string name;
  bool arriving = false;
  bool policyDrops = false;
  FirewallFinding finding{FIREWALL_NONE, {}};
};

FirewallFinding JudgeChain(const Chain& chain) {
  if (chain.finding.verdict == FIREWALL_NONE && chain.policyDrops) {
    return {FIREWALL_DROPS, chain.name + ": policy drop, and no rule lets the port in"};
  }
  return chain.finding;
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
  Chain chain;
  FirewallFinding worst{FIREWALL_NONE, {}};
  std::string table;
  for (std::string line; std::getline(lines, line);) {
    const std::string text = Trim(line);
    const Tokens words = Split(text);
    if (words.size() >= 3 && words[0] == "table") {
      table = words[1] + " " + words[2];
    } else if (words.size() >= 2 && words[0] == "chain") {
      chain = Chain();
      chain.name = table + " chain " + words[1];
    } else if (text.rfind("type filter hook input", 0) == 0) {
      chain.arriving = true;
      chain.policyDrops = text.find("policy drop") != std::string::npos;
    } else if (text == "}" && chain.arriving) {
      const FirewallFinding finding = JudgeChain(chain);
      if (finding.verdict == FIREWALL_DROPS || worst.verdict == FIREWALL_NONE) {
        worst = finding;
      }
      chain = Chain();
    } else if (chain.arriving && chain.finding.verdict == FIREWALL_NONE) {
      const std::string decision = DecisionOf(text, protocol);
      if (!decision.empty()) {
        chain.finding = {decision == "drop" ? FIREWALL_DROPS : FIREWALL_ALLOWS,
                         chain.name + ": " + text};
      }
    }
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
