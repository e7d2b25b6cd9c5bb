#pragma once

#include <nlohmann/json.hpp>

#include <span>
#include <string>
#include <string_view>

namespace ptzgate {

/// A member of a JSON object that a client sends: what is checked, and what the description of the interface
/// says of it.
struct Member {
  enum class Types { Number, WholeNumber, Text, Boolean, Object, TextOrNull };

  std::string_view Name;
  Types Type = Types::Number;
  std::string_view About;
  bool IsRequired = false;
  std::span<const std::string_view> Words{};  ///< of a text: all that it can be; empty: any
  std::span<const Member> Members{};          ///< of an object: what is in it; empty: anything
};

/// A JSON object that a client sends.
struct Body {
  std::string_view Name;  ///< of its schema
  std::span<const Member> Members;
  bool MayBeAbsent = false;  ///< no body is an empty object
};

/// A text as a JSON object. Raises `Refusal` for what is none, or is nested too deeply.
nlohmann::json ReadObject(const std::string& text);
/// A text as that object: nothing unknown, nothing of another type, nothing missing. Raises `Refusal`, which
/// names the member.
nlohmann::json ReadBody(const Body& body, const std::string& text);
void CheckMembers(std::span<const Member> members, const nlohmann::json& object, const std::string& where);

/// The members as JSON Schema has them.
nlohmann::json SchemaOf(std::span<const Member> members);

}  // namespace ptzgate
