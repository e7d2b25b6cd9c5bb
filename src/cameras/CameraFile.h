#pragma once

#include <string>
#include <vector>

#include "cameras/NamedCamera.h"

namespace ptzd {

/// Raises `InputError` for what is no name of a camera: letters, digits, "-", "_" and "." are, of which the
/// first is a letter or a digit.
void CheckCameraName(const std::string& name);

/// Raises `InputError` for a camera that no file can have: an address where its driver reads a line, a user
/// on a line, options that the driver does not know.
void CheckCamera(const NamedCamera& camera);

/// The cameras of a text in TOML. `file` is its name, in texts and as where secret files are looked for;
/// passwords may stand in it unless `openness` tells why others may read it. Raises `InputError` with file,
/// line, column, and what was expected there.
std::vector<NamedCamera> ReadCameras(const std::string& text, const std::string& file,
                                     const std::string& openness = {});

/// The cameras of a file. Raises the same, and also for a file that cannot be read, but where it is not there
/// and need not be.
std::vector<NamedCamera> ReadCameraFile(const std::string& file, bool mustBeThere);

/// Puts a camera at the end of a file, which is made where there is none, and takes out one of its name where
/// it replaces that; all else in the file stays. A file with a password is its owner's alone from then on.
/// Raises `InputError`, with nothing changed.
void StoreCamera(const std::string& file, const NamedCamera& camera, bool replaces);
/// Takes a camera out of a file, whose comments stay. Raises `InputError`, with nothing changed.
void RemoveCamera(const std::string& file, const std::string& name);

}  // namespace ptzd
