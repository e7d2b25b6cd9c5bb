#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "drivers/kit/ContinuousDriver.h"
#include "drivers/kit/Driver.h"
#include "drivers/kit/Options.h"
#include "drivers/kit/WithZoom.h"
#include "platform/Socket.h"

namespace ptzd {

/// Secubest pan-tilt-zoom units (`QVPTZ.Secubest`), over framed messages on a TCP connection.
///
/// Options: Address, in dotted decimal (names are not resolved), with ":port" unless the unit listens on
/// 7777; MoveInterval, milliseconds for 5 degrees (200); MoveSpeed (200), which no command uses.
///
/// `Connect` blocks for at most 21 seconds; it raises 17003 without an address and 17001 with the system's
/// error number where no socket can be opened or the unit does not take the connection. A connection that
/// breaks later is not noticed: commands are lost, each after at most 5 seconds.
///
/// Units do not answer, so the position is an estimate from how long the motors were driven; it survives
/// reconnecting, and continuous motion does not change it. Moves block while the motors run, answer True when
/// sent and False when not connected. Continuous speeds: pan and tilt in twenty-fifths of the unit's, zoom in
/// the unit's own; both need no connection flag, only a socket that is open. Speeds and waits that do not fit
/// raise 6 before anything is sent. There is no iris, focus, home or preset.
class Secubest final : public WithZoom<Driver>, public ContinuousDriver, public DescribedOptions {
 public:
  static const DriverData Data;

  explicit Secubest(const Platform& platform = {});

  void ContinuousMove(float pan, float tilt) override;
  void ContinuousZoom(float amount) override;

 private:
  void ReadOptions() override;
  bool Open() override;
  void LetGo() override { Socket_.reset(); }
  /// Leaves the connection open, unlike `PTZDevice`'s.
  void Device2Disconnect() override { Connected_ = false; }
  bool GoTo(HeadPosition target) override;

  void SendCommand(std::uint8_t code, std::uint16_t speed);

  std::unique_ptr<Socket> Socket_;
  std::string Unit_;                 // "10.0.0.5:7777"
  std::int32_t MoveInterval_ = 200;  // milliseconds
};

}  // namespace ptzd
