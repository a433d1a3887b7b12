#include "scanner/explain/rules.h"

#include "common/vocabulary.h"

namespace zvqrn::scanner {

namespace {

constexpr Rule RULES[] = {
    // ---- Event messages ----
    {"accepted", OUTCOME_ACCEPTED, "", "The request is in order and goes to the host."},
    {"lf-lines", OUTCOME_DROPPED, "",
     "The lines of the head end in LF alone; each must end in CR LF."},
    {"start-line", OUTCOME_DROPPED, "",
     "The start line is not three tokens with single spaces, the third or the first with HTTP/."},
    {"header-line", OUTCOME_DROPPED, "",
     "A header line has no colon, an empty name or value, or a NUL in it."},
    {"head-too-long", OUTCOME_DROPPED, "", "The head has more than 4096 bytes."},
    {"head-cut", OUTCOME_DROPPED, "",
     "The head did not come whole: the connection ended, or was silent for 10 s."},
    {"negative-length", OUTCOME_DROPPED, "",
     "Content-Length is negative and cuts the message inside its own head."},
    {"body-cut", OUTCOME_DROPPED, "", "The scanner ended the connection inside the body."},
    {"response", OUTCOME_DROPPED, "", "It is a response; the library looks at none."},
    {"protocol-name", OUTCOME_DROPPED, "",
     "x-protocol-name is missing or not the name of this protocol."},
    {"uid-missing", OUTCOME_DROPPED, "", "x-uid is missing."},
    {"uid-too-long", OUTCOME_DROPPED, "", "x-uid has more than 19 bytes."},
    {"version-missing", OUTCOME_REFUSED, tools::STATUS_BAD_HEADERS,
     "x-protocol-version is missing."},
    {"version", OUTCOME_REFUSED, tools::STATUS_BAD_VERSION,
     "x-protocol-version is neither 2.00 nor one that begins with 1 and a dot."},
    {"subevent", OUTCOME_REFUSED, tools::STATUS_BAD_HEADERS,
     "x-subevent is neither START nor END."},
    {"parent-missing", OUTCOME_REFUSED, tools::STATUS_BAD_HEADERS, "An END without x-parent-uid."},
    {"parent", OUTCOME_REFUSED, tools::STATUS_BAD_PARENT,
     "x-parent-uid names no START of this connection that is open and has been answered."},
    {"no-body", OUTCOME_REFUSED, tools::STATUS_NO_BODY,
     "Content-Length is missing or not above 0, or no byte of the body came."},
    {"no-document", OUTCOME_REFUSED, tools::STATUS_BAD_DOCUMENT,
     "The body has no start tag <p:PushScan with a space behind it."},
    {"field", OUTCOME_REFUSED, tools::STATUS_BAD_DOCUMENT,
     "An element of the document is missing, too long, or holds what it must not."},
    {"busy", OUTCOME_REFUSED, tools::STATUS_BUSY,
     "Another connection is being served; this one gets a single answer."},
    {"extra-head", OUTCOME_CLOSED, "",
     "Another connection is being served, and the first bytes of this one hold no whole head."},
    {"extra-version", OUTCOME_CLOSED, "",
     "Another connection is being served, and x-protocol-version is missing."},
    {"places-taken", OUTCOME_CLOSED, "",
     "All places for connections are taken; this one was closed at once."},
    {"not-listening", OUTCOME_CLOSED, "",
     "Nothing listens at the PC's event port: the service does not run."},
    {"no-connection", OUTCOME_UNANSWERED, "",
     "The PC does not take the connection: a firewall drops it, or the address is wrong."},
    {"no-driver", OUTCOME_REFUSED, "",
     "StatusOut TWAIN_NOT_INSTALL: the PC's utility library knows no driver for this product, or "
     "the host says so."},
    {"no-utility-library", OUTCOME_REFUSED, "",
     "StatusOut ERROR: the PC has no utility library, or the host failed."},
    {"host-refused", OUTCOME_REFUSED, "", "The host declined, with a word of its own."},
    {"host-busy", OUTCOME_REFUSED, tools::STATUS_BUSY,
     "Busy: the host declined, the service was stopping, or a connection not seen here is served."},
    {"internal-failure", OUTCOME_REFUSED, tools::STATUS_INTERNAL_FAILURE,
     "The PC ran out of memory or threads."},
    {"no-answer", OUTCOME_UNANSWERED, "",
     "Nothing is wrong with the request, and no answer was seen: the host's callback has not "
     "returned."},
    {"unexpected", OUTCOME_UNEXPECTED, "",
     "The PC did otherwise than this library: another program, or another version."},
    // ---- Searches ----
    {"answered", OUTCOME_ACCEPTED, "", "The search was replied to."},
    {"answerable", OUTCOME_ACCEPTED, "", "Nothing is wrong with the search: a PC replies to it."},
    {"scope-asked", OUTCOME_ACCEPTED, "",
     "A PC replies if its utility library knows the scanner and its host agrees."},
    {"datagram-size", OUTCOME_IGNORED, "", "The datagram has more than 1400 bytes."},
    {"slp-header", OUTCOME_IGNORED, "", "The header of the search is malformed."},
    {"slp-function", OUTCOME_IGNORED, "", "It is no attribute request."},
    {"slp-body", OUTCOME_IGNORED, "", "A text of the search does not lie inside it."},
    {"service-type", OUTCOME_IGNORED, "", "The search is for another service."},
    {"scope-list", OUTCOME_IGNORED, "",
     "The scope list is neither default nor a single name that can be read."},
    {"previous-responder", OUTCOME_IGNORED, "",
     "The search says that this PC has answered before."},
    {"repeated", OUTCOME_IGNORED, "",
     "The reply to the same search, with this sender and XID, is still in progress."},
    {"language-tag", OUTCOME_IGNORED, "", "The language tag is empty."},
    {"scope-unserved", OUTCOME_IGNORED, "",
     "No reply was seen: the utility library is missing or does not know this scanner, or the "
     "host's filter declined."},
    {"no-reply", OUTCOME_UNANSWERED, "",
     "Nothing is wrong with the search, and no reply was seen: no service with an address, or a "
     "firewall."},
};

static_assert(sizeof RULES / sizeof *RULES == RULE_COUNT, "one row for each name");

constexpr const char* OUTCOME_WORDS[] = {"accepted", "refused",    "dropped",   "closed",
                                         "ignored",  "unanswered", "unexpected"};

}  // namespace

const Rule& RuleOf(RuleId id) {
  return RULES[id];
}

const char* OutcomeWord(Outcome outcome) {
  return OUTCOME_WORDS[outcome];
}

std::string OutcomeText(const Rule& rule, Outcome outcome) {
  const std::string status = rule.status;
  return OutcomeWord(outcome) + (status.empty() ? "" : " " + status);
}

}  // namespace zvqrn::scanner
