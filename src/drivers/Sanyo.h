#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include <ptzd/DriverData.h>
#include <ptzd/PTZDevice.h>
#include <ptzd/PTZOptions.h>
#include "drivers/kit/ContinuousDriver.h"
#include "drivers/kit/HTTPDriver.h"
#include "drivers/kit/PositionAge.h"

namespace ptzd {

/// Sanyo network cameras (`QVPTZ.Sanyo`), over HTTP in a session.
///
/// Options: Address.
///
/// `Connect` opens the camera's session and reads the position. It raises 17001 without an address,
/// `HTTPClient`'s numbers where the camera does not answer, and 9 as below; a position that is not answered
/// is no failure. The session is kept alive by another request ahead of a command, once a minute has passed
/// since the last such request.
///
/// The camera is moved in percent of half the picture, 55 by 30 degrees; degrees are rounded to them. Nothing
/// has bounds here: pan and tilt are degrees as told, not wrapped, and the zoom goes one step of the camera's
/// own a call, whatever the difference. What overflows raises 6 before the camera is told to move. Moves and
/// presets answer True whatever the camera did.
///
/// `Pan` and `Tilt` read the position where it is older than 5 seconds or something else moved the camera,
/// else answer where the last move went. A position that ends before what it says it holds raises 9
/// (subscript), out of every member that reads it.
///
/// There are 255 numbered presets, and no iris, focus or home. Continuous speeds: pan and tilt -20 to 20, in
/// steps of 20/7 toward minus infinity, so that the slowest motion to the left or down is faster; what is
/// beyond is sent as it is. Nothing needs a connection.
class Sanyo final : public PTZDevice, public ContinuousDriver, public TabledOptions, private HTTPDriver {
 public:
  static const DriverData Data;

  explicit Sanyo(const Platform& platform = {});

  ptzd::Capabilities Capabilities() override;
  [[nodiscard]] bool Connect(std::span<const std::uint8_t> options) override;
  bool Connected() override { return Connected_; }
  float Pan() override;
  float Tilt() override;

  bool Move(Directions direction, float angle = 5) override;
  bool MoveTo(float pan, float tilt) override;
  bool MoveBoth(float panAngle, float tiltAngle) override;
  bool Zoom(Zooms zoomLevel) override;
  /// Has the position read anew before it is used next; looks at no argument.
  void SetPanTilt(float pan, float tilt) override;
  Variant Disconnect() override;

  std::int32_t PresetCount() override;
  bool PresetGoto(std::int32_t preset) override;
  bool PresetSave(std::int32_t preset) override;

  void ContinuousMove(float pan, float tilt) override;
  void ContinuousZoom(float amount) override;

  /// Sends an operation command of the camera with its parameters, "name=value" joined with "&". Whether
  /// anything answered.
  bool SendOpeCmd(std::int32_t command, std::string_view parameters = {});

 private:
  std::span<const OptionRow> OptionTable() const override { return {}; }

  Bytes Fetch(std::string_view path);
  void KeepAlive();
  void ReadStatus();
  void RefreshStatus();
  bool StepTo(double targetPan, double targetTilt, double targetZoom);

  std::int32_t LastKeepAlive_ = 0;  // tick count
  float PanFactor_ = 0;             // percent per degree
  float TiltFactor_ = 0;            // percent per degree
  float CurrentPan_ = 0;            // degrees
  float CurrentTilt_ = 0;           // degrees
  float CurrentZoom_ = 0;
  PositionAge StatusAge_;
};

}  // namespace ptzd
