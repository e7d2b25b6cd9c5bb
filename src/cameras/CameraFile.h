#pragma once

#include <string>
#include <vector>

#include "cameras/NamedCamera.h"

namespace ptzd {

/// Raises `InputError` for what is no name of a camera: letters, digits, "-", "_" and "." are, of which the
/// first is a letter or a digit.
void CheckCameraName(const std::string& name);

/// The cameras of a text in TOML. `file` is its name, in texts and as where secret files are looked for;
/// passwords may stand in it unless `openness` tells why others may read it. Raises `InputError` with file,
/// line, column, and what was expected there.
std::vector<NamedCamera> ReadCameras(const std::string& text, const std::string& file,
                                     const std::string& openness = {});

}  // namespace ptzd
