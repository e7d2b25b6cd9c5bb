#include "platform/ConfigurationFolders.h"

#include <cstdlib>

namespace ptzd {

namespace {

std::filesystem::path FolderIn(const char* variable) {
  const char* value = std::getenv(variable);
  return value == nullptr ? "" : value;
}

}  // namespace

std::filesystem::path MachineConfigurationFolder() { return "/etc/ptzd"; }

std::filesystem::path UserConfigurationFolder() {
  // A relative one is to be ignored, as its convention says.
  if (const auto folder = FolderIn("XDG_CONFIG_HOME"); folder.is_absolute()) return folder / "ptzd";
  const auto home = HomeFolder();
  return home.empty() ? home : home / ".config/ptzd";
}

std::filesystem::path HomeFolder() { return FolderIn("HOME"); }

std::filesystem::path PathOf(const std::string& text) { return text; }
std::string TextOf(const std::filesystem::path& path) { return path.string(); }

}  // namespace ptzd
