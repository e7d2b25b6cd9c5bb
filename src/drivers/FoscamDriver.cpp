// Foscam cameras: HTTP GET of a command with parameters. Any reply is taken for success.

#include "drivers/FoscamDriver.h"

#include <algorithm>

#include "common/DirectionCalculator.h"
#include "common/Numbers.h"
#include "drivers/kit/DriverErrors.h"

namespace ptzd {

namespace {

constexpr std::int32_t Presets = 16;

}  // namespace

FoscamDriver::FoscamDriver(const Platform& platform, const DriverData& data, const CommandSet& commands)
    : HTTPDriver(platform, SendingStyle), Data_(data), Commands_(commands) {}

bool FoscamDriver::Connect(std::span<const std::uint8_t> options) {
  OpenOptions(options);
  RequireAddress(Options_, Data_);
  SetUp();
  Connected_ = true;
  return true;
}

Variant FoscamDriver::Disconnect() {
  Connected_ = false;
  return true;
}

FoscamDriver::Heading FoscamDriver::HeadingOf(float pan, float tilt) {
  Heading heading;
  heading.Direction = CalculateDirection(pan, tilt, true, heading.Amount);
  heading.Amount = ToSingle(heading.Amount);
  return heading;
}

FoscamDriver::Difference FoscamDriver::DifferenceTo(float pan, float tilt) const {
  return {ToSingle(static_cast<double>(pan) - CurrentPan_),
          ToSingle(static_cast<double>(tilt) - CurrentTilt_)};
}

void FoscamDriver::StorePosition(float pan, float tilt) {
  CurrentPan_ = pan;
  CurrentTilt_ = tilt;
}

bool FoscamDriver::SendCommand(std::string_view command, std::string_view parameters) {
  std::string path(Commands_.Path);
  path.append(command);
  if (!parameters.empty()) path.append("&").append(parameters);
  return Request(path + Credentials()).has_value();
}

bool FoscamDriver::SendDirection(std::int32_t direction, std::string_view parameters) {
  return SendCommand(std::ranges::find(Commands_.Directions, direction, &DirectionRow::Direction)->Command,
                     parameters);
}

void FoscamDriver::SendContinuous(std::int32_t direction) {
  if (LastMove_.Replace(Text(direction), direction == 0)) SendDirection(direction);
}

bool FoscamDriver::Move(Directions direction, float angle) {
  const auto step = CancellingStepOf(direction, angle);
  return MoveToPosition(ToSingle(CurrentPan_ + step.Pan), ToSingle(CurrentTilt_ + step.Tilt));
}

bool FoscamDriver::MoveBoth(float panAngle, float tiltAngle) {
  return MoveToPosition(ToSingle(static_cast<double>(CurrentPan_) + panAngle),
                        ToSingle(static_cast<double>(CurrentTilt_) + tiltAngle));
}

bool FoscamDriver::MoveTo(float pan, float tilt) { return Connected_ && MoveToPosition(pan, tilt); }

std::int32_t FoscamDriver::PresetCount() { return Presets; }

}  // namespace ptzd
