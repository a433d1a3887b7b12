#include "scanner/verdict.h"

#include "common/text.h"

namespace zvqrn::scanner {

namespace {

struct Meaning {
  const char* code;
  const char* text;
};

constexpr Meaning STATUS_MEANINGS[] = {
    {"0001", "accepted"},
    {"0002", "accepted, though the PC knows this version 1 only as 1.00"},
    {"1001", "refused: protocol version not supported"},
    {"1003", "refused: no body, or no usable Content-Length"},
    {"1004", "refused: x-protocol-version, x-subevent or x-parent-uid missing or wrong"},
    {"2001", "busy: the host declined, another scanner is connected, or the service is stopping"},
    {"2002", "refused: x-parent-uid names no open START of this connection"},
    {"2003", "refused: the document cannot be read or holds a bad value"},
    {"3001", "internal failure on the PC"},
};

constexpr Meaning STATUS_OUT_MEANINGS[] = {
    {"OK", "the host accepted the request"},
    {"PARAM_ERR", "the host found a bad value"},
    {"PARSE_ERR", "the host could not read the request"},
    {"PM_EXECUTE_ERR", "the host could not run its program"},
    {"PM_NOT_INSTALL", "the host's program is not installed"},
    {"TWAIN_NOT_INSTALL", "the PC has no TWAIN driver for this scanner"},
    {"ERROR", "the PC has no utility library, or the host failed"},
};

}  // namespace

const char* const EXIT_CODES_HELP =
    "Exit codes: 0 accepted / done; 1 trouble on this machine (a file, a socket); 2 wrong command "
    "line;\n"
    "3 nothing listens there / nothing found; 4 refused (an x-status other than 0001 and 0002,\n"
    "or a StatusOut other than OK); 5 time-out; 6 protocol error (what came back is not an\n"
    "answer of this protocol, or the connection ended before it).";

bool IsAccepting(const std::string& status) {
  return status == "0001" || status == "0002";
}

const char* StatusMeaning(const std::string& status) {
  for (const Meaning& meaning : STATUS_MEANINGS) {
    if (status == meaning.code) {
      return meaning.text;
    }
  }
  return "unknown code";
}

const char* StatusOutMeaning(const std::string& word) {
  for (const Meaning& meaning : STATUS_OUT_MEANINGS) {
    if (tools::EqualsIgnoringCase(word, meaning.code)) {
      return meaning.text;
    }
  }
  return "unknown word";
}

bool IsStatusOutWord(const std::string& word) {
  for (const Meaning& meaning : STATUS_OUT_MEANINGS) {
    if (tools::EqualsIgnoringCase(word, meaning.code)) {
      return true;
    }
  }
  return false;
}

}  // namespace zvqrn::scanner
