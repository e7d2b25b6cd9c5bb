// Panasonic i-Pro cameras: HTTP GET, accepted by status 204 or 200; replies are lines of "KEY=value", the
// values of positions ended by "&nbsp;" or "&nbsp". Positions are tenths of a degree and of the
// magnification. Most models count pan from its left end and tilt downwards, some have signed angles.

#include "drivers/PanasoniciPro.h"

#include <algorithm>

#include "common/Numbers.h"
#include "contract/PTZErrors.h"
#include "drivers/PanasonicName.h"
#include "platform/LetterCase.h"
#include "transport/Split2DModule.h"

namespace ptzd {

namespace {

constexpr RequestStyle Style{
    .Announcement = "Sending: ",
    .Completion = "Received: ",
    .Failure = "",
    .AcceptsStatus = [](std::string_view code) { return code == "204" || code == "200"; },
};

constexpr std::string_view InformationPage = "/cgi-bin/getinfo?";
constexpr std::string_view PositionPage = "/cgi-bin/absget?";
constexpr std::string_view ControlPage = "/cgi-bin/absctrl?";
constexpr std::string_view ChannelParameter = "ch=";

constexpr double Units = 10;     // of a degree, and of the magnification
constexpr double ZoomSteps = 4;  // of the magnification, when it is read

std::vector<Row> Rows(std::string_view reply) { return Split2D(reply, "\r\n", "="); }

std::string UnitsText(float value) { return Text(ToSingle(value * Units)); }

}  // namespace

struct PanasoniciPro::Model {
  struct Range {
    float Min, Max;  // degrees
    float Clamp(float value) const { return std::clamp(value, Min, Max); }
  };

  std::string_view Name;
  Range Pan, Tilt;
  bool SignedAngles = false;  // pan from the middle and tilt upwards; else from the left end, and downwards

  bool IsEndless() const { return Pan.Min == -180 && Pan.Max == 180; }
  float PanOrigin() const { return SignedAngles ? 0 : Pan.Min; }
  /// The camera's tilt of a tilt, and the other way round; never -0.
  double Upright(double tilt) const { return SignedAngles ? tilt : 0 - tilt; }

  /// On an endless head one turn is enough; beyond that the camera is left to judge.
  float LimitPan(float pan) const {
    if (!IsEndless()) return Pan.Clamp(pan);
    return pan < -180 ? ToSingle(pan + 360.0) : pan > 180 ? ToSingle(pan - 360.0) : pan;
  }

