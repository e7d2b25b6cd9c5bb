#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ptzd {

/// A path of element names, as "preset" or "rcp/result/str". Only a literal makes one, so that no query is
/// ever built from what a camera sent; one with a missing name does not compile.
class XmlQuery {
 public:
  consteval XmlQuery(const char* path) : Path_(path) {
    if (Path_.empty() || Path_.front() == '/' || Path_.back() == '/' ||
        Path_.find("//") != std::string_view::npos ||
        Path_.find_first_of("[]@*.:() ") != std::string_view::npos)
      throw "a query is element names with \"/\" between them";
  }
  constexpr std::string_view Path() const { return Path_; }

 private:
  std::string_view Path_;
};

/// A node of a document: an element, which has a name, or a stretch of character data, which has none.
/// Comments, processing instructions and blanks between tags make no nodes, namespace declarations no
/// attributes. Text is UTF-8.
struct XmlNode {
  std::string Name;  ///< as written, with its prefix
  std::string Data;  ///< of character data, with references resolved
  std::vector<std::pair<std::string, std::string>> Attributes;
  std::vector<XmlNode> Children;

  bool IsElement() const { return !Name.empty(); }
  /// The value of the attribute with this name, nothing where there is none.
  std::optional<std::string> Attribute(std::string_view name) const;
  /// All character data inside, in order, without the blanks (space, tab, CR, LF) around the whole.
  std::string Text() const;
  /// The elements that the path leads to from here, in document order; its first name is a child's. Names
  /// compare exactly, as written. They live as long as this node.
  std::vector<const XmlNode*> SelectNodes(XmlQuery query) const;
  /// The first of them, null where there is none.
  const XmlNode* SelectSingleNode(XmlQuery query) const;
};

/// Why a document was refused. The numbers of `XmlErrors` are those of every platform. Any other is the
/// system parser's: on Windows the HRESULT that MSXML gives; elsewhere the negative of libxml2's
/// `xmlParserErrors`, as -4 for an empty document or -76 for tags that do not match.
struct XmlParseError {
  std::int32_t ErrorCode = 0;  ///< negative, 0 while there is none
  std::string Reason;          ///< in the parser's own words
};

enum XmlErrors : std::int32_t {
  XmlErrorTooLarge = -10001,      ///< more than `XmlDocument::MaxSize` bytes
  XmlErrorNul = -10002,           ///< holds a NUL character
  XmlErrorDocumentType = -10003,  ///< has a document type declaration
  XmlErrorTooDeep = -10004,       ///< nests elements deeper than `XmlDocument::MaxDepth`
  XmlErrorTooMany = -10005,       ///< more than `XmlDocument::MaxParts` elements and attributes
};

/// An XML document in memory, read by the system's parser: MSXML on Windows, libxml2 elsewhere.
///
/// A document is well-formed, namespaces included, or refused. It comes from a camera and is not trusted: one
/// with a document type declaration is refused unread, so that there are no entities to fetch or to expand,
/// and nothing is ever read but the text given. A document may be used by any thread, one at a time.
class XmlDocument {
 public:
  static constexpr std::size_t MaxSize = std::size_t{8} << 20;  ///< bytes of UTF-8
  static constexpr std::size_t MaxDepth = 256;                  ///< elements inside each other
  static constexpr std::size_t MaxParts = 20000;                ///< elements and attributes, in all

  /// Replaces the document by the one that a UTF-8 text spells; what encoding the text says it has does not
  /// matter. False, with the reason in `ParseError` and no document, where it is refused. Raises 429 where
  /// the system has no parser.
  bool LoadXml(std::string_view text);

  /// Null where no document is loaded.
  const XmlNode* DocumentElement() const;
  /// From the document: the path's first name is the document element's.
  std::vector<const XmlNode*> SelectNodes(XmlQuery query) const { return Document_.SelectNodes(query); }
  const XmlNode* SelectSingleNode(XmlQuery query) const { return Document_.SelectSingleNode(query); }

  /// Of the last load.
  const XmlParseError& ParseError() const { return ParseError_; }

 private:
  XmlNode Document_;  // its only child is the document element
  XmlParseError ParseError_;
};

/// The system's parser, implemented by the platform: appends the document element to `document`. False with
/// `error` filled, and whatever it had read so far in `document`, where the text is not well-formed. The text
/// has passed the checks of `XmlDocument`.
bool ParseXml(std::string_view text, XmlNode& document, XmlParseError& error);

}  // namespace ptzd
