// Toshiba cameras with fine positions: HTTP GET, replies of lines that begin with "20 OK". A position reply
// has a line for each axis, as "PAN (3858)".

#include "drivers/Toshiba2.h"

#include "common/Numbers.h"
#include "drivers/kit/CommandTable.h"
#include "transport/Split2DModule.h"

namespace ptzd {

namespace {

constexpr const char* PositionPath = "/api/wbgetptzposition.cgi";
constexpr const char* ZoomPath = "/api/wbsetzoom.cgi?type=Set&Zoom=";
constexpr const char* StorePath =
    "/api/wbsetptpreset.cgi?type=PresetNumber-64&PresetName=Quorvane&PanPosition=";
constexpr const char* StoreTiltParameter = "&TiltPosition=";
constexpr const char* RecallPath = "/api/wbpresetapi.cgi?cont_4=320";  // 256 and the preset's number

constexpr RequestStyle Style{
    .Failure = "Request failed.",
    .Accepts = [](std::string_view reply) { return reply.starts_with("20 OK"); },
};

// Camera units per degree. Tilt counts downwards.
constexpr double PanScale = 22.04571429;
constexpr double TiltScale = 21.80833333;
constexpr double LeftEnd = -175;  // degrees at unit 0
constexpr double UpperEnd = 30;   // degrees at unit 0

constexpr CommandRow<Zooms> ZoomCommands[] = {{ZoomIn, "Tele"}, {ZoomOut, "Wide"}};

}  // namespace

const DriverData Toshiba2::Data = {
    // The moves are made, their results are not passed on.
    .Move = MemberRule::FalseIfConnected,        .MoveTo = MemberRule::FalseIfConnected,
    .MoveBoth = MemberRule::FalseIfConnected,    .Zoom = MemberRule::OutcomeIfConnected,
    .ReadsPosition = PositionReading::OnConnect,
};

Toshiba2::Toshiba2(const Platform& platform) : HTTPDriver(platform, Style) {}

bool Toshiba2::Connect(std::span<const std::uint8_t> options) {
  OpenOptions(options);
  if (Options_.Text("Address").empty()) return false;
  const auto reply = Request(PositionPath);
  if (!reply) return false;
  ReadPosition(*reply);
  return Connected_ = true;
}

/// Keeps the position where the reply tells none. Raises 6 for one beyond 32 bits.
void Toshiba2::ReadPosition(std::string_view reply) {
  ReadOrKeepPosition([&] {
    auto pan = CurrentPan_, tilt = CurrentTilt_;
    for (const auto& [name, value] : Split2D(reply, "\r\n", " ")) {
      if (!value.starts_with('(') || !value.ends_with(')')) continue;
      const auto units = [&value = value] { return NumberFromText(value.substr(1, value.size() - 2)); };
      if (name == "PAN") pan = ToInt32(units() / PanScale + LeftEnd);
      if (name == "TILT") tilt = ToInt32(UpperEnd - units() / TiltScale);
    }
    CurrentPan_ = pan;
    CurrentTilt_ = tilt;
  });
}

bool Toshiba2::Move(Directions direction, float angle) {
  const auto step = StepOf(direction, angle);
  return MoveToPosition(CurrentPan_ + step.Pan, CurrentTilt_ + step.Tilt);
}

bool Toshiba2::MoveBoth(float panAngle, float tiltAngle) {
  return MoveToPosition(static_cast<double>(CurrentPan_) + panAngle,
                        static_cast<double>(CurrentTilt_) + tiltAngle);
}

bool Toshiba2::MoveTo(float pan, float tilt) { return MoveToPosition(pan, tilt); }

/// Stores and recalls, whatever the camera answers, and answers False in any case.
bool Toshiba2::MoveToPosition(double targetPan, double targetTilt) {
  if (!Connected_) return false;
  const auto pan = ToInt32(targetPan), tilt = ToInt32(targetTilt);
  const auto panUnits = ToInt32((pan - LeftEnd) * PanScale);
  const auto tiltUnits = ToInt32((UpperEnd - tilt) * TiltScale);
  Request(StorePath + Text(panUnits) + StoreTiltParameter + Text(tiltUnits));
  Request(RecallPath);
  CurrentPan_ = pan;
  CurrentTilt_ = tilt;
  return false;
}

bool Toshiba2::Zoom(Zooms zoomLevel) {
  const auto command = CommandFor(zoomLevel, ZoomCommands);
  return Connected_ && !command.empty() && Request(std::string(ZoomPath).append(command));
}

void Toshiba2::SetPanTilt(float pan, float tilt) {
  const auto roundedPan = ToInt32(pan), roundedTilt = ToInt32(tilt);
  CurrentPan_ = roundedPan;
  CurrentTilt_ = roundedTilt;
}

Variant Toshiba2::Disconnect() {
  Connected_ = false;
  return true;
}

}  // namespace ptzd
