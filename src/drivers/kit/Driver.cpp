#include "drivers/kit/Driver.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>

#include "common/Numbers.h"
#include "drivers/kit/AddressLogins.h"
#include "drivers/kit/DriverErrors.h"
#include "drivers/kit/Options.h"
#include "drivers/kit/ReadingScope.h"

namespace ptzd {

namespace {

std::uint64_t NextDriverObject() {
  static std::atomic<std::uint64_t> last = 0;
  return ++last;
}

}  // namespace

Driver::Driver(const DriverData& data, const Platform& platform)
    : Data_(data),
      Platform_(platform),
      Subject_{data.Class, {}},
      Teller_(platform.Exchanges, data.Class, NextDriverObject()),
      PositionAge_(data.PositionLifetime) {}

bool Driver::Connect(std::span<const std::uint8_t> options) {
  Connected_ = false;
  LetGo();
  ForgetMotion();  // one that is held goes on behind a reconnect
  HasOptions_ = true;
  Options_ = {};
  Options_.Contents(options);
  TakeAddress();
  const LogScope scope(Subject_);
  ReadOptions();
  const bool needsAddress = std::ranges::find(Data_.Options, &AddressOption) != Data_.Options.end();
  if (needsAddress && AddressOption.In(Options_).empty()) {
    if (Data_.NoAddress) Raise(Data_.NoAddress->Number, std::string(Data_.NoAddress->Description));
    return false;
  }
  return Connected_ = Open();
}

void Driver::TakeAddress() {
  std::string address;
  try {
    address = AddressOption.In(Options_);
  } catch (const Error&) {
    // No text, so without a login; who needs the address raises that.
  }
  auto logins = LoginsOf(address);
  Subject_.Address = logins.empty() ? address : address.substr(address.rfind('@') + 1);
  Logins_.Set(std::move(logins));
}

Variant Driver::DeviceDisconnect() {
  const LogScope scope(Subject_);
  Release();
  Connected_ = false;
  return Data_.DisconnectAnswersTrue ? Variant(true) : Variant();
}

bool Driver::NeedsConnection(MemberRule rule) {
  return rule == MemberRule::OutcomeIfConnected || rule == MemberRule::SucceedsIfConnected ||
         rule == MemberRule::FailsIfConnected;
}

bool Driver::DeviceMove(Directions direction, float angle) {
  return Ruled(Data_.Move, [&] {
    const auto step = Data_.OppositesCancel ? CancellingStepOf(direction, angle) : StepOf(direction, angle);
    const auto pan = ToSingle(step.Pan), tilt = ToSingle(step.Tilt);  // before the camera is asked
    RefreshFor(AsksBeforeMove);
    return StepBy(pan, tilt);
  });
}

bool Driver::DeviceMoveBoth(float panAngle, float tiltAngle) {
  return Ruled(Data_.MoveBoth, [&] {
    const auto pan = ToSingle(panAngle), tilt = ToSingle(tiltAngle);
    RefreshFor(AsksBeforeMove);
    return StepBy(pan, tilt);
  });
}

bool Driver::StepBy(double pan, double tilt) {
  return GoTo({Current_.Pan + pan, Current_.Tilt + tilt, Current_.Zoom});
}

bool Driver::MoveTo(float pan, float tilt) {
  return Ruled(Data_.MoveTo, [&] {
    RefreshFor(AsksBeforeMoveTo);
    return GoTo({pan, tilt, Current_.Zoom});
  });
}

bool Driver::MoveToPlace(float pan, float tilt, float zoom) {
  return Ruled(Data_.MoveTo, [&] {
    RefreshFor(AsksBeforeMoveTo);
    return GoTo({pan, tilt, zoom});
  });
}

bool Driver::Zoom(Zooms zoomLevel) { return ZoomStep(zoomLevel, ZoomStepAmount); }

bool Driver::ZoomStep(Zooms direction, float amount) {
  return Ruled(Data_.Zoom, [&] {
    ToSingle(ZoomStepOf(direction, amount));
    RefreshFor(AsksBeforeZoom);
    return (IsZoomStep(direction) || Data_.SendsEmptyZooms) && ZoomBy(direction, amount);
  });
}

bool Driver::ZoomBy(Zooms direction, float amount) {
  return ZoomAt(ToSingle(Current_.Zoom + ZoomStepOf(direction, amount)));
}

bool Driver::ZoomTarget(float zoom) {
  return Ruled(Data_.Zoom, [&] {
    RefreshFor(AsksBeforeZoomTo);
    return ZoomAt(zoom);
  });
}

bool Driver::Iris(ptzd::Iris irisLevel) {
  return Ruled(Data_.Iris, [&] { return SetIris(irisLevel); });
}

bool Driver::Focus(ptzd::Focus focusLevel) {
  return Ruled(Data_.Focus, [&] { return SetFocus(focusLevel); });
}

bool Driver::PresetGoto(std::int32_t preset) {
  return Ruled(Data_.PresetGoto, [&] { return GoToPreset(preset); });
}

bool Driver::PresetSave(std::int32_t preset) {
  return Ruled(Data_.PresetSave, [&] { return SavePreset(preset); });
}

bool Driver::Home() {
  return Ruled(Data_.Home, [&] { return GoHome(); });
}

void Driver::SetPanTilt(float pan, float tilt) {
  const auto rule = Data_.SetPanTilt;
  const bool ifConnected = rule == PlaceRule::TakenIfConnected || rule == PlaceRule::AsksAnewIfConnected;
  if (rule == PlaceRule::Ignored || (ifConnected && !Connected_)) return;
  if (rule == PlaceRule::AsksAnew || rule == PlaceRule::AsksAnewIfConnected)
    PositionAge_.Expire();  // the camera knows better
  else
    TakePlace(pan, tilt);
}

void Driver::TakePlace(float pan, float tilt) {
  const double newPan = ToSingle(pan), newTilt = ToSingle(tilt);
  Current_.Pan = newPan;
  Current_.Tilt = newTilt;
}

float Driver::Answer(double HeadPosition::*axis) {
  RefreshFor(AsksBeforeAnswer);
  return ToSingle(Current_.*axis);
}

void Driver::Refresh() {
  if (PositionAge_.IsDue(TickCount())) ReadPosition();
}

Driver::TellingAxes Driver::AskPosition() {
  const auto known = Current_;
  constexpr auto untold = std::numeric_limits<double>::quiet_NaN();
  Current_ = {untold, untold, untold};  // what is not told stays so
  const auto told = [this, &known] {
    const TellingAxes axes{!std::isnan(Current_.Pan), !std::isnan(Current_.Tilt), !std::isnan(Current_.Zoom)};
    if (!axes.Pan) Current_.Pan = known.Pan;
    if (!axes.Tilt) Current_.Tilt = known.Tilt;
    if (!axes.Zoom) Current_.Zoom = known.Zoom;
    return axes;
  };
  try {
    ReadPosition();
  } catch (...) {
    told();
    throw;
  }
  return told();
}

void Driver::ReadPosition() {
  const LogScope scope(Subject_);
  const ReadingScope reading;
  PositionAge_.Asked();
  // From the end of the wait: a camera that is away is not waited for again at once.
  try {
    QueryPosition();
  } catch (...) {
    PositionAge_.Set(TickCount());
    throw;
  }
  PositionAge_.Set(TickCount());
}

}  // namespace ptzd
