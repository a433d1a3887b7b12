// What doctor finds out, one finding after the other: printed as prose or as JSON as soon as it is
// known, and counted for the exit code.
#pragma once

#include <cstdint>
#include <string>

#include "common/adapters.h"

namespace zvqrn::scanner {

enum Verdict { VERDICT_OK, VERDICT_WARNING, VERDICT_PROBLEM };

// The account of one run.  Texts are printed as they are: whoever makes a finding has escaped what
// came from elsewhere.
struct Account {
  bool json = false;
  int warnings = 0;
  int problems = 0;
  bool answered = false;  // a service on this PC answered a request
};

// Prints one address of an adapter.
void PrintAdapter(const Account& account, const tools::Adapter& adapter);

// Prints and counts a finding; `topic` is a word or two, `advice` what to do (empty: nothing).
void Report(Account* account, const std::string& topic, Verdict verdict, const std::string& text,
            const std::string& advice = {});

// Prints how it went in all.
void PrintSummary(const Account& account, int exitCode);

}  // namespace zvqrn::scanner
