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

/// Merit Lilin speed domes and video servers (`QVPTZ.MeritLilin`), over their CGI pages.
///
/// Options: Address; Port, the camera behind a video server, 1 and up (0, the default: the only or first
/// one), read at every request but the first. A Port beyond 16 bits raises 6, one that is no number 13.
///
/// `Connect` raises 17003 without an address and 17001 where the camera does not answer. Any reply is a
/// success. A command that is not answered answers False and keeps the position.
///
/// Pan goes around and is kept from -180 up to below 180; tilt is sent as told and stops at the camera's
/// ends. The camera takes both in whole degrees, rounded down, while the position keeps the fractions. Zoom
/// is 0 at the widest; the camera's zoom factor is four times it plus 1. The position is read on connecting
/// and then before a step (`Move`, `MoveBoth`, `Zoom`) and `ZoomTo`, at most every 5 seconds or when
/// continuous motion made it stale. Where the camera tells a number that does not fit, `Connect`, steps and
/// `ZoomTo` raise 6 and keep the position.
///
/// Continuous speeds: pan and tilt -20 to 20 (the camera's -8 to 8), zoom -16 to 16 (halved), rounded down;
/// the camera limits them. There are 128 numbered presets, and no home. Nothing needs a connection.
class MeritLilin final : public WithZoom<HTTPDriver>, public ContinuousDriver, public DescribedOptions {
 public:
  static const DriverData Data;

  explicit MeritLilin(const Platform& platform = {});

  void ContinuousMove(float pan, float tilt) override;
  void ContinuousZoom(float amount) override;

 private:
  bool Open() override;
  bool GoTo(HeadPosition target) override;
  bool SetIris(ptzd::Iris level) override;
  bool SetFocus(ptzd::Focus level) override;
  bool SavePreset(std::int32_t preset) override;
  bool GoToPreset(std::int32_t preset) override;
  void QueryPosition() override;

  void SendContinuous(const std::string& parameters, bool isStop, LastMotion<std::string>& last);
  std::string PagePath(std::string_view page, std::string_view parameters) const;
  std::optional<std::string> SendCommand(std::string_view page, std::string_view parameters);
};

}  // namespace ptzd
