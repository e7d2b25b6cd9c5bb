#include "platform/XmlDocument.h"

#include <libxml/parser.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <new>

namespace ptzd {

namespace {

// The text is UTF-8 whatever it says of itself, and nothing is fetched from the network. The entities that
// every document has, and there are no others, are resolved in attributes, too.
constexpr int Options = XML_PARSE_NONET | XML_PARSE_IGNORE_ENC | XML_PARSE_NOENT;

// To make a parser costs as much as to read a camera's status, so each thread keeps its own, but none that
// has grown: it remembers every name.
constexpr std::size_t ShortText = 16384;  // bytes
constexpr int FewNames = 1024;

using Context = std::unique_ptr<xmlParserCtxt, decltype(&xmlFreeParserCtxt)>;

const char* Chars(const xmlChar* text) { return reinterpret_cast<const char*>(text); }

/// A name as it is written.
std::string Qualified(const xmlChar* prefix, const xmlChar* name) {
  return prefix == nullptr ? Chars(name) : std::string(Chars(prefix)) + ":" + Chars(name);
}

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

/// Makes the nodes while the parser reads: a tree of the parser's own would cost as much as all the rest.
class NodeBuilder {
 public:
  NodeBuilder(XmlNode& document, xmlParserCtxt& parser) : Parser_(parser) {
    Open_.reserve(8);
    Open_.push_back(&document);
    *parser.sax = Events();
    parser.userData = this;
  }
  ~NodeBuilder() { xmlResetError(&FirstError_); }
  NodeBuilder(const NodeBuilder&) = delete;
  NodeBuilder& operator=(const NodeBuilder&) = delete;

  /// The first error is the cause of those after it. Rethrows what an event has thrown.
  const xmlError& FirstError() const {
    if (Thrown_) std::rethrow_exception(Thrown_);
    return FirstError_;
  }

 private:
  static xmlSAXHandler Events() {
    xmlSAXHandler events{};
    events.initialized = XML_SAX2_MAGIC;
    events.startElementNs = [](void* self, const xmlChar* name, const xmlChar* prefix, const xmlChar*, int,
                               const xmlChar**, int count, int, const xmlChar** attributes) {
      Guarded(self, [=](NodeBuilder& builder) {
        builder.BeginElement(Qualified(prefix, name), attributes, count);
      });
    };
    events.endElementNs = [](void* self, const xmlChar*, const xmlChar*, const xmlChar*) {
      Guarded(self, [](NodeBuilder& builder) {
        builder.EndText();
        builder.Open_.pop_back();
      });
    };
    events.characters = events.ignorableWhitespace = [](void* self, const xmlChar* text, int length) {
      Guarded(self, [=](NodeBuilder& builder) { builder.Text_.append(Chars(text), length); });
    };
    events.cdataBlock = [](void* self, const xmlChar* text, int length) {
      Guarded(self, [=](NodeBuilder& builder) {
        builder.EndText();
        builder.Open_.back()->Children.emplace_back().Data.assign(Chars(text), length);
      });
    };
    events.comment = [](void* self, const xmlChar*) {
      Guarded(self, [](NodeBuilder& builder) { builder.EndText(); });
    };
    events.processingInstruction = [](void* self, const xmlChar*, const xmlChar*) {
      Guarded(self, [](NodeBuilder& builder) { builder.EndText(); });
    };
    events.serror = [](void* self, xmlErrorPtr error) {
      auto& first = static_cast<NodeBuilder*>(self)->FirstError_;
      if (first.code == XML_ERR_OK && error->level >= XML_ERR_ERROR) xmlCopyError(error, &first);
    };
    return events;
  }

  /// The parser is C: what is thrown ends it and is kept until it has returned.
  template <typename Work>
  static void Guarded(void* self, const Work& work) noexcept {
    auto& builder = *static_cast<NodeBuilder*>(self);
    if (builder.Thrown_) return;
    try {
      work(builder);
    } catch (...) {
      builder.Thrown_ = std::current_exception();
      xmlStopParser(&builder.Parser_);
    }
  }

  /// An attribute is its name, prefix and namespace, and begin and end of its value.
  void BeginElement(std::string name, const xmlChar** attributes, int count) {
    EndText();
    auto& element = Open_.back()->Children.emplace_back();
    element.Name = std::move(name);
    for (int i = 0; i < count; ++i, attributes += 5)
      element.Attributes.emplace_back(Qualified(attributes[1], attributes[0]),
                                      std::string(Chars(attributes[3]), Chars(attributes[4])));
    Open_.push_back(&element);
  }

  /// Character data comes in pieces; blanks alone are none.
  void EndText() {
    if (!std::ranges::all_of(Text_, IsBlank)) Open_.back()->Children.emplace_back().Data = Text_;
    Text_.clear();
  }

  xmlParserCtxt& Parser_;
  /// The elements that are still open, innermost last. Only the innermost gets children, so that none of them
  /// is ever moved.
  std::vector<XmlNode*> Open_;
  std::string Text_;
  xmlError FirstError_{};
  std::exception_ptr Thrown_;
};

XmlParseError Described(const xmlError& error) {
  std::string reason = error.message ? error.message : "";
  reason.erase(reason.find_last_not_of("\r\n") + 1);
  if (reason.empty()) reason = "The document is not well-formed.";
  return {-(error.code == XML_ERR_OK ? XML_ERR_INTERNAL_ERROR : error.code), std::move(reason)};
}

}  // namespace

bool ParseXml(std::string_view text, XmlNode& document, XmlParseError& error) {
  [[maybe_unused]] static const bool initialised = (xmlInitParser(), true);  // before any thread needs it
  thread_local Context context(nullptr, &xmlFreeParserCtxt);
  if (!context) context.reset(xmlNewParserCtxt());
  if (!context) throw std::bad_alloc();
  NodeBuilder builder(document, *context);
  // The fastest way in: a text that ends in a NUL is read where it stands.
  const std::string terminated(text);
  xmlCtxtReadDoc(context.get(), reinterpret_cast<const xmlChar*>(terminated.c_str()), nullptr, nullptr,
                 Options);
  const bool isWellFormed = context->wellFormed == 1;
  if (text.size() > ShortText || xmlDictSize(context->dict) > FewNames) context.reset();
  const auto& first = builder.FirstError();
  // An undeclared prefix is an error that does not end the parser.
  if (isWellFormed && first.code == XML_ERR_OK) return true;
  error = Described(first);
  return false;
}

}  // namespace ptzd