  static const Model* Find(std::string_view name);
};

const PanasoniciPro::Model* PanasoniciPro::Model::Find(std::string_view name) {
  static constexpr Model table[] = {
      {"WV-NS202", {-175, 175}, {-90, 30}},
      {"WV-NS202A", {-175, 175}, {-90, 30}},
      {"WV-NS950", {-180, 180}, {-90, 5}},
      {"WV-NS954", {-180, 180}, {-90, 5}},
      {"WV-NW960", {-180, 180}, {-90, 5}},
      {"WV-NW964", {-180, 180}, {-90, 5}},
      {"WV-SC384", {-175, 175}, {-90, 30}},
      {"WV-SC385", {-175, 175}, {-90, 30}},
      {"WV-SW395", {-175, 175}, {-90, 30}},
      {"WV-SW396", {-180, 180}, {-90, 0}},
      {"WV-SW598", {-180, 180}, {-90, 0}},
      {"WV-SC588", {-180, 180}, {-90, 0}},
      {"WV-SW174W", {-47.5F, 47.5F}, {-45, 10}, true},
      {"WV-SW175", {-47.5F, 47.5F}, {-45, 10}, true},
      {"BL-VT164", {-41, 41}, {-32, 10}, true},
      {"BL-VT164W", {-41, 41}, {-32, 10}, true},
  };
  const auto* found = std::ranges::find(table, name, &Model::Name);
  return found == std::end(table) ? nullptr : found;
}

const DriverData PanasoniciPro::Data = {
    .Move = MemberRule::Outcome,
    .MoveTo = MemberRule::False,  // the move is made, its result is not passed on
    .MoveBoth = MemberRule::Outcome,
    .Zoom = MemberRule::Outcome,
    .DisconnectAnswersTrue = true,
    .ReadsPosition = PositionReading::BeforeSteps,
    .SharedOptions = SharesAddress | SharesPort | SharesReset,
    .NoAddress = DriverData::Failure{PTZErrorNoAddressSpecified, "No camera address specified."},
};

PanasoniciPro::PanasoniciPro(const Platform& platform) : HTTPDriver(platform, Style) {}

Capabilities PanasoniciPro::Capabilities() {
  return CapabilityPan | CapabilityTilt | CapabilityFullZoom | CapabilityMultiport;
}

bool PanasoniciPro::Connect(std::span<const std::uint8_t> options) {
  OpenOptions(options);
  RequireAddress(Options_, Data);

  const auto information = Send(InformationPage, "FILE=1");
  if (!information || information->empty())
    Raise(PTZErrorConnectionFailed, "Unable to get the camera information.");
  std::string name;
  for (const auto& [key, value] : Rows(*information))
    if (LowerCase(key) == "name") name = value;
  Model_ = Model::Find(UpperCaseName(name));
  if (Model_ == nullptr)
    Raise(PTZErrorUnrecognisedDevice,
          "The Panasonic iPro " + name + " is not currently recognised by Quorvane.");

  QueryPosition();
  if (Options_.Boolean("Reset", false)) GoTo(0, 0, CurrentZoom_);
  Connected_ = true;
  return true;
}

std::optional<std::string> PanasoniciPro::Send(std::string_view page, std::string_view parameters) {
  return Request(CommandPath(page, ChannelParameter, parameters));
}

bool PanasoniciPro::DeviceMove(Directions direction, float angle) {
  const auto step = StepOf(direction, angle);
  return Step(step.Pan, step.Tilt);
}

bool PanasoniciPro::DeviceMoveBoth(float panAngle, float tiltAngle) { return Step(panAngle, tiltAngle); }

bool PanasoniciPro::Step(double panAngle, double tiltAngle) {
  const auto pan = ToSingle(panAngle), tilt = ToSingle(tiltAngle);  // no question for what is no number
  RefreshPosition();
  return GoTo(static_cast<double>(CurrentPan_) + pan, static_cast<double>(CurrentTilt_) + tilt, CurrentZoom_);
}

bool PanasoniciPro::MoveTo(float pan, float tilt) {
  MoveTo(pan, tilt, CurrentZoom_);
  return false;
}

void PanasoniciPro::MoveTo(float pan, float tilt, float zoom) { GoTo(pan, tilt, zoom); }

bool PanasoniciPro::Zoom(Zooms zoomLevel) { return StepZoom(zoomLevel, ZoomStepAmount); }

void PanasoniciPro::Zoom(Zooms direction, float amount) { StepZoom(direction, amount); }

bool PanasoniciPro::StepZoom(Zooms direction, float amount) {
  const auto step = ToSingle(ZoomStepOf(direction, amount));
  RefreshPosition();
  if (direction != ZoomIn && direction != ZoomOut) return false;
  return GoTo(CurrentPan_, CurrentTilt_, static_cast<double>(CurrentZoom_) + step);
}

void PanasoniciPro::ZoomTo(float zoom) { GoTo(CurrentPan_, CurrentTilt_, zoom); }

void PanasoniciPro::SetPanTilt(float, float) { PositionAge_.Expire(); }  // the camera knows better

Variant PanasoniciPro::DeviceDisconnect() {
  Connected_ = false;
  return true;
}

bool PanasoniciPro::GoTo(double targetPan, double targetTilt, double targetZoom) {
  if (Model_ == nullptr) return false;
  const auto pan = Model_->LimitPan(ToSingle(targetPan));
  const auto tilt = Model_->Tilt.Clamp(ToSingle(targetTilt));
  const auto zoom = std::max(ToSingle(targetZoom), 0.0F);

  std::string parameters;
  if (pan != CurrentPan_ || tilt != CurrentTilt_)
    parameters = "pan=" + UnitsText(ToSingle(static_cast<double>(pan) - Model_->PanOrigin())) +
                 "&tilt=" + UnitsText(ToSingle(Model_->Upright(tilt)));
  if (zoom != CurrentZoom_)
    parameters += (parameters.empty() ? "zoom=" : "&zoom=") + UnitsText(ToSingle(zoom + 1.0));
  if (!parameters.empty() && !Send(ControlPage, parameters)) return false;

  CurrentPan_ = pan;
  CurrentTilt_ = tilt;
  CurrentZoom_ = zoom;
  PositionAge_.Set(TickCount());
  return true;
}

/// Without a model the camera's numbers mean nothing.
void PanasoniciPro::RefreshPosition() {
  if (Model_ != nullptr && PositionAge_.IsDue(TickCount())) QueryPosition();
}

/// The camera counts as asked even where it does not answer, and is left alone for a while.
void PanasoniciPro::QueryPosition() {
  PositionAge_.Set(TickCount());
  PositionAge_.Asked();
  const auto reply = Send(PositionPage, "");
  if (!reply) return;
  auto pan = CurrentPan_, tilt = CurrentTilt_, zoom = CurrentZoom_;
  for (const auto& [field, value] : Rows(*reply)) {
    const auto key = LowerCase(field);
    // `Val` ends before the blank that stands, in one form or the other, behind the number.
    if (key == "pan") pan = ToSingle(Val(value) / Units + Model_->PanOrigin());
    if (key == "tilt") tilt = ToSingle(Model_->Upright(Val(value) / Units));
    if (key == "zoom") zoom = ToSingle(Int((Val(value) / Units - 1) * ZoomSteps + 0.5) / ZoomSteps);
  }
  CurrentPan_ = pan;
  CurrentTilt_ = tilt;
  CurrentZoom_ = zoom;
}

}  // namespace ptzd
