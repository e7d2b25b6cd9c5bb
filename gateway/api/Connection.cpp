#include "gateway/api/Connection.h"

#include <ptzd/PropertyBag.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <variant>
#include <vector>

#include "cameras/CameraFile.h"
#include "cameras/ConnectionOptions.h"
#include "cameras/InputWords.h"
#include "common/Nearest.h"
#include "gateway/core/Refusal.h"

namespace ptzgate {

using namespace ptzd;
using nlohmann::json;

namespace {

using Types = Member::Types;

constexpr Member Members[] = {
    {"address", Types::Text, "without a login"},
    {"line", Types::Text, "of a camera on a serial line"},
    {"user", Types::Text, "empty: nobody logs in"},
    {"password", Types::Text, "kept in the camera file, which is its owner's alone from then on"},
    {"options", Types::Object, "by their names; null: as the driver has it"},
};

json ValueJSON(const Variant& value) {
  return std::visit(
      [](const auto& held) -> json {
        using Held = std::decay_t<decltype(held)>;
        if constexpr (std::is_same_v<Held, std::monostate> || std::is_same_v<Held, Bytes>)
          return nullptr;
        else
          return held;
      },
      value);
}

const char* TypeOf(std::int32_t type) {
  switch (type) {
    case OptionInteger:
      return "integer";
    case OptionBoolean:
      return "boolean";
    case OptionChoiceIndex:
    case OptionChoiceText:
      return "choice";
    default:
      return "text";
  }
}

/// Those that a camera has a member of its own for.
bool IsPlace(const std::string& name) { return name == "Address" || name == "COMPort"; }

/// How an option is shown that is stored as the number of a choice.
json Shown(const PTZOption& option, const Variant& value) {
  if (option.OType() != OptionChoiceIndex) return ValueJSON(value);
  const auto index = std::holds_alternative<std::int32_t>(value) ? std::get<std::int32_t>(value) : -1;
  if (index < 0 || static_cast<std::size_t>(index) >= option.Values().size()) return ValueJSON(value);
  return ValueJSON(option.Values()[static_cast<std::size_t>(index)]);
}

/// As somebody would have written it.
std::string WordOf(const json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_boolean()) return value.get<bool>() ? "true" : "false";
  return value.dump();
}

[[noreturn]] void Refuse(const std::string& text) { throw Refusal(Refusal::Why::Invalid, text); }

}  // namespace

const Body ConnectionBody{"Connection", Members};

json ConnectionJSON(const GateCamera& camera) {
  const auto& description = camera.Description();
  PropertyBag bag;
  bag.Contents(description.Settings.Options);
  auto options = json::array();
  for (const auto& option : OptionsOf(camera.Driver())) {
    if (IsPlace(option.Name())) continue;
    json one{{"name", option.Name()},
             {"description", option.Description()},
             {"type", TypeOf(option.OType())},
             {"value", Shown(option, bag.ReadProperty(option.Name()))},
             {"default", Shown(option, option.Default())}};
    const auto& values = option.Values();
    if (option.OType() == OptionInteger && values.size() == 2) {
      one["least"] = ValueJSON(values[0]);
      one["greatest"] = ValueJSON(values[1]);
    } else if (!values.empty()) {
      for (const auto& value : values) one["choices"].push_back(ValueJSON(value));
    }
    options.push_back(std::move(one));
  }
  return {{"driver", camera.Driver().ProgID},
          {"address", description.Address},
          {"line", description.Line},
          {"user", description.User},
          {"password", description.User.empty() ? "" : description.Password.Text()},
          {"options", std::move(options)}};
}

NamedCamera Reconnected(const GateCamera& camera, const json& body) try {
  auto changed = camera.Description();
  if (body.contains("address")) changed.Address = body["address"];
  if (body.contains("line")) changed.Line = body["line"];
  if (body.contains("user")) changed.User = body["user"];
  if (body.contains("password")) changed.Password = {PasswordSource::Kind::Here, body["password"]};
  if (changed.User.empty()) changed.Password = {};

  PropertyBag before, bag;
  before.Contents(changed.Settings.Options);
  const auto wanted = body.value("options", json::object());
  const auto known = OptionsOf(camera.Driver());
  for (const auto& [name, value] : wanted.items()) {
    if (std::ranges::find(known, name, &PTZOption::Name) == known.end() || IsPlace(name)) {
      std::vector<std::string> names;
      for (const auto& option : known)
        if (!IsPlace(option.Name())) names.push_back(option.Name());
      Refuse("options." + name + ": the driver " + std::string(camera.Driver().ProgID) +
             " has no such option" + DoYouMean(name, names));
    }
    if (!value.is_primitive()) Refuse("options." + name + ": expected a number, a text, true, false or null");
  }
  for (const auto& option : known) {
    const auto change = wanted.find(option.Name());
    if (change == wanted.end()) {
      const auto value = before.ReadProperty(option.Name());
      if (!std::holds_alternative<std::monostate>(value)) bag.WriteProperty(option.Name(), value);
    } else if (!change->is_null()) {
      const auto value = ReadOption(option, WordOf(*change));
      if (const auto warning = RangeWarning(option, value); !warning.empty()) Refuse(warning);
      bag.WriteProperty(option.Name(), value);
    }
  }
  changed.Settings.Options = bag.Contents();
  CheckCamera(changed);
  // With a user whose password is nowhere the gateway would not start again.
  if (!changed.User.empty() && changed.Password.From == PasswordSource::Kind::Unsaid)
    Refuse("password: expected one beside the user");
  if (!changed.User.empty() && !changed.Address.empty())
    AddressFor(changed.Address, LoginOf(changed.Name, changed.User, changed.Password, {}));
  return changed;
} catch (const InputError& error) {
  Refuse(error.what());
}

}  // namespace ptzgate
