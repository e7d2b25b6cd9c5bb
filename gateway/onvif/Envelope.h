#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/onvif/Element.h"
#include "gateway/web/Message.h"

namespace ptzgate {

/// What a client is answered that asked for what cannot be: SOAP's code, ONVIF's subcodes, and why.
class Fault : public std::runtime_error {
 public:
  /// "env:Sender", {"ter:InvalidArgVal", "ter:NoProfile"}
  Fault(std::string code, std::vector<std::string> subcodes, const std::string& reason)
      : runtime_error(reason), Code(std::move(code)), Subcodes(std::move(subcodes)) {}

  std::string Code;
  std::vector<std::string> Subcodes;
};

/// What is wrong with a client's argument.
Fault InvalidArgument(const std::string& subcode, const std::string& reason);
/// What is not offered.
Fault NotSupported(const std::string& reason);

/// What a client says of itself in a message.
struct UsernameToken {
  std::string User, Digest, Nonce, Created;
};

/// A message of SOAP 1.2.
struct Envelope {
  Element Action;  ///< the only thing in its body
  std::optional<UsernameToken> Token;
};

/// Raises `Fault` for what is no such message. Touches nothing but the text.
Envelope ReadEnvelope(std::string_view text);

Response ResponseOf(const Element& answer);
Response ResponseOf(const Fault& fault);

// Arguments. Raise `Fault` for what is missing where it must be there, and for what cannot be meant.
const Element& Required(const Element& parent, std::string_view localName);
/// Raises `Fault` where one is told twice, in this element or further in.
void CheckOnce(const Element& parent);
/// Empty where there is none.
std::string TextOf(const Element& parent, std::string_view localName);
bool BooleanOf(const Element& parent, std::string_view localName, bool otherwise);
double NumberOf(const Element& element, std::string_view attribute);

}  // namespace ptzgate
