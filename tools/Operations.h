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
  std::string PresetName;  ///< instead of the number; the camera has one of that name
  std::string ID;
  std::int32_t X = 0, Y = 0, Width = 0, Height = 0;
  std::optional<std::chrono::milliseconds> Duration;
  std::optional<std::chrono::milliseconds> Wait;  ///< until at rest, at most so long
  bool Leave = false;                             ///< a motion goes on when ptzctl has ended
  bool Device2 = false;  ///< call the member of `PTZDevice2` where `PTZDevice` has one of that name too
};

// Without a connection.
Outcome ListDrivers();
Outcome ListOptions(const ptzd::DriverClass& driver);

// On a camera. Each carries out one member of an interface. Raise `Interrupted` where ptzctl is to end and
// the camera need not be stopped; what a driver raises is told in the outcome.
Outcome Info(Camera& camera, const Arguments&);
Outcome ShowPosition(Camera& camera, const Arguments&);
Outcome ShowConnected(Camera& camera, const Arguments&);
/// Tells the position whenever it is another, for a time or without end.
Outcome Watch(Camera& camera, const Arguments& arguments);
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

/// Continuous motion. With a duration it is over when this is; else it goes on, see `Camera::Drive`.
Outcome Continuous(Camera& camera, const Arguments& arguments);
Outcome ContinuousZoom(Camera& camera, const Arguments& arguments);
Outcome Stop(Camera& camera, const Arguments&);

/// Lets time pass between two operations.
Outcome Wait(Camera& camera, const Arguments& arguments);

}  // namespace ptzctl
