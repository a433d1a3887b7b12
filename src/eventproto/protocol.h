// The words of the event protocol: header names, versions, status codes, and the rules that choose
// among them.  Names are written exactly as they stand here and matched without regard to case.
#pragma once

#include <cstdint>

namespace zvqrn {

constexpr char PROTOCOL_NAME[] = "Zorva Network Service Protocol";
constexpr char SERVER_NAME[] = "Zorva Quorin/2.0";
constexpr char VERSION_1[] = "1.00";
constexpr char VERSION_2[] = "2.00";
constexpr char SUBEVENT_WORD_START[] = "START";
constexpr char SUBEVENT_WORD_END[] = "END";

constexpr char HEADER_SERVER[] = "Server";
constexpr char HEADER_CONTENT_TYPE[] = "Content-Type";
constexpr char HEADER_CONTENT_LENGTH[] = "Content-Length";
constexpr char HEADER_PROTOCOL_NAME[] = "x-protocol-name";
constexpr char HEADER_PROTOCOL_VERSION[] = "x-protocol-version";
constexpr char HEADER_SUBEVENT[] = "x-subevent";
constexpr char HEADER_UID[] = "x-uid";
constexpr char HEADER_PARENT_UID[] = "x-parent-uid";
constexpr char HEADER_STATUS[] = "x-status";

// Values of x-status.
constexpr char STATUS_ACCEPTED[] = "0001";
constexpr char STATUS_ACCEPTED_MINOR[] = "0002";    // accepted, in a 1.x version other than 1.00
constexpr char STATUS_BAD_VERSION[] = "1001";       // a version that nobody speaks here
constexpr char STATUS_NO_BODY[] = "1003";           // no Content-Length, or no body
constexpr char STATUS_BAD_HEADERS[] = "1004";       // version missing, subevent unknown, no parent
constexpr char STATUS_BUSY[] = "2001";              // another scanner, the host, or a stop
constexpr char STATUS_UNKNOWN_PARENT[] = "2002";    // an END without an open START
constexpr char STATUS_BAD_DOCUMENT[] = "2003";      // the body is no acceptable document
constexpr char STATUS_INTERNAL_FAILURE[] = "3001";  // memory or a thread could not be had

// Sizes of the fields that carry them, the NUL included.
constexpr std::int32_t UID_SIZE = 20;
constexpr std::int32_t VERSION_SIZE = 6;
constexpr std::int32_t STATUS_SIZE = 5;

// Judges a request's version: 1 and STATUS_ACCEPTED or STATUS_ACCEPTED_MINOR, or -1 and
// STATUS_BAD_VERSION.
std::int32_t CheckVersion(const char* version, char (&status)[STATUS_SIZE]);

// Rewrites a version field to the version of the answer: "2.00" for a 2.x version, else "1.00".
void SelectAnswerVersion(char (&version)[VERSION_SIZE]);

// 1 when `candidate` begins with the part of `reference` before its first dot, followed by a dot,
// without regard to case; else 0.
std::int32_t SameMajorVersion(const char* reference, const char* candidate);

}  // namespace zvqrn
