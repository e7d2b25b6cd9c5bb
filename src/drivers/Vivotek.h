#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <ptzd/DriverData.h>
#include <ptzd/PTZDevice.h>
#include <ptzd/PTZNamedPresets.h>
#include "drivers/kit/ContinuousDriver.h"
#include "drivers/kit/HTTPDriver.h"

namespace ptzd {

/// Vivotek pan-tilt cameras and the D-Link models built on them (`QVPTZ.Vivotek`). Moves are clicks into the
/// picture: the camera centres on the clicked point.
///
/// Options: Address; Camera, the channel on newer models ("0" by default), the camera number on older ones
/// ("1" by default).
///
/// `Connect` sends the head home. It raises 17003 without an address; 17001 for a status other than 200 and
/// for an empty reply; 17002 for a model that is not in the table and for a camera without PTZ; 6 for a PTZ
/// number beyond 32 bits; `HTTPClient`'s numbers where the camera does not answer.
///
/// The position is an estimate in whole degrees from the moves made since. The camera keeps to its limits,
/// none is consulted here. Newer models have 128 numbered presets and named ones; these five members work on
/// the model of the last `Connect` also after `Disconnect` and raise 17001 or `HTTPClient`'s numbers where
/// the camera refuses or does not answer. Continuous speeds are sent as told, with a speed of five times
/// their sum (ten times for zoom) plus 1 beside them; no connection is needed for them either. There is no
/// iris or focus.
class Vivotek final : public PTZDevice, public PTZNamedPresets, public ContinuousDriver, private HTTPDriver {
 public:
  static const DriverData Data;

  explicit Vivotek(const Platform& platform = {});

  ptzd::Capabilities Capabilities() override;
  [[nodiscard]] bool Connect(std::span<const std::uint8_t> options) override;
  bool Connected() override { return Connected_; }
  float Pan() override { return static_cast<float>(CurrentPan_); }
  float Tilt() override { return static_cast<float>(CurrentTilt_); }

  bool Move(Directions direction, float angle = 5) override;
  bool MoveTo(float pan, float tilt) override;
  bool MoveBoth(float panAngle, float tiltAngle) override;
  bool Zoom(Zooms zoomLevel) override;
  bool Home() override;
  /// Rounds to whole degrees.
  void SetPanTilt(float pan, float tilt) override;
  Variant Disconnect() override;

  std::int32_t PresetCount() override;
  /// Answer False also when the camera took the command.
  bool PresetGoto(std::int32_t preset) override;
  bool PresetSave(std::int32_t preset) override;
  /// Every preset has the index 0; its name is its ID. Raises 457 where the camera lists a name twice.
  std::vector<PTZNamedPreset> GetNamedPresets() override;
  void GotoNamedPreset(const std::string& id) override;

  void ContinuousMove(float pan, float tilt) override;
  void ContinuousZoom(float amount) override;

 private:
  struct Model;

  bool NewProtocol() const;
  std::string Camera() const;
  std::string Fetch(const std::string& path);
  bool SendCommand(const std::string& parameters);
  void Recall(const std::string& encodedName);
  bool MoveToPosition(double pan, double tilt);

  ptzd::Capabilities CapabilityBits_{};
  const Model* Model_ = nullptr;  // of the last `Connect`; until then commands are those of older models
  std::int32_t CurrentPan_ = 0;   // degrees
  std::int32_t CurrentTilt_ = 0;  // degrees
};

}  // namespace ptzd
