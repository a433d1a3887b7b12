#include <gtest/gtest.h>

#include <string>

#include "pushscan/xml_reader.h"
#include "pushscan/xml_writer.h"
#include "support/suspicious_block.h"

namespace zvqrn {
namespace {

// A context whose text is freed with it.
struct Draft {
  XmlContext* context = CreateXmlContext();
  Draft() = default;
  ~Draft() {
    free(context->text);
    ReleaseXmlContext(context);
  }
  Draft(const Draft&) = delete;
  Draft& operator=(const Draft&) = delete;
  std::string Text() const {
    return {context->text, static_cast<std::size_t>(context->textLength)};
  }
};

TEST(XmlWriter, WritesLineByLine) {
  const Draft draft;
  XmlContext* c = draft.context;
  EXPECT_EQ(OpenElement(c, "s", "Body"), 0) << "before the declaration there is no line";
  EXPECT_EQ(WriteXmlDeclaration(c, "1.0", ""), 1);
  EXPECT_EQ(WriteElement(c, "s", "Envelope", "xmlns", "uri", nullptr), 1);
  EXPECT_EQ(WriteElement(c, "", "Plain", "xmlns", "", ""), 1);
  EXPECT_EQ(OpenElement(c, nullptr, "Open"), 1);
  EXPECT_EQ(WriteElement(c, nullptr, "Text", nullptr, nullptr, "a<b & \"c\""), 1);
  EXPECT_EQ(CloseElement(c, nullptr, "Open"), 1);
  EXPECT_EQ(CloseElement(c, nullptr, "Plain"), 1);
  EXPECT_EQ(CloseElement(c, "s", "Envelope"), 1);
  EXPECT_EQ(CloseElement(c, "s", "Extra"), 1);
  EXPECT_EQ(c->depth, 0);
  EXPECT_EQ(draft.Text(),
            "<?xml version=\"1.0\" ?>\r\n"
            "<s:Envelope xmlns:s=\"uri\">\r\n"
            "  <Plain xmlns=\"\">\r\n"
            "    <Open>\r\n"
            "      <Text>a<b & \"c\"</Text>\r\n"
            "    </Open>\r\n"
            "  </Plain>\r\n"
            "</s:Envelope>\r\n"
            "</s:Extra>\r\n");
  EXPECT_EQ(c->text[c->textLength], '\0');
}

TEST(XmlWriter, DeclaresWhatItIsGiven) {
  const struct {
    const char* version;
    const char* encoding;
    const char* line;
  } cases[] = {
      {"1.0", "", "<?xml version=\"1.0\" ?>\r\n"},
      {"", nullptr, "<?xml ?>\r\n"},
      {"1.0", "UTF-8", "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\r\n"},
      {nullptr, "UTF-8", "<?xml encoding=\"UTF-8\" ?>\r\n"},
  };
  for (const auto& c : cases) {
    const Draft draft;
    EXPECT_EQ(WriteXmlDeclaration(draft.context, c.version, c.encoding), 1);
    EXPECT_EQ(draft.Text(), c.line);
  }
  EXPECT_EQ(WriteXmlDeclaration(nullptr, "1.0", ""), 0);
}

TEST(XmlWriter, RefusesALineThatIsTooLong) {
  const Draft draft;
  XmlContext* c = draft.context;
  ASSERT_EQ(WriteXmlDeclaration(c, "", ""), 1);
  // "<n>", the text, "</n>", CR LF
  EXPECT_EQ(WriteElement(c, nullptr, "n", nullptr, nullptr, std::string(246, 'x').c_str()), 1);
  EXPECT_EQ(c->textLength, 10 + 255);
  EXPECT_EQ(WriteElement(c, nullptr, "n", nullptr, nullptr, std::string(247, 'x').c_str()), 0);
  EXPECT_EQ(OpenElement(c, nullptr, std::string(252, 'x').c_str()), 0);
  EXPECT_EQ(c->textLength, 10 + 255);
  EXPECT_EQ(c->depth, 0);
  EXPECT_EQ(AppendLine(c, nullptr, 0), 0);
  EXPECT_EQ(AppendLine(c, "x", -1), 0);
  // The block is full but for the byte of the NUL.
  const std::string rest(static_cast<std::size_t>(c->textCapacity - c->textLength), 'x');
  EXPECT_EQ(AppendLine(c, rest.c_str(), static_cast<std::int32_t>(rest.size())), 1);
}

TEST(XmlReader, FindsTagsByTheirBytes) {
  // More than are noted at once.
  const std::string manyTags(64, '<');
  const struct {
    const char* name;
    std::string text;
    const char* element;
    std::int32_t maxLength;
    XmlResult result;
    const char* value;
  } cases[] = {
      {"first of two", "<a>1</a><a>2</a>", "a", 9, XML_FOUND, "1"},
      {"inside another", "<x><!-- <a>1</a> --></x>", "a", 9, XML_FOUND, "1"},
      {"raw content", "<a> &amp;<b/> </a>", "a", 20, XML_FOUND, " &amp;<b/> "},
      {"empty", "<a></a>", "a", 9, XML_FOUND, ""},
      {"just long enough", "<a>123</a>", "a", 3, XML_FOUND, "123"},
      {"one too long", "<a>1234</a>", "a", 3, XML_BAD_ARGUMENT, ""},
      {"no end tag", "</a><a>1", "a", 9, XML_NOT_FOUND, ""},
      {"end tag first, behind many", manyTags + "</a><a>1", "a", 9, XML_NOT_FOUND, ""},
      {"and then another", manyTags + "</a><a>1</a>", "a", 9, XML_FOUND, "1"},
      {"end tag cut", "<a>1</a", "a", 9, XML_NOT_FOUND, ""},
      {"empty-element tag", "<a/>", "a", 9, XML_NOT_FOUND, ""},
      {"attributes", "<a b=\"\">1</a>", "a", 9, XML_NOT_FOUND, ""},
      {"prefix", "<p:a>1</p:a>", "a", 9, XML_NOT_FOUND, ""},
      {"another case", "<A>1</A>", "a", 9, XML_NOT_FOUND, ""},
      {"behind a NUL", std::string("x\0<a>1</a>", 10), "a", 9, XML_NOT_FOUND, ""},
      {"no text", "", "a", 9, XML_NOT_FOUND, ""},
  };
  for (const auto& c : cases) {
    const test::SuspiciousBlock block = test::BlockOf(c.text);
    const Draft draft;
    ASSERT_EQ(SetXmlInput(draft.context, block.Data(), block.length), 1);
    char out[32] = "?????????????????????????";
    EXPECT_EQ(ReadElementText(draft.context, c.element, c.maxLength, out), c.result) << c.name;
    EXPECT_STREQ(out, c.value) << c.name;
  }
}

TEST(XmlReader, FindsTagsAtEveryPlace) {
  // Behind other tags, and behind what is a tag but for a bit of its "<".
  for (const char* filler : {"<", "<<<b>", "=a>", ";a>", "\274a>"}) {
    std::string filling;
    for (int count = 0; count < 150; count++, filling += filler) {
      const test::SuspiciousBlock block = test::BlockOf(filling + "<a>1</a>");
      const Draft draft;
      ASSERT_EQ(SetXmlInput(draft.context, block.Data(), block.length), 1);
      char out[10];
      ASSERT_EQ(ReadElementText(draft.context, "a", 9, out), XML_FOUND) << filling;
      ASSERT_STREQ(out, "1") << filling;
    }
  }
}

TEST(XmlReader, KeepsToItsLimits) {
  const Draft draft;
  char out[400];
  EXPECT_EQ(ReadElementText(draft.context, "a", 9, out), XML_BAD_ARGUMENT) << "no input";
  const std::string name60(60, 'n');
  const std::string text = "<" + name60 + ">" + std::string(256, 'v') + "</" + name60 + "><b>" +
                           std::string(257, 'v') + "</b><p:PushScanResponse xmlns:p=\"\">";
  ASSERT_EQ(SetXmlInput(draft.context, text.data(), static_cast<std::int32_t>(text.size())), 1);
  EXPECT_EQ(ReadElementText(draft.context, name60.c_str(), 399, out), XML_FOUND);
  EXPECT_EQ(std::string(out), std::string(256, 'v'));
  EXPECT_EQ(ReadElementText(draft.context, (name60 + "n").c_str(), 399, out), XML_BAD_ARGUMENT);
  EXPECT_EQ(ReadElementText(draft.context, "b", 399, out), XML_BAD_ARGUMENT) << "over 256 bytes";
  EXPECT_STREQ(out, "");
  EXPECT_EQ(ReadElementText(draft.context, "b", -1, out), XML_BAD_ARGUMENT);
  EXPECT_EQ(FindPrefixedStartTag(draft.context, "p", "PushScan"), XML_NOT_FOUND);
  EXPECT_EQ(FindPrefixedStartTag(draft.context, "p", "PushScanResponse"), XML_FOUND);
  EXPECT_EQ(FindPrefixedStartTag(draft.context, "q", "PushScanResponse"), XML_NOT_FOUND);
  EXPECT_EQ(FindPrefixedStartTag(draft.context, "p", name60.c_str()), XML_BAD_ARGUMENT);
  EXPECT_EQ(FindPrefixedStartTag(draft.context, "", name60.c_str()), XML_NOT_FOUND);
  EXPECT_EQ(FindPrefixedStartTag(draft.context, nullptr, "x"), XML_BAD_ARGUMENT);
  EXPECT_EQ(SetXmlInput(draft.context, nullptr, 0), 0);
  EXPECT_EQ(SetXmlInput(draft.context, "x", -1), 0);
}

TEST(XmlReader, KnowsIntegers) {
  const struct {
    const char* text;
    std::int32_t isInteger;
    std::int32_t value;
  } cases[] = {
      {" -42", 1, -42},
      {"+7", 1, 7},
      {"", 1, 0},
      {"-", 1, 0},
      {" \t\v", 1, 0},
      {"42 ", 0, 42},
      {"4.2", 0, 4},
      {"0x2A", 0, 0},
      {"1e3", 0, 1},
      {"--1", 0, 0},
      {"007", 1, 7},
      {"\xA0"
       "1",
       0, 0},
      {nullptr, 0, 0},
      {"1 2", 0, 1},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(IsIntegerText(c.text), c.isInteger) << (c.text ? c.text : "null");
    EXPECT_EQ(ParseIntegerText(c.text), c.value) << (c.text ? c.text : "null");
  }
}

}  // namespace
}  // namespace zvqrn
