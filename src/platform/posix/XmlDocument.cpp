#include "platform/XmlDocument.h"

#include <libxml/xmlreader.h>

#include <memory>
#include <new>

namespace ptzd {

namespace {

// The text is UTF-8 whatever it says of itself, and nothing is fetched from the network.
constexpr int Options = XML_PARSE_NONET | XML_PARSE_IGNORE_ENC;

using Context = std::unique_ptr<xmlParserCtxt, decltype(&xmlFreeParserCtxt)>;
using Tree = std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)>;
using Reader = std::unique_ptr<xmlTextReader, decltype(&xmlFreeTextReader)>;

std::string Text(const xmlChar* text) { return text ? reinterpret_cast<const char*>(text) : ""; }

/// The first error is the cause of those after it. Called from C, so it must not throw.
struct FirstError {
  FirstError() = default;
  ~FirstError() { xmlResetError(&Copy); }
  FirstError(const FirstError&) = delete;
  FirstError& operator=(const FirstError&) = delete;

  static void Take(void* context, xmlErrorPtr error) noexcept {
    auto& first = static_cast<FirstError*>(static_cast<xmlParserCtxtPtr>(context)->_private)->Copy;
    if (first.code == XML_ERR_OK && error->level >= XML_ERR_ERROR) xmlCopyError(error, &first);
  }

  xmlError Copy{};
};

XmlParseError Described(const xmlError& error) {
  std::string reason = error.message ? error.message : "";
  reason.erase(reason.find_last_not_of("\r\n") + 1);
  if (reason.empty()) reason = "The document is not well-formed.";
  return {-(error.code == XML_ERR_OK ? XML_ERR_INTERNAL_ERROR : error.code), std::move(reason)};
}

/// The elements that are still open, innermost last. Only the innermost gets children, so that none of them
/// is ever moved.
using OpenNodes = std::vector<XmlNode*>;

void TakeElement(xmlTextReaderPtr reader, OpenNodes& open) {
  auto& element = open.back()->Children.emplace_back();
  element.Name = Text(xmlTextReaderConstName(reader));
  const bool isEmpty = xmlTextReaderIsEmptyElement(reader) == 1;
  while (xmlTextReaderMoveToNextAttribute(reader) == 1) {
    if (xmlTextReaderIsNamespaceDecl(reader) == 1) continue;
    element.Attributes.emplace_back(Text(xmlTextReaderConstName(reader)),
                                    Text(xmlTextReaderConstValue(reader)));
  }
  if (!isEmpty) open.push_back(&element);
}

void TakeNode(xmlTextReaderPtr reader, OpenNodes& open) {
  switch (xmlTextReaderNodeType(reader)) {
    case XML_READER_TYPE_ELEMENT:
      TakeElement(reader, open);
      break;
    case XML_READER_TYPE_END_ELEMENT:
      open.pop_back();
      break;
    case XML_READER_TYPE_TEXT:
    case XML_READER_TYPE_CDATA:
      open.back()->Children.emplace_back().Data = Text(xmlTextReaderConstValue(reader));
      break;
    default:
      break;
  }
}

}  // namespace

bool ParseXml(std::string_view text, XmlNode& document, XmlParseError& error) {
  [[maybe_unused]] static const bool initialised = (xmlInitParser(), true);  // before any thread needs it
  const Context context(xmlNewParserCtxt(), &xmlFreeParserCtxt);
  if (!context) throw std::bad_alloc();
  FirstError firstError;
  context->_private = &firstError;
  context->sax->serror = &FirstError::Take;
  // Parsed whole and walked through, as the reader that parses on its way tells errors less well.
  const Tree tree(
      xmlCtxtReadMemory(context.get(), text.data(), static_cast<int>(text.size()), nullptr, "UTF-8", Options),
      &xmlFreeDoc);
  const Reader reader(tree ? xmlReaderWalker(tree.get()) : nullptr, &xmlFreeTextReader);
  int status = -1;
  if (reader) {
    OpenNodes open = {&document};
    while ((status = xmlTextReaderRead(reader.get())) == 1) TakeNode(reader.get(), open);
  }
  // An undeclared prefix is an error, too, though the tree is built all the same.
  if (status == 0 && firstError.Copy.code == XML_ERR_OK) return true;
  error = Described(firstError.Copy);
  return false;
}

}  // namespace ptzd
