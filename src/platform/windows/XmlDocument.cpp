#include "platform/XmlDocument.h"

#include <memory>

#include <ptzd/Error.h>
#include "platform/windows/SystemHeaders.h"

// What msxml2.h takes for granted.
#include <ole2.h>
#include <oleauto.h>

#include <msxml2.h>
#include <wrl/client.h>

namespace ptzd {

namespace {

using Microsoft::WRL::ComPtr;

struct BStrDeleter {
  void operator()(OLECHAR* text) const { SysFreeString(text); }
};
using BStr = std::unique_ptr<OLECHAR, BStrDeleter>;

/// Version 6 refuses document types and deep nesting by itself; the other is on every system.
constexpr const wchar_t* ParserClasses[] = {L"Msxml2.DOMDocument.6.0", L"Microsoft.XMLDOM"};

/// The calling thread takes part in COM while this lives, if it does not already.
class ComScope {
 public:
  ComScope() : Result_(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) {}
  ~ComScope() {
    if (SUCCEEDED(Result_)) CoUninitialize();
  }
  ComScope(const ComScope&) = delete;
  ComScope& operator=(const ComScope&) = delete;

 private:
  HRESULT Result_;
};

void Check(HRESULT result) {
  if (FAILED(result)) throw Error(result, "The system's XML parser failed");
}

ComPtr<IXMLDOMDocument> NewParser() {
  for (const auto* name : ParserClasses) {
    CLSID identifier;
    ComPtr<IXMLDOMDocument> parser;
    if (SUCCEEDED(CLSIDFromProgID(name, &identifier)) &&
        SUCCEEDED(CoCreateInstance(identifier, nullptr, CLSCTX_INPROC_SERVER, IID_IXMLDOMDocument,
                                   reinterpret_cast<void**>(parser.GetAddressOf()))))
      return parser;
  }
  throw Error(ErrorCannotCreateObject,
              RunTimeErrorText(ErrorCannotCreateObject) + ": the system has no XML parser (MSXML)");
}

BStr Utf16(std::string_view text) {
  const int size = static_cast<int>(text.size());
  const int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0);
  BStr wide(SysAllocStringLen(nullptr, static_cast<UINT>(length)));
  if (!wide) throw std::bad_alloc();
  MultiByteToWideChar(CP_UTF8, 0, text.data(), size, wide.get(), length);
  return wide;
}

std::string Utf8(OLECHAR* wide) {
  const int length = static_cast<int>(SysStringLen(wide));
  const int size = WideCharToMultiByte(CP_UTF8, 0, wide, length, nullptr, 0, nullptr, nullptr);
  std::string text(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide, length, text.data(), size, nullptr, nullptr);
  return text;
}

std::string NameOf(IXMLDOMNode& node) {
  OLECHAR* name = nullptr;
  Check(node.get_nodeName(&name));
  return Utf8(BStr(name).get());
}

std::string ValueOf(IXMLDOMNode& node) {
  VARIANT value;
  VariantInit(&value);
  Check(node.get_nodeValue(&value));
  const BStr text(V_VT(&value) == VT_BSTR ? V_BSTR(&value) : nullptr);
  return Utf8(text.get());
}

void TakeAttributes(IXMLDOMNode& from, XmlNode& to) {
  ComPtr<IXMLDOMNamedNodeMap> attributes;
  Check(from.get_attributes(attributes.GetAddressOf()));
  for (ComPtr<IXMLDOMNode> attribute;
       attributes && attributes->nextNode(attribute.ReleaseAndGetAddressOf()) == S_OK;) {
    auto name = NameOf(*attribute.Get());
    if (name != "xmlns" && !name.starts_with("xmlns:"))
      to.Attributes.emplace_back(std::move(name), ValueOf(*attribute.Get()));
  }
}

bool IsBlank(std::string_view text) { return text.find_first_not_of(" \t\r\n") == std::string_view::npos; }

void TakeChildren(IXMLDOMNode& from, XmlNode& to) {
  ComPtr<IXMLDOMNode> child;
  Check(from.get_firstChild(child.GetAddressOf()));
  while (child) {
    DOMNodeType type;
    Check(child->get_nodeType(&type));
    if (type == NODE_ELEMENT) {
      auto& element = to.Children.emplace_back();
      element.Name = NameOf(*child.Get());
      TakeAttributes(*child.Get(), element);
      TakeChildren(*child.Get(), element);
    } else if (type == NODE_TEXT || type == NODE_CDATA_SECTION) {
      auto data = ValueOf(*child.Get());
      if (type == NODE_CDATA_SECTION || !IsBlank(data)) to.Children.emplace_back().Data = std::move(data);
    }
    ComPtr<IXMLDOMNode> next;
    Check(child->get_nextSibling(next.GetAddressOf()));
    child = next;
  }
}

XmlParseError Described(IXMLDOMDocument& parser) {
  XmlParseError described{E_FAIL, {}};
  ComPtr<IXMLDOMParseError> error;
  Check(parser.get_parseError(error.GetAddressOf()));
  LONG number = 0;
  if (error->get_errorCode(&number) == S_OK && number < 0) described.ErrorCode = number;
  OLECHAR* reason = nullptr;
  error->get_reason(&reason);
  described.Reason = Utf8(BStr(reason).get());
  if (described.Reason.empty()) described.Reason = "The document is not well-formed.";
  return described;
}

}  // namespace

bool ParseXml(std::string_view text, XmlNode& document, XmlParseError& error) {
  const ComScope com;
  const auto parser = NewParser();
  Check(parser->put_async(VARIANT_FALSE));
  Check(parser->put_validateOnParse(VARIANT_FALSE));
  Check(parser->put_resolveExternals(VARIANT_FALSE));
  VARIANT_BOOL loaded = VARIANT_FALSE;
  if (FAILED(parser->loadXML(Utf16(text).get(), &loaded)) || loaded == VARIANT_FALSE) {
    error = Described(*parser.Get());
    return false;
  }
  TakeChildren(*parser.Get(), document);
  return true;
}

}  // namespace ptzd
