#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ptzgate {

/// An element of what clients and ONVIF devices say to each other. Names have the prefix that their namespace
/// usually has ("tptz:Stop"), whatever the text called it, and none where it is none that is known here.
struct Element {
  std::string Name;
  std::vector<std::pair<std::string, std::string>> Attributes;  ///< names without a namespace's prefix
  std::string Text;  ///< character data, without blanks around it; empty where there are children
  std::vector<Element> Children;

  Element() = default;
  explicit Element(std::string name) : Name(std::move(name)) {}
  Element(std::string name, std::string text) : Name(std::move(name)), Text(std::move(text)) {}
  Element(std::string name, std::vector<Element> children)
      : Name(std::move(name)), Children(std::move(children)) {}
  Element With(std::string name, std::string value) &&;

  /// "Stop" of "tptz:Stop".
  std::string_view LocalName() const;
  /// The first child of a local name: clients are known to have namespaces of arguments wrong. Null for none.
  const Element* Child(std::string_view localName) const;
  /// Null for none.
  const std::string* Attribute(std::string_view name) const;
};

/// A text that is no XML, or more than is read here: deeper, or with a document type.
class NoXML : public std::runtime_error {
  using runtime_error::runtime_error;
};

/// The root of an XML text. Raises `NoXML`.
Element ReadXML(std::string_view text);
/// A text with a head, in UTF-8, which declares the namespaces of all prefixes at its root.
std::string XMLText(const Element& root);

}  // namespace ptzgate
