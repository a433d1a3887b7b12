// Writes a small XML document line by line in one fixed layout: each tag, and each element with
// text, on a line of its own, indented by two spaces a level, ended by CR LF.  Nothing is escaped
// and no name is checked; the caller names an element again when it closes it.
//
// Every operation gives 1, or 0 and no line; a text argument that is null or empty leaves its
// pieces out.  Out of memory, the text written so far is freed as well.
#pragma once

#include <cstdint>

#include "pushscan/xml_context.h"

namespace zvqrn {

// Begins the document; the first operation on a context.
std::int32_t WriteXmlDeclaration(XmlContext* context, const char* version, const char* encoding);

// One line: with `text` a whole element (which has no prefix), without it a start tag that carries
// a namespace declaration for its prefix; that element stays open.
std::int32_t WriteElement(XmlContext* context, const char* prefix, const char* name,
                          const char* attributeName, const char* attributeValue, const char* text);

// A start tag without attributes; the element stays open.
std::int32_t OpenElement(XmlContext* context, const char* prefix, const char* name);

// The end tag of the innermost open element.
std::int32_t CloseElement(XmlContext* context, const char* prefix, const char* name);

// Appends a NUL-terminated line of `length` bytes to the document.
std::int32_t AppendLine(XmlContext* context, const char* line, std::int32_t length);

}  // namespace zvqrn
