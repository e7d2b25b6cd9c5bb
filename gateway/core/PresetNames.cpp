#include "gateway/core/PresetNames.h"

#include <charconv>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace ptzgate {

using nlohmann::json;

namespace {

std::int32_t NumberOf(const std::string& text) {
  std::int32_t number = 0;
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (problem != std::errc() || end != text.data() + text.size() || number < 0)
    throw std::runtime_error("\"" + text + "\" is not the number of a preset");
  return number;
}

}  // namespace

PresetNames::PresetNames(const std::string& folder)
    : File_(folder, "preset-names.json", "the names of presets") {
  File_.Read([this](const json& document) {
    for (const auto& [camera, names] :
         document.get<std::map<std::string, std::map<std::string, std::string>>>())
      for (const auto& [number, name] : names) Names_[camera][NumberOf(number)] = name;
  });
}

const std::map<std::int32_t, std::string>& PresetNames::Of(const std::string& camera) const {
  static const std::map<std::int32_t, std::string> none;
  const auto names = Names_.find(camera);
  return names == Names_.end() ? none : names->second;
}

void PresetNames::Give(const std::string& camera, std::int32_t number, const std::string& name) {
  auto names = Names_;
  names[camera][number] = name;
  Store(std::move(names));
}

void PresetNames::TakeAway(const std::string& camera, std::int32_t number) {
  auto names = Names_;
  const auto of = names.find(camera);
  if (of == names.end() || of->second.erase(number) == 0) return;
  if (of->second.empty()) names.erase(of);
  Store(std::move(names));
}

void PresetNames::Store(Names names) {
  auto document = json::object();
  for (const auto& [camera, of] : names)
    for (const auto& [number, name] : of) document[camera][std::to_string(number)] = name;
  File_.Write(document);
  Names_ = std::move(names);
}

}  // namespace ptzgate
