#pragma once

#include <ptzd/PTZNamedPresets.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "drivers/kit/ContinuousDriver.h"
#include "drivers/kit/HTTPDriver.h"
#include "drivers/kit/Options.h"
#include "drivers/kit/WithZoom.h"

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
class Quorvane final : public WithZoom<HTTPDriver>,
                       public ContinuousDriver,
                       public PTZNamedPresets,
                       public DescribedOptions {
 public:
  static const DriverData Data;

  explicit Quorvane(const Platform& platform = {});

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
  bool Open() override;
  bool GoTo(HeadPosition target) override;
  bool DeviceMove(Directions direction, float angle) override;

  std::string FindFeed(const std::string& feed);
  std::optional<std::string> LookUpFeed(const std::string& feed);
  bool SendCommand(std::string_view parameters);

  std::string FeedID_;
};

}  // namespace ptzd
