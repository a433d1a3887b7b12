// What doctor finds out, one finding after the other: printed as prose or as JSON as soon as it is
// known, counted for the exit code, and kept for the report and for the next look.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/adapters.h"

namespace zvqrn::scanner {

enum Verdict { VERDICT_OK, VERDICT_NOTE, VERDICT_WARNING, VERDICT_PROBLEM };

struct Finding {
  std::string topic;  // a word or two
  Verdict verdict;
  std::string cause;  // a name that stays, and an anchor in docs/network.md; empty: all is well
  std::string text;
  std::string advice;  // what to do; empty: nothing
};

// The account of one run.  Texts are printed as they are: whoever makes a finding has escaped what
// came from elsewhere.
struct Account {
  bool json = false;
  bool quiet = false;  // findings are kept only
  int warnings = 0;
  int problems = 0;
  bool answered = false;  // a service on this PC answered a request
  std::vector<Finding> findings;
  std::string log;    // all of it as prose
  std::string trace;  // the exchanged bytes
};

// "ok", "note", "warning" or "problem".
const char* VerdictWord(Verdict verdict);

// Prints one address of an adapter.
void PrintAdapter(Account* account, const tools::Adapter& adapter);

// Prints, counts and keeps a finding; `cause` names what stands behind it and where the documents
// tell of it, `advice` is what to do (both empty: nothing).
void Report(Account* account, const std::string& topic, Verdict verdict, const std::string& text,
            const std::string& cause = {}, const std::string& advice = {});

// Prints how it went in all.
void PrintSummary(Account* account, int exitCode);

// Prints what is not as it was.
void PrintChanges(const Account& before, const Account& now);

}  // namespace zvqrn::scanner
