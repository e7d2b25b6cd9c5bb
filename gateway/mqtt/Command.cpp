#include "gateway/mqtt/Command.h"

#include "cameras/InputWords.h"
#include "common/Printable.h"
#include "gateway/core/Refusal.h"

namespace ptzgate {

using nlohmann::json;

namespace {

[[noreturn]] void Refuse(const std::string& text) { throw Refusal(Refusal::Why::Invalid, text); }

}  // namespace

json ReadPayload(const Body& body, const std::string& payload) {
  const auto first = payload.find_first_not_of(" \t\r\n");
  if (first != std::string::npos && payload[first] == '{') return ReadObject(payload);
  if (body.MayBeAbsent) {
    if (payload.empty() || payload == "PRESS") return json::object();
    Refuse("expected a JSON object, nothing, or PRESS");
  }
  if (body.Members.size() != 1 || !body.Members[0].IsRequired) Refuse("expected a JSON object");
  const auto& member = body.Members[0];
  const std::string name(member.Name);
  if (member.Type == Member::Types::Number) {
    const auto number = ptzd::WholeTextNumber(payload);
    if (!number) Refuse("expected a number as " + name + ", or a JSON object");
    return {{name, *number}};
  }
  if (payload.empty() || ptzd::Printable(payload) != payload)
    Refuse("expected a text as " + name + ", or a JSON object");
  return {{name, payload}};
}

json TakeID(json& body) {
  const auto at = body.find("id");
  if (at == body.end()) return nullptr;
  if (!at->is_string() && !at->is_number()) Refuse("id: expected a text or a number");
  auto id = std::move(*at);
  body.erase(at);
  return id;
}

}  // namespace ptzgate
