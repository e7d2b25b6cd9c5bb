// Foscam cameras: HTTP GET of a command with parameters. Any reply is taken for success.

#include "drivers/FoscamDriver.h"

#include <algorithm>

#include "common/DirectionCalculator.h"
#include "common/Numbers.h"

namespace ptzd {

FoscamDriver::FoscamDriver(const DriverData& data, const Platform& platform, const CommandSet& commands)
    : HTTPDriver(data, platform, SendingStyle),
      ContinuousDriver(data),
      DescribedOptions(data),
      Commands_(commands) {}

FoscamDriver::Heading FoscamDriver::HeadingOf(float pan, float tilt) {
  Heading heading;
  heading.Direction = CalculateDirection(pan, tilt, true, heading.Amount);
  heading.Amount = ToSingle(heading.Amount);
  return heading;
}

FoscamDriver::Difference FoscamDriver::DifferenceTo(const HeadPosition& target) const {
  return {ToSingle(target.Pan - Current_.Pan), ToSingle(target.Tilt - Current_.Tilt)};
}

void FoscamDriver::SendContinuous(std::int32_t direction) {
  if (LastMove_.Replace(Text(direction), direction == 0)) SendDirection(direction);
}

bool FoscamDriver::SendDirection(std::int32_t direction, std::string_view parameters) {
  return SendCommand(std::ranges::find(Commands_.Directions, direction, &DirectionRow::Direction)->Command,
                     parameters);
}

bool FoscamDriver::SendCommand(std::string_view command, std::string_view parameters) {
  std::string path(Commands_.Path);
  path.append(command);
  if (!parameters.empty()) path.append("&").append(parameters);
  return Request(path + Credentials()).has_value();
}

}  // namespace ptzd
