#include "cameras/CameraList.h"

#include <algorithm>

#include "cameras/CameraFile.h"
#include "cameras/InputWords.h"
#include "common/ASCII.h"
#include "common/Nearest.h"
#include "common/Printable.h"
#include "platform/ConfigurationFolders.h"

namespace ptzd {

namespace {

constexpr char FileName[] = "cameras.toml";

std::string FileIn(const std::filesystem::path& folder) {
  return folder.empty() ? "" : TextOf(folder / FileName);
}

}  // namespace

std::string UserCameraFile() { return FileIn(UserConfigurationFolder()); }
std::string MachineCameraFile() { return FileIn(MachineConfigurationFolder()); }

CameraList::CameraList(const std::string& file) {
  const bool isGiven = !file.empty();
  Files_ = isGiven ? std::vector{file} : std::vector{UserCameraFile(), MachineCameraFile()};
  std::erase(Files_, "");
  for (const auto& each : Files_)
    for (auto& camera : ReadCameraFile(each, isGiven)) {
      const auto has = [&](const NamedCamera& other) { return EqualsIgnoringCase(other.Name, camera.Name); };
      if (std::ranges::none_of(All_, has)) All_.push_back(std::move(camera));
    }
  std::ranges::sort(All_, {}, &NamedCamera::Name);
}

const NamedCamera& CameraList::Find(const std::string& name) const {
  std::vector<std::string> names;
  for (const auto& camera : All_) {
    if (EqualsIgnoringCase(camera.Name, name)) return camera;
    names.push_back(camera.Name);
  }
  std::string files;
  for (const auto& file : Files_) files.append(files.empty() ? "" : " or ").append(file);
  throw InputError("there is no camera \"" + Printable(name) + "\" in " + files + DoYouMean(name, names));
}

}  // namespace ptzd
