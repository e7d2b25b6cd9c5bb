#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "drivers/kit/ContinuousDriver.h"
#include "drivers/kit/HTTPDriver.h"
#include "drivers/kit/Options.h"

namespace ptzd {

/// What the generations of Foscam cameras share. They neither tell nor take a position: the driver keeps one
/// of its own, which survives reconnecting, and makes of every move one in the nearest of eight directions.
/// The position follows what was asked for, not what a diagonal made of it.
///
/// Options: Address.
///
/// `Connect` raises 17003 without an address. It sends nothing, so an unreachable camera is only noticed by
/// the first movement.
///
/// Targets and speeds that are no numbers or do not fit a single raise 6 before anything is sent, and so do
/// preset numbers beyond 32 bits as the camera counts. There are 16 numbered presets, and no zoom, iris or
/// focus. Only `MoveTo` needs a connection.
class FoscamDriver : public HTTPDriver, public ContinuousDriver, public DescribedOptions {
 protected:
  /// A direction, or 0 for none, and how far or how fast in it.
  struct Heading {
    std::int32_t Direction = 0;
    float Amount = 0;
  };
  struct DirectionRow {
    std::int32_t Direction;
    std::string_view Command;
  };
  /// How a generation is told what to do.
  struct CommandSet {
    std::string_view Path;                   ///< what stands before a command
    std::array<DirectionRow, 9> Directions;  ///< none of them is the stop
  };
  struct Difference {
    float Pan, Tilt;
  };

  FoscamDriver(const DriverData& data, const Platform& platform, const CommandSet& commands);

  /// Raises 6 where a speed or their sum is no number.
  static Heading HeadingOf(float pan, float tilt);
  /// From where the camera is thought to look.
  Difference DifferenceTo(const HeadPosition& target) const;

  bool SendCommand(std::string_view command, std::string_view parameters = {});
  bool SendDirection(std::int32_t direction, std::string_view parameters = {});
  /// Not where it repeats the last; a stop always. What was sent is the last, whatever came of it.
  void SendContinuous(std::int32_t direction);

  /// What every request carries behind its parameters, with "&" in front.
  virtual std::string Credentials() const { return {}; }

  /// Takes the camera as it is; the first movement shows whether it is there.
  bool Open() override { return true; }

 private:
  const CommandSet& Commands_;
};

}  // namespace ptzd
