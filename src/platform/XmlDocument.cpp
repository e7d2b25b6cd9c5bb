#include "platform/XmlDocument.h"

#include <algorithm>

namespace ptzd {

namespace {

constexpr std::string_view Blanks = " \t\r\n";

void AppendText(const XmlNode& node, std::string& text) {
  text += node.Data;
  for (const auto& child : node.Children) AppendText(child, text);
}

void AppendSelected(const XmlNode& node, std::string_view path, std::vector<const XmlNode*>& selected) {
  const auto name = path.substr(0, path.find('/'));
  for (const auto& child : node.Children) {
    if (child.Name != name) continue;
    if (name.size() == path.size())
      selected.push_back(&child);
    else
      AppendSelected(child, path.substr(name.size() + 1), selected);
  }
}

/// Behind the next `mark`, or the end of the text.
std::size_t Behind(std::string_view text, std::size_t at, std::string_view mark) {
  const auto found = text.find(mark, at);
  return found == std::string_view::npos ? text.size() : found + mark.size();
}

/// Behind the ">" that ends a tag; attribute values may hold others. Counts the values.
std::size_t BehindTag(std::string_view text, std::size_t at, std::size_t& values) {
  while (true) {
    while (at < text.size() && text[at] != '>' && text[at] != '"' && text[at] != '\'') ++at;
    if (at == text.size()) return at;
    if (text[at] == '>') return at + 1;
    at = Behind(text, at + 1, text.substr(at, 1));
    ++values;
  }
}

/// What no parser may see: system parsers differ in what they do about it, and some go and fetch entities,
/// recurse as deep as a document asks, or compare every attribute of an element with every other. The rest of
/// well-formedness is theirs; where a text is malformed they stop at the same place or before.
XmlParseError Refusal(std::string_view text) {
  if (text.size() > XmlDocument::MaxSize)
    return {XmlErrorTooLarge, "The document has " + std::to_string(text.size()) + " bytes; " +
                                  std::to_string(XmlDocument::MaxSize) + " are allowed."};
  if (text.find('\0') != std::string_view::npos) return {XmlErrorNul, "The document holds a NUL character."};
  std::size_t depth = 0, parts = 0;
  for (auto at = text.find('<'); at < text.size(); at = text.find('<', at)) {
    const auto rest = text.substr(at);
    const char kind = rest.size() > 1 ? rest[1] : ' ';
    if (kind == '/') {
      at = Behind(text, at, ">");
      if (depth > 0) --depth;
    } else if (kind == '?') {
      at = Behind(text, at + 2, "?>");
    } else if (rest.starts_with("<!--")) {
      at = Behind(text, at + 4, "-->");
    } else if (rest.starts_with("<![CDATA[")) {
      at = Behind(text, at, "]]>");
    } else if (kind == '!') {
      return {XmlErrorDocumentType, "The document has a document type declaration, which is not allowed."};
    } else {
      at = BehindTag(text, at, ++parts);
      const bool isEmpty = text[at - 1] == '>' && text[at - 2] == '/';
      if (parts > XmlDocument::MaxParts)
        return {XmlErrorTooMany, "The document has more than " + std::to_string(XmlDocument::MaxParts) +
                                     " elements and attributes."};
      if (depth + 1 > XmlDocument::MaxDepth)
        return {XmlErrorTooDeep, "The document nests its elements more than " +
                                     std::to_string(XmlDocument::MaxDepth) + " deep."};
      if (!isEmpty) ++depth;
    }
  }
  return {};
}

}  // namespace

std::optional<std::string> XmlNode::Attribute(std::string_view name) const {
  const auto found = std::ranges::find(
      Attributes, name, [](const auto& attribute) { return std::string_view(attribute.first); });
  if (found == Attributes.end()) return std::nullopt;
  return found->second;
}

std::string XmlNode::Text() const {
  std::string text;
  AppendText(*this, text);
  text.erase(text.find_last_not_of(Blanks) + 1);
  text.erase(0, text.find_first_not_of(Blanks));
  return text;
}

std::vector<const XmlNode*> XmlNode::SelectNodes(XmlQuery query) const {
  std::vector<const XmlNode*> selected;
  AppendSelected(*this, query.Path(), selected);
  return selected;
}

const XmlNode* XmlNode::SelectSingleNode(XmlQuery query) const {
  const auto selected = SelectNodes(query);
  return selected.empty() ? nullptr : selected.front();
}

bool XmlDocument::LoadXml(std::string_view text) {
  Document_ = {};
  ParseError_ = Refusal(text);
  if (ParseError_.ErrorCode != 0) return false;
  XmlNode document;
  if (!ParseXml(text, document, ParseError_)) return false;
  Document_ = std::move(document);
  return true;
}

const XmlNode* XmlDocument::DocumentElement() const {
  return Document_.Children.empty() ? nullptr : &Document_.Children.front();
}

}  // namespace ptzd
