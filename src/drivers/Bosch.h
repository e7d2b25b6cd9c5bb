#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "drivers/kit/ContinuousDriver.h"
#include "drivers/kit/HTTPDriver.h"
#include "drivers/kit/WithZoom.h"

namespace ptzd {

/// Bosch domes and pan-tilt cameras (`QVPTZ.Bosch`), over their HTTP interface.
///
/// Options: Address.
///
/// `Connect` raises 17001 without an address and makes no test of reachability: it answers True whether or
/// not the camera could be asked where it is.
///
/// Pan is -180 to 180 degrees, targets beyond go around; tilt and zoom have no bounds here, their camera
/// values wrap at 16 bits. The zoom level is the camera's value over 45. What goes beyond 32 bits raises 6
/// before the camera is told to move. Every move answers False, also one that was made. `PTZDevice2::Move`
/// goes down whatever the direction.
///
/// A move reads the position first where it is older than 5 seconds or continuous motion went on, three
/// requests of which the first that fails is the last; a tilt below the horizon is read as one far above it.
/// `Pan`, `Tilt` and `ZoomLevel` ask nothing: they are what was read, truncated to tenths of a degree and
/// rounded to quarters of the zoom, or commanded since, also where the camera did not obey or answer.
///
/// Continuous speeds: pan and tilt -20 to 20; beyond, the camera's 15 steps wrap at 16. The zoom knows no
/// continuous motion. There is no iris, focus, home or preset. Nothing needs a connection.
class Bosch final : public WithZoom<HTTPDriver>, public ContinuousDriver {
 public:
  static const DriverData Data;

  explicit Bosch(const Platform& platform = {});

  void ContinuousMove(float pan, float tilt) override;

 private:
  bool Open() override;
  bool GoTo(HeadPosition target) override;
  void Device2Move(Directions direction, float angle) override;
  void QueryPosition() override;

  void Set(std::int32_t object, std::int32_t value);
  std::optional<std::int32_t> Read(std::int32_t object);
  std::optional<std::string> SendCommand(std::string_view payload);
};

}  // namespace ptzd
