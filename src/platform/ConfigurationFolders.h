#pragma once

#include <filesystem>
#include <string>

namespace ptzd {

/// Where this machine's and this user's settings of ours lie; empty where the system names no such folder.
/// The folders themselves need not be there. Found out at every call, since a host may change its
/// environment.
std::filesystem::path MachineConfigurationFolder();
std::filesystem::path UserConfigurationFolder();

/// The user's own folder, which people write as "~"; empty where there is none.
std::filesystem::path HomeFolder();

/// Paths are UTF-8 in our texts, whatever the system has.
std::filesystem::path PathOf(const std::string& text);
std::string TextOf(const std::filesystem::path& path);

}  // namespace ptzd
