#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "drivers/kit/ContinuousDriver.h"
#include "drivers/kit/HTTPDriver.h"
#include "drivers/kit/Options.h"
#include "drivers/kit/WithZoom.h"

namespace ptzd {

/// Axis network cameras and video servers (`QVPTZ.Axis`), over their VAPIX HTTP interface.
///
/// Options: Address; Port, the camera behind a video server, 1 and up (0, the default: the only or first
/// one); ZoomStep, camera zoom units per zoom unit here (0, the default: found from the camera's field
/// angles); Reset, True to go to pan 0, tilt 0, zoom 0 on connecting.
///
/// `Connect` raises 17003 without an address, 17001 where the camera does not answer, 17002 where its head
/// neither pans, tilts nor zooms, and 13 or 6 for numbers, of options or the camera, that are none or out of
/// range.
///
/// Moves go to whole degrees, ties to even: pan is brought back by one turn beyond -180 to 180, tilt is
/// clamped to the same. Zoom is 0 at the widest, below 0 is 0; one unit is `ZoomStep` units of the camera.
/// Targets beyond 32 bits raise 6 before the camera is told to move.
///
/// A head without absolute pan, tilt and zoom is moved relatively from where it stands at `Connect`, and has
/// 63 numbered presets. Any other head reports its position, which is read at most every 5 seconds. There is
/// no home.
///
/// Continuous speeds: pan and tilt -50 to 50 (the camera's -100 to 100), zoom -10 to 10 (squared); the camera
/// limits them.
class Axis final : public WithZoom<HTTPDriver>, public ContinuousDriver, public DescribedOptions {
 public:
  static const DriverData Data;

  explicit Axis(const Platform& platform = {});

  std::int32_t PresetCount() override;
  void ContinuousMove(float pan, float tilt) override;
  void ContinuousZoom(float amount) override;

 private:
  struct Head;

  bool Open() override;
  bool GoTo(HeadPosition target) override;
  bool SetIris(ptzd::Iris level) override;
  bool SetFocus(ptzd::Focus level) override;
  bool SavePreset(std::int32_t preset) override;
  bool GoToPreset(std::int32_t preset) override;
  void QueryPosition() override;
  void TakePlace(float pan, float tilt) override;

  void SetUp(const Head& head);
  std::string MoveCommand(const HeadPosition& target) const;
  void SendContinuous(const std::string& command, bool isStop, LastMotion<std::string>& last);
  std::optional<std::string> SendCommand(std::string_view command, std::string_view path = ControlPath);

  static constexpr std::string_view ControlPath = "/axis-cgi/com/ptz.cgi?";

  bool RelativeMode_ = false;
  float ZoomStep_ = 0;
};

}  // namespace ptzd
