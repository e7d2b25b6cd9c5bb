#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "drivers/kit/DeviceBridge.h"
#include "drivers/kit/HTTPDriver.h"
#include "drivers/kit/PositionAge.h"

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
class Elmo400 : public DualDevice, protected HTTPDriver {
 public:
  ptzd::Capabilities Capabilities() override { return Dialect_.Flags; }
  [[nodiscard]] bool Connect(std::span<const std::uint8_t> options) override;
  bool Connected() override { return Connected_; }
  float Pan() override;
  float Tilt() override;
  float ZoomLevel() override { return Current_.Zoom; }

  bool MoveTo(float pan, float tilt) override;
  void MoveTo(float pan, float tilt, float zoom) override;
  bool Zoom(Zooms zoomLevel) override;
  void Zoom(Zooms direction, float amount) override;
  void ZoomTo(float zoom) override;
  /// Has the position read anew before the next step; looks at no argument.
  void SetPanTilt(float pan, float tilt) override;
  bool Home() override;

 protected:
  struct Dialect {
    ptzd::Capabilities Flags;
    const char* CommandPath;  ///< what a command's parameters follow
    const char* PositionPath;
    const char* HomeCommand;
  };
  struct Position {
    std::int32_t Pan = 0;   // motor steps from the left end
    std::int32_t Tilt = 0;  // motor steps down from the upper end
    float Zoom = 0;
  };
  /// What a camera tells of its position, in the units of `Position`.
  struct Reading {
    std::optional<double> Pan, Tilt, Zoom;
  };

  Elmo400(const Platform& platform, const Dialect& dialect);

  /// The position last read or sent.
  const Position& Current() const { return Current_; }
  bool SendCommand(const std::string& parameters);
  /// Sends the head to a place that only the camera knows.
  bool Recall(const std::string& parameters);

 private:
  virtual bool Accepts(std::string_view reply) const = 0;
  /// The commands for a move, in order; empty where none is needed. Raises 6 for a zoom beyond a single.
  virtual std::vector<std::string> MoveCommands(const Position& target) const = 0;
  /// Raises 13 where a number ought to be and is none.
  virtual Reading Read(const std::string& reply) const = 0;

  bool DeviceMove(Directions direction, float angle) final;
  bool DeviceMoveBoth(float panAngle, float tiltAngle) final;
  Variant DeviceDisconnect() final;

  std::optional<std::string> Fetch(const std::string& path);
  void RefreshPosition();
  bool ReadPosition();
  void Store(const Reading& reading);
  bool Step(double panSteps, double tiltSteps);
  bool ZoomBy(Zooms direction, float amount);
  bool AbsoluteMove(double pan, double tilt, float zoom);

  Dialect Dialect_;
  Position Current_;
  PositionAge PositionAge_;
};

}  // namespace ptzd
