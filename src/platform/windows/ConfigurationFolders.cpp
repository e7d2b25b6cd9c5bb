#include "platform/ConfigurationFolders.h"

#include <cstdlib>
#include <string>

namespace ptzd {

namespace {

std::filesystem::path FolderIn(const wchar_t* variable) {
  const wchar_t* value = _wgetenv(variable);
  return value == nullptr ? L"" : value;
}

std::filesystem::path OursIn(const std::filesystem::path& folder) {
  return folder.empty() ? folder : folder / L"ptzd";
}

}  // namespace

std::filesystem::path MachineConfigurationFolder() { return OursIn(FolderIn(L"ProgramData")); }
std::filesystem::path UserConfigurationFolder() { return OursIn(FolderIn(L"APPDATA")); }
std::filesystem::path HomeFolder() { return FolderIn(L"USERPROFILE"); }

std::filesystem::path PathOf(const std::string& text) {
  return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

std::string TextOf(const std::filesystem::path& path) {
  const auto text = path.u8string();
  return {text.begin(), text.end()};
}

}  // namespace ptzd
