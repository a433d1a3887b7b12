#include "pushscan/xml_writer.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>

namespace zvqrn {
namespace {

constexpr char LINE_END[] = "\r\n";
constexpr std::size_t LINE_BLOCK = XML_LINE_LIMIT + 1;

// Room for an answer of the protocol.
constexpr std::int64_t FIRST_TEXT_BLOCK = 512;

bool IsEmpty(const char* text) {
  return text == nullptr || *text == '\0';
}

// Composes one line in the context's block.
struct LineComposer {
  XmlContext* context;
  std::int32_t length;
  bool fits;
};

LineComposer BeginLine(XmlContext* context) {
  std::memset(context->line, 0, LINE_BLOCK);
  return LineComposer{context, 0, true};
}

void Put(LineComposer* composer, std::initializer_list<const char*> pieces) {
  for (const char* piece : pieces) {
    if (IsEmpty(piece) || !composer->fits) {
      continue;
    }
    const std::size_t size = std::strlen(piece);
    composer->fits = size <= static_cast<std::size_t>(XML_LINE_LIMIT - composer->length);
    if (composer->fits) {
      std::memcpy(composer->context->line + composer->length, piece, size);
      composer->length += static_cast<std::int32_t>(size);
    }
  }
}

void PutIndentation(LineComposer* composer) {
  for (std::int32_t i = 0; i < composer->context->depth && composer->fits; i++) {
    Put(composer, {"  "});
  }
}

void PutName(LineComposer* composer, const char* prefix, const char* name) {
  Put(composer, {prefix, IsEmpty(prefix) ? nullptr : ":", name});
}

std::int32_t EndLine(LineComposer* composer) {
  Put(composer, {LINE_END});
  return composer->fits ? AppendLine(composer->context, composer->context->line, composer->length)
                        : 0;
}

bool CanWrite(const XmlContext* context) {
  return context != nullptr && context->line != nullptr;
}

// Makes room for `used` bytes, and for as much again, so that a document is moved a few times only.
bool GrowText(XmlContext* context, std::int64_t used) {
  const std::int64_t capacity = std::max<std::int64_t>(FIRST_TEXT_BLOCK, 2 * used);
  char* text = NewBytes(capacity);
  if (text == nullptr) {
    return false;
  }
  if (context->text != nullptr) {
    std::memcpy(text, context->text, static_cast<std::size_t>(context->textLength));
    std::free(context->text);
  }
  context->text = text;
  context->textCapacity = static_cast<std::int32_t>(capacity);
  return true;
}

enum TagKind { START_TAG, END_TAG };

std::int32_t WriteTag(XmlContext* context, const char* prefix, const char* name, TagKind kind) {
  if (!CanWrite(context)) {
    return 0;
  }
  if (kind == END_TAG && context->depth > 0) {
    context->depth--;
  }
  LineComposer composer = BeginLine(context);
  PutIndentation(&composer);
  Put(&composer, {kind == END_TAG ? "</" : "<"});
  PutName(&composer, prefix, name);
  Put(&composer, {">"});
  if (EndLine(&composer) == 0) {
    return 0;
  }
  if (kind == START_TAG) {
    context->depth++;
  }
  return 1;
}

}  // namespace

XmlContext* CreateXmlContext() {
  return NewRecord<XmlContext>();
}

void ReleaseXmlContext(XmlContext* context) {
  if (context != nullptr) {
    std::free(context->line);
    std::free(context);
  }
}

std::int32_t WriteXmlDeclaration(XmlContext* context, const char* version, const char* encoding) {
  if (context == nullptr) {
    return 0;
  }
  if (context->line == nullptr) {
    context->line = NewBytes(LINE_BLOCK);
    if (context->line == nullptr) {
      return 0;
    }
  }
  context->textLength = 0;
  context->depth = 0;
  LineComposer composer = BeginLine(context);
  Put(&composer, {"<?xml "});
  if (!IsEmpty(version)) {
    Put(&composer, {"version=\"", version, "\" "});
  }
  if (!IsEmpty(encoding)) {
    Put(&composer, {"encoding=\"", encoding, "\" "});
  }
  Put(&composer, {"?>"});
  return EndLine(&composer);
}

std::int32_t WriteElement(XmlContext* context, const char* prefix, const char* name,
                          const char* attributeName, const char* attributeValue, const char* text) {
  if (!CanWrite(context)) {
    return 0;
  }
  LineComposer composer = BeginLine(context);
  PutIndentation(&composer);
  Put(&composer, {"<"});
  PutName(&composer, prefix, name);
  if (!IsEmpty(attributeName)) {
    const char* colon = IsEmpty(prefix) ? nullptr : ":";
    Put(&composer, {" ", attributeName, colon, prefix, "=\"", attributeValue, "\">"});
  }
  if (!IsEmpty(text)) {
    Put(&composer, {">", text, "</", name, ">"});
  }
  if (EndLine(&composer) == 0) {
    return 0;
  }
  if (IsEmpty(text)) {
    context->depth++;
  }
  return 1;
}

std::int32_t OpenElement(XmlContext* context, const char* prefix, const char* name) {
  return WriteTag(context, prefix, name, START_TAG);
}

std::int32_t CloseElement(XmlContext* context, const char* prefix, const char* name) {
  return WriteTag(context, prefix, name, END_TAG);
}

std::int32_t AppendLine(XmlContext* context, const char* line, std::int32_t length) {
  if (context == nullptr || line == nullptr || length < 0) {
    return 0;
  }
  const std::int64_t used = static_cast<std::int64_t>(context->textLength) + length + 1;
  const bool fits = context->text != nullptr && used <= context->textCapacity;
  if (!fits && !GrowText(context, used)) {
    std::free(context->text);
    context->text = nullptr;
    context->textCapacity = 0;
    return 0;
  }
  std::memcpy(context->text + context->textLength, line, static_cast<std::size_t>(length));
  context->textLength += length;
  context->text[context->textLength] = '\0';
  return 1;
}

}  // namespace zvqrn
