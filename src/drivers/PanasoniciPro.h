#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "drivers/kit/HTTPDriver.h"
#include "drivers/kit/WithZoom.h"

namespace ptzd {

/// Panasonic i-Pro (WV) and BL-VT164 network cameras and encoders (`QVPTZ.PanasoniciPro`), over HTTP.
///
/// Options: Address; Port, the channel of an encoder, 1 and up (0, the default: the only or first one), read
/// at every request; Reset, True to go to pan 0, tilt 0 on connecting.
///
/// `Connect` asks the camera for its model and then for its position, which may fail, and blocks for each
/// answer. It raises 17003 without an address, 17001 where the camera does not answer or has nothing to say,
/// 17002 for a model that is not in the table, 6 for numbers that are out of range and 13 where Port is no
/// number or Reset no Boolean.
///
/// The camera counts in tenths of a degree. Targets are clamped to the limits of the model; a pan around the
/// end of an endless head is brought back by one turn. Zoom is the magnification less 1, 0 at the widest; it
/// is read in quarters, and the end of the lens is the camera's own. Only what changes is sent, pan and tilt
/// together. Targets that are no number, and those too far for a single, raise 6 before anything is sent.
///
/// The camera is asked for its position on connecting and before a step of any kind, where the position is
/// older than 5 seconds or `SetPanTilt`, which looks at no argument, told that it is another. `Pan`, `Tilt`
/// and `ZoomLevel` ask nothing: they are the position last read or commanded.
///
/// No member needs a connection, but before a camera has told a known model there are no limits to move
/// within, and moves answer False. There is no iris, focus, home or preset.
class PanasoniciPro final : public WithZoom<HTTPDriver> {
 public:
  static const DriverData Data;

  explicit PanasoniciPro(const Platform& platform = {});

 private:
  struct Model;

  bool Open() override;
  bool GoTo(HeadPosition target) override;
  void QueryPosition() override;

  std::optional<std::string> SendCommand(std::string_view page, std::string_view parameters);

  const Model* Model_ = nullptr;  // null until a camera told a known one
};

}  // namespace ptzd
