// Elmo cameras with absolute pan, tilt and zoom: parameters over HTTP GET to a command page; another page
// tells the position in motor steps.

#include "drivers/Elmo400.h"

#include <algorithm>

#include <ptzd/Error.h>
#include <ptzd/Logging.h>
#include "common/Numbers.h"
#include "platform/CodePages.h"
#include "transport/StringEncoding.h"

namespace ptzd {

namespace {

// Motor steps per degree. Tilt counts downwards.
constexpr double PanScale = 53;
constexpr double TiltScale = -52;
constexpr double LeftEnd = -175;  // degrees at step 0
constexpr double UpperEnd = 16;   // degrees at step 0
constexpr std::int32_t LastPan = 18550;
constexpr std::int32_t LastTilt = 11024;

}  // namespace

Elmo400::Elmo400(const Platform& platform, const Dialect& dialect)
    : HTTPDriver(platform), Dialect_(dialect) {}

bool Elmo400::Connect(std::span<const std::uint8_t> options) {
  OpenOptions(options);
  if (Options_.Text("Address").empty()) return false;
  return Connected_ = ReadPosition();
}

Variant Elmo400::DeviceDisconnect() {
  Connected_ = false;
  return true;
}

/// A reply as text, nothing where the transport failed.
std::optional<std::string> Elmo400::Fetch(const std::string& path) {
  try {
    return DecodeBytes(Client_.GetResource(Url(path), "", ""), CodePage1252);
  } catch (const Error& error) {
    LogMessage("Request failed. " + error.Description());
    return std::nullopt;
  }
}

bool Elmo400::SendCommand(const std::string& parameters) {
  LogMessage("Requesting " + parameters);
  const auto reply = Fetch(Dialect_.CommandPath + parameters);
  if (!reply) return false;
  const bool accepted = Accepts(*reply);
  LogMessage((accepted ? "Request complete. " : "Request errored. ") + StatusOf(Client_).Line +
             " Reply: " + *reply);
  return accepted;
}

void Elmo400::RefreshPosition() {
  if (PositionAge_.IsDue(TickCount())) ReadPosition();
}

/// Whether the camera told where it looks. Raises 6 where it tells a position beyond 32 bits.
bool Elmo400::ReadPosition() {
  PositionAge_.Set(TickCount());
  PositionAge_.Asked();
  LogMessage("Requesting position");
  const auto reply = Fetch(Dialect_.PositionPath);
  if (!reply || StatusOf(Client_).Code != "200") return false;
  bool told = false;
  ReadOrKeepPosition([&] {
    const auto reading = Read(*reply);
    Store(reading);
    told = reading.Pan && reading.Tilt;
  });
  return told;
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

float Elmo400::Pan() { return ToSingle(Current_.Pan / PanScale + LeftEnd); }

float Elmo400::Tilt() { return ToSingle(Current_.Tilt / TiltScale + UpperEnd); }

bool Elmo400::DeviceMove(Directions direction, float angle) {
  const auto step = StepOf(direction, angle);
  return Step(PanScale * step.Pan, TiltScale * step.Tilt);
}

bool Elmo400::DeviceMoveBoth(float panAngle, float tiltAngle) {
  return Step(PanScale * panAngle, TiltScale * tiltAngle);
}

bool Elmo400::Step(double panSteps, double tiltSteps) {
  if (!Connected_) return false;
  RefreshPosition();
  return AbsoluteMove(Current_.Pan + panSteps, Current_.Tilt + tiltSteps, Current_.Zoom);
}

/// The move is made, its result is not passed on.
bool Elmo400::MoveTo(float pan, float tilt) {
  MoveTo(pan, tilt, Current_.Zoom);
  return false;
}

void Elmo400::MoveTo(float pan, float tilt, float zoom) {
  if (Connected_) AbsoluteMove(PanScale * (pan - LeftEnd), TiltScale * (tilt - UpperEnd), zoom);
}

bool Elmo400::Zoom(Zooms zoomLevel) { return ZoomBy(zoomLevel, ZoomStepAmount); }

void Elmo400::Zoom(Zooms direction, float amount) { ZoomBy(direction, amount); }

bool Elmo400::ZoomBy(Zooms direction, float amount) {
  if (!Connected_) return false;
  RefreshPosition();
  if (!IsZoomStep(direction)) return false;
  return AbsoluteMove(Current_.Pan, Current_.Tilt, Current_.Zoom + ZoomStepOf(direction, amount));
}

void Elmo400::ZoomTo(float zoom) {
  if (Connected_) AbsoluteMove(Current_.Pan, Current_.Tilt, zoom);
}

void Elmo400::SetPanTilt(float, float) { PositionAge_.Expire(); }

bool Elmo400::Home() { return Connected_ && Recall(Dialect_.HomeCommand); }

bool Elmo400::Recall(const std::string& parameters) {
  if (!SendCommand(parameters)) return false;
  PositionAge_.Expire();
  return true;
}

/// Sends all the commands, also behind one that the camera refused, and answers for the last of them.
bool Elmo400::AbsoluteMove(double pan, double tilt, float zoom) {
  const Position target{std::clamp(ToInt32(pan), 0, LastPan), std::clamp(ToInt32(tilt), 0, LastTilt),
                        zoom < 0 ? 0 : zoom};
  bool accepted = true;
  for (const auto& command : MoveCommands(target)) accepted = SendCommand(command);
  Current_ = target;
  return accepted;
}

}  // namespace ptzd
