#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <ptzd/DriverData.h>
#include <ptzd/PTZOptions.h>
#include "drivers/kit/AbsoluteDriver.h"
#include "drivers/kit/ContinuousDriver.h"

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
class MeritLilin final : public AbsoluteDriver, public ContinuousDriver, public TabledOptions {
 public:
  static const DriverData Data;

  explicit MeritLilin(const Platform& platform = {});

  ptzd::Capabilities Capabilities() override;
  [[nodiscard]] bool Connect(std::span<const std::uint8_t> options) override;

  void ZoomTo(float zoom) override;
  bool Iris(ptzd::Iris irisLevel) override;
  bool Focus(ptzd::Focus focusLevel) override;
  std::int32_t PresetCount() override;
  bool PresetGoto(std::int32_t preset) override;
  bool PresetSave(std::int32_t preset) override;

  void ContinuousMove(float pan, float tilt) override;
  void ContinuousZoom(float amount) override;

 private:
  std::optional<HeadPosition> QueryPosition() override;
  bool SetPosition(HeadPosition target) override;
  std::span<const OptionRow> OptionTable() const override { return {}; }

  std::string PagePath(std::string_view page, std::string_view parameters) const;
  std::optional<std::string> SendCommand(std::string_view page, std::string_view parameters);
  void SendContinuous(const std::string& parameters, bool isStop, LastMotion<std::string>& last);
};

}  // namespace ptzd
