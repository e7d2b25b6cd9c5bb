#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "drivers/kit/HTTPDriver.h"
#include "drivers/kit/Options.h"
#include "drivers/kit/WithZoom.h"

namespace ptzd {

/// Panogenics cameras (`QVPTZ.Panogenics`), whose heads are views of one picture, over their HTTP interface.
///
/// Options: Address; Port, the view, 1 and up (0, the default: view 1; any other is asked for as told);
/// LinkViews, True (the default) to move a high-resolution view, 1 to 4, together with its low-resolution
/// twin, 5 to 8. They are read by `Connect`, the address by every request.
///
/// `Connect` raises 17001 without an address and, without a text of its own, where the camera does not
/// answer; 13 or 6 where Port or LinkViews is not of its kind. Moves answer whether the camera obeyed, the
/// twin included; the position counts as reached all the same. Presets answer whether there was any reply.
///
/// Pan goes around and is kept from -180 to 180; tilt is sent as told and stops at the camera's ends; zoom is
/// kept from 0, the widest, to 10 (500 in the camera). The camera takes whole degrees and whole fiftieths of
/// a zoom unit, while the position keeps the fractions. The position is read on connecting and then before a
/// step (`Move`, `MoveBoth`, `Zoom`), at most every 5 seconds. Where the camera tells a number that does not
/// fit, `Connect` and steps raise 6 and keep the position. There are 8 numbered presets, and no iris, focus
/// or home. Nothing needs a connection.
class Panogenics final : public WithZoom<HTTPDriver>, public DescribedOptions {
 public:
  static const DriverData Data;

  explicit Panogenics(const Platform& platform = {});

 private:
  bool Open() override;
  bool GoTo(HeadPosition target) override;
  /// Raise 6 for a preset number that leaves no room for the camera's, which is one more.
  bool SavePreset(std::int32_t preset) override;
  bool GoToPreset(std::int32_t preset) override;
  void QueryPosition() override;

  bool SendCommand(const std::string& parameters);
  std::optional<std::string> RequestView(std::string_view page, std::int32_t view,
                                         const std::string& parameters = {});

  std::int32_t View_ = 1;
  bool LinkViews_ = false;
};

}  // namespace ptzd
