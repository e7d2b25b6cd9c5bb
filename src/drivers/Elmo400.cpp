// Elmo cameras with absolute pan, tilt and zoom: parameters over HTTP GET to a command page; another page
// tells the position in motor steps.

#include "drivers/Elmo400.h"

#include <algorithm>

#include <ptzd/Logging.h>
#include "common/Numbers.h"

namespace ptzd {

namespace {

// Motor steps per degree. Tilt counts downwards.
constexpr double PanScale = 53;
constexpr double TiltScale = -52;
constexpr double LeftEnd = -175;  // degrees at step 0
constexpr double UpperEnd = 16;   // degrees at step 0
constexpr std::int32_t LastPan = 18550;
constexpr std::int32_t LastTilt = 11024;

// Commands and verdicts are logged here, in words of the make's own.
constexpr RequestStyle Style{.Announcement = "", .Completion = ""};

}  // namespace

Elmo400::Elmo400(const DriverData& data, const Platform& platform, const Dialect& dialect)
    : WithZoom(data, platform, Style), Dialect_(dialect) {}

bool Elmo400::Open() {
  ReadPosition();
  return ToldPosition_;
}

bool Elmo400::GoTo(HeadPosition target) {
  return GoToSteps(PanScale * (target.Pan - LeftEnd), TiltScale * (target.Tilt - UpperEnd), target.Zoom);
}

bool Elmo400::StepBy(double pan, double tilt) {
  return GoToSteps(Current_.Pan + PanScale * pan, Current_.Tilt + TiltScale * tilt, Current_.Zoom);
}

bool Elmo400::ZoomAt(double zoom) { return GoToSteps(Current_.Pan, Current_.Tilt, zoom); }

/// Sends all the commands, also behind one that the camera refused, and answers for the last of them.
bool Elmo400::GoToSteps(double pan, double tilt, double zoom) {
  const HeadPosition target{0.0 + std::clamp(ToInt32(pan), 0, LastPan),
                            0.0 + std::clamp(ToInt32(tilt), 0, LastTilt), std::max(zoom, 0.0)};
  bool accepted = true;
  for (const auto& command : MoveCommands(target)) accepted = SendCommand(command);
  Current_ = target;
  return accepted;
}

bool Elmo400::GoHome() { return Recall(Dialect_.HomeCommand); }

float Elmo400::Pan() { return ToSingle(Current_.Pan / PanScale + LeftEnd); }

float Elmo400::Tilt() { return ToSingle(Current_.Tilt / TiltScale + UpperEnd); }

/// Raises 6 where the camera tells a position beyond 32 bits.
void Elmo400::QueryPosition() {
  ToldPosition_ = false;
  LogMessage("Requesting position");
  const auto reply = Fetch(Dialect_.PositionPath);
  if (reply.Failure || Status().Code != "200") return;
  ReadOrKeepPosition([&] {
    const auto reading = Read(reply.Text);
    Store(reading);
    ToldPosition_ = reading.Pan && reading.Tilt;
  });
}

void Elmo400::Store(const Reading& reading) {
  auto position = Current_;
  if (reading.Pan) position.Pan = ToInt32(*reading.Pan);
  if (reading.Tilt) position.Tilt = ToInt32(*reading.Tilt);
  if (reading.Zoom) position.Zoom = NearestQuarter(ToSingle(*reading.Zoom));
  if (reading.Pan) LogMessage("Setting pan position to " + Text(position.Pan));
  if (reading.Tilt) LogMessage("Setting tilt position to " + Text(position.Tilt));
  if (reading.Zoom) LogMessage("Setting zoom level to " + Text(position.Zoom));
  Current_ = position;
}

bool Elmo400::SendCommand(const std::string& parameters) {
  LogMessage("Requesting " + parameters);
  const auto reply = Fetch(Dialect_.CommandPath + parameters);
  if (reply.Failure) return false;
  const bool accepted = Accepts(reply.Text);
  LogMessage((accepted ? "Request complete. " : "Request errored. ") + Status().Line +
             " Reply: " + reply.Text);
  return accepted;
}

bool Elmo400::Recall(const std::string& parameters) {
  if (!SendCommand(parameters)) return false;
  PositionAge_.Expire();
  return true;
}

}  // namespace ptzd
