#include "platform/XmlDocument.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "platform/LetterCase.h"

namespace ptzd {
namespace {

/// A tree as "list[a=1](item('text') item)".
std::string Outline(const XmlNode& node) {
  if (!node.IsElement()) return "'" + node.Data + "'";
  auto outline = node.Name;
  for (const auto& [name, value] : node.Attributes) outline += "[" + name + "=" + value + "]";
  std::string children;
  for (const auto& child : node.Children) children += (children.empty() ? "" : " ") + Outline(child);
  return children.empty() ? outline : outline + "(" + children + ")";
}

std::string Repeat(const std::string& text, std::size_t count) {
  std::string result;
  result.reserve(text.size() * count);
  while (count-- > 0) result += text;
  return result;
}

std::string Nested(std::size_t depth) {
  return Repeat("<a>", depth - 1) + "<a/>" + Repeat("</a>", depth - 1);
}

TEST(XmlDocument, ReadsWhatIsWellFormed) {
  struct Row {
    const char* text;
    const char* outline;
    const char* fault;
  };
  const Row rows[] = {
      {"<a/>", "a", "no declaration, nothing inside"},
      {"<?xml version=\"1.0\"?>\r\n<a>\r\n  <b id=\"1\" name='x'/>\r\n  <b></b>\r\n</a>\r\n",
       "a(b[id=1][name=x] b)", "blanks between tags are no children"},
      {"<a><!-- <b/> --><?pi <c/> ?><d>1</d>2</a>", "a(d('1') '2')",
       "comments and instructions are no children"},
      {"<a>1<!-- -->2&amp;3<![CDATA[ ]]><?pi ?> <b/> 4</a>", "a('1' '2&3' ' ' b ' 4')",
       "but stand between data, which a reference does not; marked blanks stay"},
      {"<a n='&lt;&#65;&#x20AC;&quot;'>&amp;&gt;&#x41F;</a>", "a[n=<A\xE2\x82\xAC\"]('&>\xD0\x9F')",
       "references are resolved"},
      {"<a n='&amp;lt;&#38;amp;'>&amp;lt;&#38;amp;</a>", "a[n=&lt;&amp;]('&lt;&amp;')", "and resolved once"},
      {"<a><![CDATA[<b>&lt;<!DOCTYPE x>]]></a>", "a('<b>&lt;<!DOCTYPE x>')", "marked sections are data"},
      {"<a><!-- <!DOCTYPE a> --></a>", "a", "a comment may say anything"},
      {"<a n='>' m=\"/>\"><b/></a>", "a[n=>][m=/>](b)", "a value may hold the end of a tag"},
      {"<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a>\xC3\xA9</a>", "a('\xC3\xA9')",
       "the text is UTF-8 whatever it claims"},
      {"<?xml version=\"1.0\" encoding=\"UTF-8\"?><a>\xE2\x82\xAC</a>", "a('\xE2\x82\xAC')", "or says so"},
      {"<p:a xmlns:p='urn:x' p:n='1'><p:b xmlns='urn:y'/></p:a>", "p:a[p:n=1](p:b)",
       "names keep their prefixes, declarations are no attributes"},
  };
  for (const auto& row : rows) {
    XmlDocument document;
    ASSERT_TRUE(document.LoadXml(row.text)) << row.fault << ": " << document.ParseError().Reason;
    EXPECT_EQ(Outline(*document.DocumentElement()), row.outline) << row.fault;
    EXPECT_EQ(document.ParseError().ErrorCode, 0);
  }
}

TEST(XmlDocument, RefusesWhatIsNot) {
  struct Row {
    std::string text;
    std::int32_t libxml2Error;
    const char* fault;
  };
  const Row rows[] = {
      {"", -4, "empty"},
      {"   ", -4, "blanks alone"},
      {"OK", -4, "no markup"},
      {"<a><b></a>", -76, "tags that do not match"},
      {"<a>", -77, "cut off inside"},
      {"<a", -73, "cut off in a tag"},
      {"<a/><b/>", -5, "two roots"},
      {"<a/>x", -5, "text after the root"},
      {"<a b=\"1\" b=\"2\"/>", -42, "an attribute twice"},
      {"<a b=1/>", -39, "a value without quotes"},
      {"<a>&nbsp;</a>", -26, "an entity that nobody declared"},
      {"<a>\x01</a>", -9, "a control character"},
      {"<a b='<'/>", -38, "a tag in a value"},
#ifndef _WIN32  // Wine's parser lets it pass
      {"<p:a/>", -201, "a prefix that nobody declared"},
#endif
      {" <?xml version='1.0'?><a/>", -64, "a declaration that does not come first"},
      {"<html><body><br></body></html>", -76, "a web page"},
  };
  for (const auto& row : rows) {
    XmlDocument document;
    ASSERT_TRUE(document.LoadXml("<before/>"));
    EXPECT_FALSE(document.LoadXml(row.text)) << row.fault;
    EXPECT_LT(document.ParseError().ErrorCode, 0) << row.fault;
    EXPECT_NE(document.ParseError().Reason, "") << row.fault;
    EXPECT_EQ(document.DocumentElement(), nullptr) << row.fault;
#ifndef _WIN32
    EXPECT_EQ(document.ParseError().ErrorCode, row.libxml2Error) << row.fault;
    EXPECT_EQ(document.ParseError().Reason.find('\n'), std::string::npos) << row.fault;
#endif
  }
}

TEST(XmlDocument, RefusesWhatIsHostile) {
  const std::string bomb =
      "<?xml version='1.0'?><!DOCTYPE z [<!ENTITY a 'aaaaaaaaaa'><!ENTITY b '&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;'>"
      "<!ENTITY c '&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;'><!ENTITY d '&c;&c;&c;&c;&c;&c;&c;&c;&c;&c;'>]><z>&d;</z>";
  struct Row {
    std::string text;
    std::int32_t error;
    const char* fault;
  };
  const Row rows[] = {
      {bomb, XmlErrorDocumentType, "entities that grow"},
      {"<!DOCTYPE a [<!ENTITY x SYSTEM 'file:///etc/hostname'>]><a>&x;</a>", XmlErrorDocumentType,
       "a local file"},
      {"<!DOCTYPE a SYSTEM 'http://127.0.0.1:9/a.dtd'><a/>", XmlErrorDocumentType,
       "an external document type"},
      {"<!-- --><?p ?>\n<!DOCTYPE a [<!ENTITY % p SYSTEM 'http://127.0.0.1:9/p'> %p;]><a/>",
       XmlErrorDocumentType, "a parameter entity behind a comment"},
      {"<!--><!-- --><!DOCTYPE a><a/>", XmlErrorDocumentType, "a comment that seems to end at once"},
      {Nested(XmlDocument::MaxDepth + 1), XmlErrorTooDeep, "one level too deep"},
      {Repeat("<a b='/>'>", 800000), XmlErrorTooDeep, "all the way down"},
      {"<a>" + std::string(XmlDocument::MaxSize - 6, 'x') + "</a>", XmlErrorTooLarge, "one byte too many"},
      {"<a>" + std::string(std::size_t{50} << 20, 'x') + "</a>", XmlErrorTooLarge, "50 MB"},
      {"<a>" + Repeat("<b/>", 1000000) + "</a>", -10005, "a million elements"},
      {"<a " + Repeat("b='' ", 1000000) + "/>", XmlErrorTooMany, "a million attributes"},
      {std::string("<a/>\0<b/>", 9), XmlErrorNul, "a document behind another's end"},
  };
  const std::map<std::int32_t, std::string> ends = {
      {XmlErrorDocumentType, "The document has a document type declaration, which is not allowed."},
      {XmlErrorTooDeep, "The document nests its elements more than 256 deep."},
      {XmlErrorTooLarge, " bytes; 8388608 are allowed."},
      {XmlErrorTooMany, "The document has more than 20000 elements and attributes."},
      {XmlErrorNul, "The document holds a NUL character."},
  };
  for (const auto& row : rows) {
    XmlDocument document;
    EXPECT_FALSE(document.LoadXml(row.text)) << row.fault;
    const auto& [error, reason] = document.ParseError();
    EXPECT_EQ(error, row.error) << row.fault << ": " << reason;
    EXPECT_TRUE(reason.ends_with(ends.at(row.error))) << reason;
    EXPECT_EQ(document.DocumentElement(), nullptr) << row.fault;
  }
}

TEST(XmlDocument, TakesAllThatItsLimitsAllow) {
  XmlDocument document;
  EXPECT_TRUE(document.LoadXml(Nested(XmlDocument::MaxDepth))) << document.ParseError().Reason;
  EXPECT_TRUE(document.LoadXml("<a>" + std::string(XmlDocument::MaxSize - 7, 'x') + "</a>"))
      << document.ParseError().Reason;
  EXPECT_EQ(document.DocumentElement()->Text().size(), XmlDocument::MaxSize - 7);
  EXPECT_TRUE(document.LoadXml("<a>" + Repeat("<b/>", 9999) + Repeat("<b></b>", 10000) + "</a>"))
      << "many beside each other are not deep";
}

TEST(XmlDocument, FindsNodesAndTheirText) {
  XmlDocument document;
  ASSERT_TRUE(document.LoadXml(
      "<rcp><str>no</str><result>\n <str n='1'>\t7A 1B\r\n</str><x><str/></x><str n=''>a<b> c </b>"
      "</str><STR/></result><result><str n='3'> <![CDATA[ d ]]> </str></result></rcp>"));
  const auto nodes = document.SelectNodes("rcp/result/str");
  ASSERT_EQ(nodes.size(), 3U) << "direct children only, names in their own case";
  EXPECT_EQ(nodes[0]->Text(), "7A 1B") << "outer blanks go, inner ones stay";
  EXPECT_EQ(nodes[1]->Text(), "a c");
  EXPECT_EQ(nodes[2]->Text(), "d");
  EXPECT_EQ(nodes[2]->Attribute("n"), "3") << "in document order";
  EXPECT_EQ(nodes[1]->Attribute("n"), "");
  EXPECT_EQ(nodes[1]->Attribute("N"), std::nullopt);
  EXPECT_EQ(document.SelectSingleNode("rcp/str")->Text(), "no");
  EXPECT_EQ(document.SelectSingleNode("result"), nullptr) << "the document's only child is the root";
  EXPECT_EQ(document.DocumentElement()->SelectNodes("result").size(), 2U);
  EXPECT_EQ(XmlDocument().SelectSingleNode("rcp"), nullptr);
}

TEST(LowerCase, ReachesBeyondASCII) {
  EXPECT_EQ(LowerCase("Front DOOR 1"), "front door 1");
  EXPECT_EQ(LowerCase("\xC3\x84\xC5\xA0\xC5\xB8\xD0\x9F\xC3\x9F"),
            "\xC3\xA4\xC5\xA1\xC3\xBF\xD0\xBF\xC3\x9F");
  EXPECT_EQ(LowerCase(std::string("A\0B", 3)), std::string("a\0b", 3));
}

}  // namespace
}  // namespace ptzd
