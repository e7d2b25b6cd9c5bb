#include "gateway/core/StateFile.h"

#include <stdexcept>
#include <system_error>

#include "platform/ConfigurationFolders.h"
#include "platform/PrivateFile.h"

namespace ptzgate {

using nlohmann::json;

StateFile::StateFile(const std::string& folder, const char* name, const char* what) : What_(what) {
  if (!folder.empty()) File_ = ptzd::TextOf(ptzd::PathOf(folder) / name);
}

json StateFile::Document() const {
  if (File_.empty()) return nullptr;
  constexpr std::size_t longest = 8 << 20;
  try {
    return json::parse(ptzd::ReadWholeFile(ptzd::PathOf(File_), longest).Text);
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) return nullptr;
    Fail("read", error.what());
  } catch (const json::exception& error) {
    Fail("understood", error.what());
  }
}

void StateFile::Write(const json& document) const {
  if (File_.empty()) return;
  try {
    ptzd::WriteWholeFile(ptzd::PathOf(File_), document.dump(2) + "\n", false);
  } catch (const std::exception& error) {
    Fail("written", error.what());
  }
}

void StateFile::Fail(const char* how, const char* why) const {
  throw std::runtime_error(std::string(What_) + " in " + File_ + " cannot be " + how + ": " + why);
}

}  // namespace ptzgate
