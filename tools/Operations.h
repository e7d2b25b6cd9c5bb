#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include <ptzd/Enumerations.h>
#include "Camera.h"
#include "Outcome.h"

namespace ptzctl {

/// What stands behind an operation's name on the command line. Of absent ones the interface's own default is
/// taken.
struct Arguments {
  ptzd::Directions Direction{};
  ptzd::Zooms ZoomDirection{};
  ptzd::Iris IrisLevel{};
  ptzd::Focus FocusLevel{};
  float Pan = 0, Tilt = 0, Amount = 0;
  std::optional<float> Angle, ZoomAmount, Zoom;
  std::int32_t Preset = 0;
  std::string ID;
  std::int32_t X = 0, Y = 0, Width = 0, Height = 0;
  std::optional<std::chrono::milliseconds> Duration;
  bool Device2 = false;  ///< call the member of `PTZDevice2` where `PTZDevice` has one of that name too
};

// Without a connection.
Outcome ListDrivers();
Outcome ListOptions(const ptzd::DriverClass& driver);

// On a camera. Each carries out one member of an interface and judges it: by its answer where the driver
// passes that on, otherwise by whether a request failed. None of them throws for what a driver raises.
Outcome Info(Camera& camera, const Arguments&);
Outcome ShowPosition(Camera& camera, const Arguments&);
Outcome ShowConnected(Camera& camera, const Arguments&);
Outcome Connect(Camera& camera, const Arguments& arguments);
Outcome Disconnect(Camera& camera, const Arguments& arguments);
Outcome Move(Camera& camera, const Arguments& arguments);
Outcome MoveBy(Camera& camera, const Arguments& arguments);
Outcome MoveTo(Camera& camera, const Arguments& arguments);
Outcome Zoom(Camera& camera, const Arguments& arguments);
Outcome ZoomTo(Camera& camera, const Arguments& arguments);
Outcome Iris(Camera& camera, const Arguments& arguments);
Outcome Focus(Camera& camera, const Arguments& arguments);
Outcome Home(Camera& camera, const Arguments&);
Outcome SetPosition(Camera& camera, const Arguments& arguments);
Outcome PresetCount(Camera& camera, const Arguments&);
Outcome PresetGoto(Camera& camera, const Arguments& arguments);
Outcome PresetSave(Camera& camera, const Arguments& arguments);
Outcome PresetList(Camera& camera, const Arguments&);
Outcome PresetGotoNamed(Camera& camera, const Arguments& arguments);
Outcome MoveInImage(Camera& camera, const Arguments& arguments);

/// Continuous motion; with a duration it is always stopped again, also when interrupted.
Outcome Continuous(Camera& camera, const Arguments& arguments);
Outcome ContinuousZoom(Camera& camera, const Arguments& arguments);
Outcome Stop(Camera& camera, const Arguments&);

/// Lets time pass between two operations.
Outcome Wait(Camera& camera, const Arguments& arguments);

}  // namespace ptzctl
