#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <ptzd/DriverData.h>
#include <ptzd/PTZNamedPresets.h>
#include <ptzd/PTZOptions.h>
#include "drivers/kit/ContinuousDriver.h"
#include "drivers/kit/DeviceBridge.h"
#include "drivers/kit/HTTPDriver.h"

namespace ptzd {

/// A camera of another installation of the surveillance system (`QVPTZ.Quorvane`), over that installation's
/// HTTP interface.
///
/// Options: Address; Feed, the id of the remote feed to steer (its name is looked up first, see `Connect`);
/// Reset, True to go to pan 0, tilt 0, zoom 0 on connecting.
///
/// `Connect` raises 17003 without an address, 17002 without a feed and 17001 where the installation does not
/// answer. It asks for the feed list once at an address that hardly ever exists, and takes the option itself
/// as the feed's id when nothing comes of it; where that address has to be looked up first this may take as
/// long as the network's name service.
///
/// Pan and tilt are whole numbers in the remote system's own units, zoom is in its own scale; none has bounds
/// here. The remote interface moves by offsets only: the position is the driver's own model, which starts at
/// 0, outlives `Disconnect`, and changes with every offset that the remote system took. Continuous speeds go
/// out as they are, as a joystick's in the remote system's range. There are named presets alone, and no iris,
/// focus or home.
///
/// Before the first `Connect` the continuous members and the named presets raise 91 (object not set); from
/// then on they work whether connected or not.
class Quorvane final : public DualDevice,
                       public ContinuousDriver,
                       public PTZNamedPresets,
                       public TabledOptions,
                       private HTTPDriver {
 public:
  static const DriverData Data;

  explicit Quorvane(const Platform& platform = {});

  ptzd::Capabilities Capabilities() override;
  [[nodiscard]] bool Connect(std::span<const std::uint8_t> options) override;
  bool Connected() override { return Connected_; }
  float Pan() override { return static_cast<float>(CurrentPan_); }
  float Tilt() override { return static_cast<float>(CurrentTilt_); }
  float ZoomLevel() override { return CurrentZoom_; }

  bool MoveTo(float pan, float tilt) override;
  void MoveTo(float pan, float tilt, float zoom) override;
  bool Zoom(Zooms zoomLevel) override;
  void Zoom(Zooms direction, float amount) override;
  void ZoomTo(float zoom) override;

  void ContinuousMove(float pan, float tilt) override;
  void ContinuousZoom(float amount) override;

  /// The presets of the feed. Raises 17004 where the remote system refuses the credentials, 17001 for any
  /// other status than 200 or none, what `HTTPClient::GetResource` raises, the XML parser's number
  /// (`XmlParseError`) with source "MS XML" for a document that is not well-formed, 457 for an id that
  /// stands there twice.
  std::vector<PTZNamedPreset> GetNamedPresets() override;
  void GotoNamedPreset(const std::string& id) override;

  /// As every driver's, but nothing for an unknown position or name.
  std::optional<PTZOption> Item(const Variant& indexKey) override;

 private:
  struct Outcome;

  bool DeviceMove(Directions direction, float angle) override;
  bool DeviceMoveBoth(float panAngle, float tiltAngle) override;
  Variant DeviceDisconnect() override;
  std::span<const OptionRow> OptionTable() const override;

  std::string UrlOf(std::string_view path) const;
  Outcome Fetch(std::string_view path);
  bool SendCommand(std::string_view parameters);
  bool SetPosition(float pan, float tilt, float zoom);
  std::string FindFeed(const std::string& feed);
  std::optional<std::string> LookUpFeed(const std::string& feed);

  bool HasOptions_ = false;
  std::string FeedID_;
  std::int32_t CurrentPan_ = 0;
  std::int32_t CurrentTilt_ = 0;
  float CurrentZoom_ = 0;
};

}  // namespace ptzd
