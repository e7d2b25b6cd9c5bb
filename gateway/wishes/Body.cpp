#include "gateway/wishes/Body.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "common/Nearest.h"
#include "common/Printable.h"
#include "gateway/core/Refusal.h"

namespace ptzgate {

using nlohmann::json;

namespace {

using Types = Member::Types;

struct TypeText {
  Types Type;
  const char* Schema;
  const char* Text;
};
constexpr TypeText TypeTexts[] = {
    {Types::Number, "number", "a number"},  {Types::WholeNumber, "integer", "a whole number"},
    {Types::Text, "string", "a text"},      {Types::Boolean, "boolean", "true or false"},
    {Types::Object, "object", "an object"}, {Types::TextOrNull, "string", "a text, or null"},
};

const TypeText& Of(Types type) { return *std::ranges::find(TypeTexts, type, &TypeText::Type); }

bool Fits(Types type, const json& value) {
  switch (type) {
    case Types::Number:
      return value.is_number() && std::abs(value.get<double>()) <= std::numeric_limits<float>::max();
    case Types::WholeNumber:
      return value.is_number_integer() && value >= std::numeric_limits<std::int32_t>::min() &&
             value <= std::numeric_limits<std::int32_t>::max();
    case Types::Text:
      return value.is_string();
    case Types::TextOrNull:
      return value.is_string() || value.is_null();
    case Types::Boolean:
      return value.is_boolean();
    case Types::Object:
      return value.is_object();
  }
  return false;
}

[[noreturn]] void Refuse(const std::string& text) { throw Refusal(Refusal::Why::Invalid, text); }

std::string WordsText(std::span<const std::string_view> words) {
  std::string text;
  for (const auto word : words) text.append(text.empty() ? "" : ", ").append(word);
  return text;
}

void CheckValue(const Member& member, const json& value, const std::string& name) {
  if (!Fits(member.Type, value)) Refuse(name + ": expected " + Of(member.Type).Text);
  if (!member.Words.empty() &&
      std::ranges::find(member.Words, value.get<std::string>()) == member.Words.end())
    Refuse(name + ": expected one of " + WordsText(member.Words));
  if (member.Type == Types::Object && !member.Members.empty())
    CheckMembers(member.Members, value, name + ".");
}

}  // namespace

void CheckMembers(std::span<const Member> members, const json& object, const std::string& where) {
  for (const auto& [key, value] : object.items()) {
    const auto member = std::ranges::find(members, key, &Member::Name);
    if (member == members.end()) {
      std::vector<std::string> names;
      for (const auto& known : members) names.emplace_back(known.Name);
      Refuse(where + ptzd::Printable(key) + ": there is no such member" + ptzd::DoYouMean(key, names));
    }
    CheckValue(*member, value, where + key);
  }
  for (const auto& member : members)
    if (member.IsRequired && !object.contains(member.Name))
      Refuse(where + std::string(member.Name) + " is missing: expected " + Of(member.Type).Text);
}

json ReadObject(const std::string& text) {
  // Deeper than anything that is wanted; what is nested without end would exhaust the stack.
  constexpr int deepest = 8;
  json value;
  try {
    value = json::parse(text, [](int depth, json::parse_event_t, json&) {
      if (depth > deepest) Refuse("the body is nested too deeply");
      return true;
    });
  } catch (const json::exception& error) {
    const std::string what = error.what();
    Refuse("the body is not JSON: " +
           what.substr(what.find("] ") == std::string::npos ? 0 : what.find("] ") + 2));
  }
  if (!value.is_object()) Refuse("the body is not a JSON object");
  return value;
}

json ReadBody(const Body& body, const std::string& text) {
  if (text.empty() && body.MayBeAbsent) return json::object();
  auto value = ReadObject(text);
  CheckMembers(body.Members, value, "");
  return value;
}

json SchemaOf(std::span<const Member> members) {
  json properties = json::object(), required = json::array();
  for (const auto& member : members) {
    json property = member.Type == Types::Object && !member.Members.empty()
                        ? SchemaOf(member.Members)
                        : json{{"type", Of(member.Type).Schema}};
    if (member.Type == Types::TextOrNull) property["type"] = json::array({"string", "null"});
    if (!member.About.empty()) property["description"] = member.About;
    for (const auto word : member.Words) property["enum"].push_back(word);
    properties[std::string(member.Name)] = std::move(property);
    if (member.IsRequired) required.push_back(member.Name);
  }
  json schema{{"type", "object"}, {"properties", std::move(properties)}, {"additionalProperties", false}};
  if (!required.empty()) schema["required"] = std::move(required);
  return schema;
}

}  // namespace ptzgate
