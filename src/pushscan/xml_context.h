// The record on which the XML writer and the XML reader work.  One thread uses a context at a time;
// contexts share nothing.
#pragma once

#include <cstdint>

#include "base/allocation.h"

namespace zvqrn {

// A line of a document, its CR LF included, and the NUL of the block that it is composed in.
constexpr std::int32_t XML_LINE_LIMIT = 255;

// The first tags of a text are looked for once: more than any document of the protocol has.
constexpr std::int32_t XML_TAG_NOTES = 64;

struct XmlContext {
  const char* input;                // the text being read; not owned
  const char* inputEnd;             // its first NUL, or the byte after it
  const char* tags[XML_TAG_NOTES];  // where each "<" stands, from the first on
  std::int32_t tagCount;

  char* line;                 // the line being composed, XML_LINE_LIMIT + 1 bytes; owned
  char* text;                 // the document written so far, NUL-terminated; owned until taken
  std::int32_t textLength;    // without the NUL
  std::int32_t textCapacity;  // bytes allocated for it
  std::int32_t depth;         // elements opened and not yet closed
};

// A new context, all zero; null when memory runs out.
XmlContext* CreateXmlContext();

// Frees the context and its line, but never its text: whoever finishes or abandons a document takes
// that first.  Null does nothing.
void ReleaseXmlContext(XmlContext* context);

using OwnedXmlContext = Owned<XmlContext, ReleaseXmlContext>;

}  // namespace zvqrn
