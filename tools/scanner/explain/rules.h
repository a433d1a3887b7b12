// The rules by which the library answers, refuses or ignores what scanners send it, each with a
// short name that stays and a sentence.  The one table of them: explain judges by it, and
// scripts/check_documents.sh holds the dissector for Wireshark and docs/protocol.md against it.
#pragma once

#include <cstddef>
#include <string>

namespace zvqrn::scanner {

// In the order of the table.
enum RuleId {
  RULE_ACCEPTED,
  RULE_LF_LINES,
  RULE_START_LINE,
  RULE_HEADER_LINE,
  RULE_HEAD_TOO_LONG,
  RULE_HEAD_CUT,
  RULE_NEGATIVE_LENGTH,
  RULE_BODY_CUT,
  RULE_RESPONSE,
  RULE_PROTOCOL_NAME,
  RULE_UID_MISSING,
  RULE_UID_TOO_LONG,
  RULE_VERSION_MISSING,
  RULE_VERSION,
  RULE_SUBEVENT,
  RULE_PARENT_MISSING,
  RULE_PARENT,
  RULE_NO_BODY,
  RULE_NO_DOCUMENT,
  RULE_FIELD,
  RULE_BUSY,
  RULE_EXTRA_HEAD,
  RULE_EXTRA_VERSION,
  RULE_PLACES_TAKEN,
  RULE_NOT_LISTENING,
  RULE_NO_CONNECTION,
  RULE_NO_DRIVER,
  RULE_NO_UTILITY_LIBRARY,
  RULE_HOST_REFUSED,
  RULE_HOST_BUSY,
  RULE_INTERNAL_FAILURE,
  RULE_NO_ANSWER,
  RULE_UNEXPECTED,
  RULE_ANSWERED,
  RULE_ANSWERABLE,
  RULE_SCOPE_ASKED,
  RULE_DATAGRAM_SIZE,
  RULE_SLP_HEADER,
  RULE_SLP_FUNCTION,
  RULE_SLP_BODY,
  RULE_SERVICE_TYPE,
  RULE_SCOPE_LIST,
  RULE_PREVIOUS_RESPONDER,
  RULE_REPEATED,
  RULE_LANGUAGE_TAG,
  RULE_SCOPE_UNSERVED,
  RULE_NO_REPLY,
  RULE_COUNT
};

// What becomes of a message that a rule decides.
enum Outcome {
  OUTCOME_ACCEPTED,    // all is well
  OUTCOME_REFUSED,     // it is answered, with a code that says no
  OUTCOME_DROPPED,     // a message that gets no answer; the main connection stays open
  OUTCOME_CLOSED,      // the connection is closed without an answer
  OUTCOME_IGNORED,     // a search that gets no reply
  OUTCOME_UNANSWERED,  // an answer was due, and none was seen
  OUTCOME_UNEXPECTED   // what was seen is not what this library does
};

struct Rule {
  const char* name;
  Outcome outcome;
  const char* status;  // the x-status of the answer; empty when the rule does not settle it
  const char* sentence;
};

const Rule& RuleOf(RuleId id);

// "accepted", "refused", "dropped", "closed", "ignored", "unanswered" or "unexpected".
const char* OutcomeWord(Outcome outcome);

// An outcome of the rule with the x-status, if any: "refused 1004".
std::string OutcomeText(const Rule& rule, Outcome outcome);

}  // namespace zvqrn::scanner
