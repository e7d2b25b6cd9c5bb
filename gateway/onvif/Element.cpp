#include "gateway/onvif/Element.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <climits>
#include <memory>

#include "common/Printable.h"

namespace ptzgate {

namespace {

struct Namespace {
  std::string_view Prefix, URI;
};
constexpr Namespace Namespaces[] = {
    {"env", "http://www.w3.org/2003/05/soap-envelope"},
    {"tds", "http://www.onvif.org/ver10/device/wsdl"},
    {"trt", "http://www.onvif.org/ver10/media/wsdl"},
    {"tptz", "http://www.onvif.org/ver20/ptz/wsdl"},
    {"tt", "http://www.onvif.org/ver10/schema"},
    {"ter", "http://www.onvif.org/ver10/error"},
    {"wsse", "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0.xsd"},
    {"wsu", "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-utility-1.0.xsd"},
    {"wsa5", "http://www.w3.org/2005/08/addressing"},
    {"wsa", "http://schemas.xmlsoap.org/ws/2004/08/addressing"},
    {"d", "http://schemas.xmlsoap.org/ws/2005/04/discovery"},
    {"dn", "http://www.onvif.org/ver10/network/wsdl"},
};

constexpr int MostDepth = 64;
constexpr std::string_view Blanks = " \t\r\n";

std::string_view Trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(Blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(Blanks) - first + 1);
}

std::string TextOf(const xmlChar* text) { return text == nullptr ? "" : reinterpret_cast<const char*>(text); }

std::string NameOf(const xmlNode& node) {
  auto name = TextOf(node.name);
  if (node.ns == nullptr) {
    if (name.find(':') != std::string::npos) throw NoXML("the prefix of " + name + " is not declared");
    return name;
  }
  const auto* known = std::ranges::find(Namespaces, TextOf(node.ns->href), &Namespace::URI);
  return known == std::end(Namespaces) ? name : std::string(known->Prefix) + ":" + name;
}

Element Read(xmlNode& node, int depth) {
  if (depth > MostDepth) throw NoXML("its elements are too deep in each other");
  Element element(NameOf(node));
  for (const auto* attribute = node.properties; attribute != nullptr; attribute = attribute->next) {
    const std::unique_ptr<xmlChar, decltype(xmlFree)> value(
        xmlNodeListGetString(node.doc, attribute->children, 1), xmlFree);
    element.Attributes.emplace_back(TextOf(attribute->name), TextOf(value.get()));
  }
  std::string text;
  for (auto* child = node.children; child != nullptr; child = child->next) {
    if (child->type == XML_ELEMENT_NODE)
      element.Children.push_back(Read(*child, depth + 1));
    else if (child->type == XML_TEXT_NODE || child->type == XML_CDATA_SECTION_NODE)
      text += TextOf(child->content);
  }
  if (element.Children.empty()) element.Text = Trimmed(text);
  return element;
}

void Write(const Element& element, bool isRoot, std::string& text) {
  text += "<" + element.Name;
  if (isRoot)
    for (const auto& [prefix, uri] : Namespaces)
      text.append(" xmlns:").append(prefix).append("=\"").append(uri).append("\"");
  for (const auto& [name, value] : element.Attributes)
    text += " " + name + "=\"" + ptzd::MarkupText(value) + "\"";
  if (element.Text.empty() && element.Children.empty()) {
    text += "/>";
    return;
  }
  text += ">" + ptzd::MarkupText(element.Text);
  for (const auto& child : element.Children) Write(child, false, text);
  text += "</" + element.Name + ">";
}

}  // namespace

Element Element::With(std::string name, std::string value) && {
  Attributes.emplace_back(std::move(name), std::move(value));
  return std::move(*this);
}

std::string_view Element::LocalName() const {
  const std::string_view name = Name;
  return name.substr(name.find(':') + 1);  // 0 where there is none
}

const Element* Element::Child(std::string_view localName) const {
  const auto child = std::ranges::find(Children, localName, &Element::LocalName);
  return child == Children.end() ? nullptr : &*child;
}

const std::string* Element::Attribute(std::string_view name) const {
  const auto found =
      std::ranges::find(Attributes, name, [](const auto& one) { return std::string_view(one.first); });
  return found == Attributes.end() ? nullptr : &found->second;
}

Element ReadXML(std::string_view text) {
  // With a document type come entities; nobody here needs one.
  if (text.find("<!DOCTYPE") != std::string_view::npos) throw NoXML("it has a document type");
  if (text.size() > INT_MAX) throw NoXML("it is too long");
  xmlInitParser();
  const std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> document(
      xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr,
                    XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
      &xmlFreeDoc);
  auto* root = document ? xmlDocGetRootElement(document.get()) : nullptr;
  // In another encoding than this text's, a document type would not have been seen above.
  if (root == nullptr || document->intSubset != nullptr) throw NoXML("it is not well-formed");
  return Read(*root, 0);
}

std::string XMLText(const Element& root) {
  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  Write(root, true, text);
  return text;
}

}  // namespace ptzgate
