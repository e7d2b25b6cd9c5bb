#pragma once

#include <string>
#include <vector>

#include "cameras/NamedCamera.h"

namespace ptzd {

/// The file of this user's cameras; empty where the system names no folder for it.
std::string UserCameraFile();
std::string MachineCameraFile();

/// The cameras that there are by name.
class CameraList {
 public:
  /// Those of a file or, where it is empty, of the user and of the machine; of two of one name the user's. A
  /// file of those that is not there has none. Raises `InputError` for a file that cannot be read, or is
  /// wrong.
  explicit CameraList(const std::string& file);

  /// In the order of their names.
  const std::vector<NamedCamera>& All() const { return All_; }
  /// The camera of a name, in any case of letters. Raises `InputError`, which names the nearest.
  const NamedCamera& Find(const std::string& name) const;

 private:
  std::vector<NamedCamera> All_;
  std::vector<std::string> Files_;  ///< that were looked at
};

}  // namespace ptzd
