// The documents that a scanner sends and gets: PushScan requests of both protocol versions, and
// the status word of a PushScanResponse.
#pragma once

#include <string>
#include <vector>

#include "common/vocabulary.h"

namespace zvqrn::scanner {

// The fields of a request, as texts, so that wrong ones can be sent too.
struct PushScanFields {
  std::string productName = "XS-200";
  std::string ipAddress = "192.0.2.10";
  std::string imageFormat = "PDF";
  std::string colorType = "Color";
  std::string loadPaper = "Flatbed";
  std::string paperType = "A4";
  std::string paperWidth = "2100";
  std::string paperHeight = "2970";
  std::string scanX = "0";
  std::string scanY = "0";
  std::string pushScanId = "1";
};

// What an element of a request holds: a name, a word of a table, a measure, or a push-scan ID.
enum ElementKind { ELEMENT_TEXT, ELEMENT_WORD, ELEMENT_MEASURE, ELEMENT_ID };

struct Element {
  const char* name;
  std::string PushScanFields::*text;
  ElementKind kind;
  const tools::Words* words;  // null unless it holds a word
};

// The elements of a version 1 or a version 2 request, in their order.
const std::vector<Element>& ElementsOf(bool isVersion2);

// What is wrong with the text of an element, so that a PC refuses it; empty when nothing is.
std::string ElementProblem(const Element& element, const std::string& text);

// Gives the document of a version 1 request (settings) or a version 2 request (push-scan ID).  The
// texts go into it as they are: the PC's reader knows no entities.
std::string SettingsDocument(const PushScanFields& fields);
std::string IdDocument(const PushScanFields& fields);

// Finds the word in the StatusOut element of a PushScanResponse; false when the text is none.
bool ReadStatusOut(const std::string& document, std::string* word);

}  // namespace zvqrn::scanner
