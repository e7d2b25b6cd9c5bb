#pragma once

#include <ptzd/PTZNamedPresets.h>

#include <cstdint>
#include <string>
#include <vector>

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
class Vivotek final : public HTTPDriver, public PTZNamedPresets, public ContinuousDriver {
 public:
  static const DriverData Data;

  explicit Vivotek(const Platform& platform = {});

  bool Zoom(Zooms zoomLevel) override;
  std::int32_t PresetCount() override;
  /// Every preset has the index 0; its name is its ID. Raises 457 where the camera lists a name twice.
  std::vector<PTZNamedPreset> GetNamedPresets() override;
  void GotoNamedPreset(const std::string& id) override;
  void ContinuousMove(float pan, float tilt) override;
  void ContinuousZoom(float amount) override;

 private:
  struct Model;

  bool Open() override;
  bool DeviceMove(Directions direction, float angle) override;
  bool GoTo(HeadPosition target) override;
  bool ZoomBy(Zooms direction, float amount) override;
  bool SavePreset(std::int32_t preset) override;
  bool GoToPreset(std::int32_t preset) override;
  bool GoHome() override;
  void TakePlace(float pan, float tilt) override;

  bool NewProtocol() const;
  std::string Camera() const;
  void Recall(const std::string& encodedName);
  bool SendCommand(std::string_view parameters);
  std::string TextOf(std::string_view path);

  const Model* Model_ = nullptr;  // of the last `Connect`; until then commands are those of older models
};

}  // namespace ptzd
