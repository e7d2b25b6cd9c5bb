#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include <ptzd/DriverData.h>
#include <ptzd/PTZDevice.h>
#include <ptzd/PTZOptions.h>
#include "drivers/kit/ContinuousDriver.h"
#include "drivers/kit/HTTPDriver.h"

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
class FoscamDriver : public PTZDevice, public ContinuousDriver, public TabledOptions, protected HTTPDriver {
 public:
  [[nodiscard]] bool Connect(std::span<const std::uint8_t> options) override;
  bool Connected() override { return Connected_; }
  float Pan() override { return CurrentPan_; }
  float Tilt() override { return CurrentTilt_; }
  bool Move(Directions direction, float angle = 5) override;
  bool MoveTo(float pan, float tilt) override;
  bool MoveBoth(float panAngle, float tiltAngle) override;
  std::int32_t PresetCount() override;
  Variant Disconnect() override;

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

  FoscamDriver(const Platform& platform, const DriverData& data, const CommandSet& commands);

  /// Raises 6 where a speed or their sum is no number.
  static Heading HeadingOf(float pan, float tilt);
  /// From where the camera is thought to look.
  Difference DifferenceTo(float pan, float tilt) const;
  void StorePosition(float pan, float tilt);

  bool SendCommand(std::string_view command, std::string_view parameters = {});
  bool SendDirection(std::int32_t direction, std::string_view parameters = {});
  /// Not where it repeats the last; a stop always. What was sent is the last, whatever came of it.
  void SendContinuous(std::int32_t direction);

  /// Makes ready for the camera that the options name.
  virtual void SetUp() {}
  /// What every request carries behind its parameters, with "&" in front.
  virtual std::string Credentials() const { return {}; }
  virtual bool MoveToPosition(float pan, float tilt) = 0;

 private:
  const DriverData& Data_;
  const CommandSet& Commands_;
  float CurrentPan_ = 0;   // degrees
  float CurrentTilt_ = 0;  // degrees
};

}  // namespace ptzd
