#include "gateway/onvif/Envelope.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <set>

namespace ptzgate {

namespace {

constexpr char PasswordDigest[] =
    "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-username-token-profile-1.0#PasswordDigest";

Fault Malformed(const std::string& reason) { return {"env:Sender", {"ter:WellFormed"}, reason}; }

std::optional<UsernameToken> TokenOf(const Element& header) {
  const auto* security = header.Child("Security");
  const auto* token = security == nullptr ? nullptr : security->Child("UsernameToken");
  if (token == nullptr) return std::nullopt;
  const auto* password = token->Child("Password");
  const auto* type = password == nullptr ? nullptr : password->Attribute("Type");
  UsernameToken result{TextOf(*token, "Username"), "", TextOf(*token, "Nonce"), TextOf(*token, "Created")};
  // One that is sent in the clear is not looked at: nobody is to get used to that.
  if (type != nullptr && *type == PasswordDigest) result.Digest = password->Text;
  return result;
}

/// What a client demands of whoever reads its message.
void CheckUnderstood(const Element& header) {
  for (const auto& block : header.Children) {
    const auto* must = block.Attribute("mustUnderstand");
    if (must == nullptr || (*must != "1" && *must != "true")) continue;
    if (!block.Name.starts_with("wsse:") && !block.Name.starts_with("wsa"))
      throw Fault("env:MustUnderstand", {}, "the header " + block.Name + " is not known here");
  }
}

Element EnvelopeWith(Element body) {
  std::vector<Element> content;
  content.push_back(std::move(body));
  return {"env:Envelope", {Element("env:Header"), Element("env:Body", std::move(content))}};
}

Response Soap(int status, Element body) {
  return {.Status = status,
          .Headers = {{"Content-Type", "application/soap+xml; charset=utf-8"}, {"Cache-Control", "no-store"}},
          .Body = XMLText(EnvelopeWith(std::move(body)))};
}

}  // namespace

Fault InvalidArgument(const std::string& subcode, const std::string& reason) {
  return {"env:Sender", {"ter:InvalidArgVal", subcode}, reason};
}

Fault NotSupported(const std::string& reason) { return {"env:Receiver", {"ter:ActionNotSupported"}, reason}; }

Envelope ReadEnvelope(std::string_view text) {
  Element root;
  try {
    root = ReadXML(text);
  } catch (const NoXML& error) {
    throw Malformed(std::string("no message could be read: ") + error.what());
  }
  if (root.LocalName() != "Envelope") throw Malformed("expected an Envelope, not " + root.Name);
  if (root.Name != "env:Envelope") throw Fault("env:VersionMismatch", {}, "expected an envelope of SOAP 1.2");
  const auto* body = root.Child("Body");
  if (std::ranges::count(root.Children, "Body", &Element::LocalName) != 1 || body->Children.size() != 1)
    throw Malformed("expected a Body with one element");
  Envelope envelope{body->Children.front(), std::nullopt};
  if (const auto* header = root.Child("Header")) {
    CheckUnderstood(*header);
    envelope.Token = TokenOf(*header);
  }
  return envelope;
}

Response ResponseOf(const Element& answer) { return Soap(200, answer); }

Response ResponseOf(const Fault& fault) {
  std::optional<Element> subcode;
  for (auto name = fault.Subcodes.rbegin(); name != fault.Subcodes.rend(); ++name) {
    Element next("env:Subcode", {Element("env:Value", *name)});
    if (subcode) next.Children.push_back(std::move(*subcode));
    subcode = std::move(next);
  }
  Element code("env:Code", {Element("env:Value", fault.Code)});
  if (subcode) code.Children.push_back(std::move(*subcode));
  Element reason("env:Reason", {Element("env:Text", fault.what()).With("xml:lang", "en")});
  return Soap(fault.Code == "env:Sender" ? 400 : 500, {"env:Fault", {std::move(code), std::move(reason)}});
}

const Element& Required(const Element& parent, std::string_view localName) {
  const auto* child = parent.Child(localName);
  if (child == nullptr)
    throw Fault("env:Sender", {"ter:InvalidArgs"}, parent.Name + " has no " + std::string(localName));
  return *child;
}

void CheckOnce(const Element& parent) {
  std::set<std::string_view> names;
  for (const auto& child : parent.Children) {
    if (!names.insert(child.LocalName()).second && child.LocalName() != "Category")
      throw Fault("env:Sender", {"ter:InvalidArgs"}, parent.Name + " has more than one " + child.Name);
    CheckOnce(child);
  }
}

std::string TextOf(const Element& parent, std::string_view localName) {
  const auto* child = parent.Child(localName);
  return child == nullptr ? "" : child->Text;
}

bool BooleanOf(const Element& parent, std::string_view localName, bool otherwise) {
  const auto* child = parent.Child(localName);
  if (child == nullptr) return otherwise;
  if (child->Text == "true" || child->Text == "1") return true;
  if (child->Text == "false" || child->Text == "0") return false;
  throw Fault("env:Sender", {"ter:InvalidArgVal"}, child->Name + ": expected true or false");
}

double NumberOf(const Element& element, std::string_view attribute) {
  const auto* text = element.Attribute(attribute);
  if (text == nullptr)
    throw Fault("env:Sender", {"ter:InvalidArgs"}, element.Name + " has no " + std::string(attribute));
  auto digits = std::string_view(*text);
  if (digits.starts_with('+') && !digits.starts_with("+-")) digits.remove_prefix(1);
  double number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error != std::errc() || end != digits.data() + digits.size() || !std::isfinite(number))
    throw Fault("env:Sender", {"ter:InvalidArgVal"},
                element.Name + ": expected a number as " + std::string(attribute));
  return number;
}

}  // namespace ptzgate
