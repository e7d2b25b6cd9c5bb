#include "gateway/core/PresetNames.h"

#include <nlohmann/json.hpp>

#include <charconv>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "platform/ConfigurationFolders.h"
#include "platform/PrivateFile.h"

namespace ptzgate {

using nlohmann::json;

namespace {

constexpr char FileName[] = "preset-names.json";

std::int32_t NumberOf(const std::string& text) {
  std::int32_t number = 0;
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (problem != std::errc() || end != text.data() + text.size() || number < 0)
    throw std::runtime_error("\"" + text + "\" is not the number of a preset");
  return number;
}

}  // namespace

PresetNames::PresetNames(const std::string& folder) {
  if (folder.empty()) return;
  File_ = ptzd::TextOf(ptzd::PathOf(folder) / FileName);
  constexpr std::size_t longest = 8 << 20;
  try {
    const auto document = json::parse(ptzd::ReadWholeFile(ptzd::PathOf(File_), longest).Text);
    for (const auto& [camera, names] :
         document.get<std::map<std::string, std::map<std::string, std::string>>>())
      for (const auto& [number, name] : names) Names_[camera][NumberOf(number)] = name;
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) return;
    throw std::runtime_error("the names of presets in " + File_ + " cannot be read: " + error.what());
  } catch (const std::exception& error) {
    throw std::runtime_error("the names of presets in " + File_ + " cannot be understood: " + error.what());
  }
}

const std::map<std::int32_t, std::string>& PresetNames::Of(const std::string& camera) const {
  static const std::map<std::int32_t, std::string> none;
  const auto names = Names_.find(camera);
  return names == Names_.end() ? none : names->second;
}

void PresetNames::Give(const std::string& camera, std::int32_t number, const std::string& name) {
  auto names = Names_;
  names[camera][number] = name;
  Store(names);
  Names_ = std::move(names);
}

void PresetNames::TakeAway(const std::string& camera, std::int32_t number) {
  auto names = Names_;
  const auto of = names.find(camera);
  if (of == names.end() || of->second.erase(number) == 0) return;
  if (of->second.empty()) names.erase(of);
  Store(names);
  Names_ = std::move(names);
}

void PresetNames::Store(const Names& names) const {
  if (File_.empty()) return;
  try {
    auto document = json::object();
    for (const auto& [camera, of] : names)
      for (const auto& [number, name] : of) document[camera][std::to_string(number)] = name;
    ptzd::WriteWholeFile(ptzd::PathOf(File_), document.dump(2) + "\n", false);
  } catch (const std::exception& error) {
    throw std::runtime_error("the names of presets in " + File_ + " cannot be written: " + error.what());
  }
}

}  // namespace ptzgate
