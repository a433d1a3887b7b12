// The firewall of this machine, as far as it can be read: does it let the two ports in?
#pragma once

#include <string>

namespace zvqrn::scanner {

enum FirewallVerdict {
  FIREWALL_UNREADABLE,  // this user may not read it, or there is no program that tells
  FIREWALL_NONE,        // nothing stands against the port
  FIREWALL_DROPS,       // a rule, or the lack of one, keeps the port shut
  FIREWALL_ALLOWS       // a rule lets the port in
};

struct FirewallFinding {
  FirewallVerdict verdict = FIREWALL_UNREADABLE;
  std::string why;  // the rule as the system writes it, or what was read
};

// Reads what the system tells of `protocol` ("udp" or "tcp") at port 2968.
FirewallFinding ReadFirewall(const std::string& protocol);

// Judges a rule set as nft prints it: the first rule of each chain for arriving packets that
// decides on the port counts, then the chain's policy.  FIREWALL_UNREADABLE, and the rule, where
// that hangs on more than the port (addresses, adapters, named sets).
FirewallFinding JudgeNftables(const std::string& ruleset, const std::string& protocol);

}  // namespace zvqrn::scanner
