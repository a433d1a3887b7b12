// Messages of a scanner, and the lines that every answer of the library has.
#pragma once

#include <string>

namespace zvqrn::test {

// The documents of a scanner named XS-200.
extern const char* const DOCUMENT_V1;
extern const char* const DOCUMENT_V2;

// A request with the protocol's name, the header lines given (each with its CR LF), and the
// length of the body.
std::string Request(const std::string& headers, const std::string& body);

// The header lines of version and uid.
std::string Identity(const std::string& version, const std::string& uid);

// The first lines of every answer, up to and with Content-Type.
extern const char* const ANSWER_BEGIN;

// The answer's document with the word of its status: the lines after the empty line, for version
// 1.00 and for 2.00.
std::string ResponseDocumentV1(const std::string& word);
std::string ResponseDocumentV2(const std::string& word);

}  // namespace zvqrn::test
