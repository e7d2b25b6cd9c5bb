#pragma once

#include <ptzd/SanyoControl.h>

#include <cstdint>
#include <string_view>

#include "drivers/kit/ContinuousDriver.h"
#include "drivers/kit/HTTPDriver.h"
#include "drivers/kit/Options.h"

namespace ptzd {

/// Sanyo network cameras (`QVPTZ.Sanyo`), over HTTP in a session.
///
/// Options: Address.
///
/// `Connect` opens the camera's session and reads the position. It raises 17001 without an address,
/// `HTTPClient`'s numbers where the camera does not answer, and 9 as below; a position that is not answered
/// is no failure. The session is kept alive by another request ahead of a command, once a minute has passed
/// since the last such request.
///
/// The camera is moved in percent of half the picture, 55 by 30 degrees; degrees are rounded to them. Nothing
/// has bounds here: pan and tilt are degrees as told, not wrapped, and the zoom goes one step of the camera's
/// own a call, whatever the difference. What overflows raises 6 before the camera is told to move. Moves and
/// presets answer True whatever the camera did.
///
/// `Pan` and `Tilt` read the position where it is older than 5 seconds or something else moved the camera,
/// else answer where the last move went. A position that ends before what it says it holds raises 9
/// (subscript), out of every member that reads it.
///
/// There are 255 numbered presets, and no iris, focus or home. Continuous speeds: pan and tilt -20 to 20, in
/// steps of 20/7 toward minus infinity, so that the slowest motion to the left or down is faster; what is
/// beyond is sent as it is. Nothing needs a connection.
class Sanyo final : public HTTPDriver, public ContinuousDriver, public DescribedOptions, public SanyoControl {
 public:
  static const DriverData Data;

  explicit Sanyo(const Platform& platform = {});

  void ContinuousMove(float pan, float tilt) override;
  void ContinuousZoom(float amount) override;
  bool SendOpeCmd(std::int32_t command, std::string_view parameters = {}) override;

 private:
  bool Open() override;
  bool GoTo(HeadPosition target) override;
  bool SavePreset(std::int32_t preset) override;
  bool GoToPreset(std::int32_t preset) override;
  void QueryPosition() override;

  void KeepAlive();
  Bytes FetchBytes(std::string_view path);

  std::int32_t LastKeepAlive_ = 0;  // tick count
  float PanFactor_ = 0;             // percent per degree
  float TiltFactor_ = 0;            // percent per degree
};

}  // namespace ptzd
