#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "drivers/kit/HTTPDriver.h"
#include "drivers/kit/Options.h"
#include "drivers/kit/WithZoom.h"

namespace ptzd {

/// What the drivers of Elmo's cameras with absolute pan, tilt and zoom share, over HTTP.
///
/// Options: Address.
///
/// `Connect` answers False without an address and where the camera does not answer both pan and tilt with
/// status 200, since moves would start from a place it is not at; it raises 6 for a position beyond 32 bits.
///
/// Pan is -175 to 175 and tilt -196 to 16 degrees, in motor steps of 1/53 and 1/52 degree (the camera's
/// scales); targets beyond are clamped, those beyond 32 bits of steps raise 6. Zoom is 0 at the widest, below
/// 0 is 0; the tele end is the camera's own. `MoveTo` answers False always. Commands are counted as obeyed
/// whatever the camera answers, but for `Home` and presets, which are not counted at all.
///
/// The position is read on connecting and before a step, where 5 seconds have passed since or after
/// `SetPanTilt`, `Home` or a preset; a camera that tells none keeps the last one, and one beyond 32 bits
/// raises 6. There is no iris or focus.
class Elmo400 : public WithZoom<HTTPDriver> {
 public:
  float Pan() override;
  float Tilt() override;

 protected:
  struct Dialect {
    const char* CommandPath;  ///< what a command's parameters follow
    const char* PositionPath;
    const char* HomeCommand;
  };
  /// What a camera tells of its position, in motor steps and zoom levels.
  struct Reading {
    std::optional<double> Pan, Tilt, Zoom;
  };

  static constexpr ValueRange PanDegrees{-175, 175, "degrees", Beyond::Limited};
  static constexpr ValueRange TiltDegrees{-196, 16, "degrees", Beyond::Limited};
  static constexpr ValueRange ZoomLevels{.Least = 0, .Unit = "zoom levels"};
  static constexpr const DriverOption* Options[] = {&AddressOption};

  Elmo400(const DriverData& data, const Platform& platform, const Dialect& dialect);

  bool SendCommand(const std::string& parameters);
  /// Sends the head to a place that only the camera knows.
  bool Recall(const std::string& parameters);

 private:
  virtual bool Accepts(std::string_view reply) const = 0;
  /// The commands for a move to motor steps from the left and the upper end, in order; empty where none is
  /// needed. Raises 6 for a zoom beyond a single.
  virtual std::vector<std::string> MoveCommands(const HeadPosition& target) const = 0;
  /// Raises 13 where a number ought to be and is none.
  virtual Reading Read(const std::string& reply) const = 0;

  bool Open() final;
  bool GoTo(HeadPosition target) final;
  bool StepBy(double pan, double tilt) final;
  bool ZoomAt(double zoom) final;
  bool GoHome() final;
  void QueryPosition() final;

  bool GoToSteps(double pan, double tilt, double zoom);
  void Store(const Reading& reading);

  Dialect Dialect_;
  bool ToldPosition_ = false;  // both pan and tilt, when it was asked last
};

}  // namespace ptzd
