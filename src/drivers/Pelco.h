#pragma once

#include <ptzd/SerialPortPool.h>

#include <cstdint>
#include <exception>
#include <memory>
#include <span>

#include "drivers/kit/ContinuousDriver.h"
#include "drivers/kit/Driver.h"
#include "drivers/kit/Options.h"

namespace ptzd {

/// Pelco-D and Pelco-P receivers on an RS-485 line (`QVPTZ.Pelco`). Several drivers share one serial port,
/// which the thread's `SerialPortPool` hands out: the first opens and sets up the line, the last closes it.
///
/// Options: COMPort, the number of the serial port (0, the default: none, `Connect` answers False); Baud
/// (2400), without effect where the port is open already; Protocol, 0 Pelco-D (the default) or 1 Pelco-P;
/// Port, the receiver's address on the line, 1 (the default) to 255; MoveInterval, milliseconds for 5 degrees
/// (50); MoveSpeed, 0 to 63 or 64 for turbo pan (63); ZoomInterval, milliseconds of a `Zoom` step (200);
/// Reset, True to drive to pan 0, tilt 0 on connecting.
///
/// `Connect` answers False where the port cannot be opened, and raises 6 or 13 for an option that is no such
/// number; the port stays connected then.
///
/// Receivers do not answer, so the position is an estimate from how long the motors were driven; continuous
/// motion and presets do not change it. Continuous speeds are the protocol's: 0 to 63 either way, 64 for
/// turbo pan.
///
/// Moves, `Zoom`, `Iris` and `Focus` block while the motor runs. All commands raise 91 while there is no
/// port, a number of `SerialPortErrors` when the line fails, and 6, before anything is sent, for numbers that
/// are no bytes and for a Pelco-D frame whose sum passes 255.
class Pelco final : public Driver, public ContinuousDriver, public DescribedOptions {
 public:
  static const DriverData Data;

  explicit Pelco(const Platform& platform = {});
  ~Pelco() override;

  /// 32 for Pelco-D, 255 for Pelco-P.
  std::int32_t PresetCount() override;
  void ContinuousMove(float pan, float tilt) override;
  void ContinuousZoom(float amount) override;

 private:
  struct Command;
  struct Frame;
  template <typename Mode>
  struct ModeRow;
  struct Tables;

  bool Open() override;
  void LetGo() override;
  /// Raises 91 where there is no port. While others use the port, this driver can still write to it.
  void Release() override;
  bool GoTo(HeadPosition target) override;
  bool ZoomBy(Zooms direction, float amount) override;
  bool SetIris(ptzd::Iris level) override;
  bool SetFocus(ptzd::Focus level) override;
  /// 0 to 254.
  bool SavePreset(std::int32_t preset) override;
  bool GoToPreset(std::int32_t preset) override;
  void TakePlace(float pan, float tilt) override;

  void OpenPort(std::int32_t portNumber);
  void TellNotOpened(const std::exception& error) const;
  bool GiveBackPort();
  void GiveBackQuietly();
  void Drive(const Command& command, std::int32_t wait);
  template <typename Mode>
  bool DriveMode(std::span<const ModeRow<Mode>> table, Mode mode);
  Frame BuildFrame(const Command& command) const;
  bool SendCommand(const Command& command);
  void Output(const Frame& frame);

  std::shared_ptr<SerialPortPool> Pool_;
  std::shared_ptr<SerialPort> Port_;
  bool Acquired_ = false;  // a port that was given back may be kept all the same
  std::int32_t Protocol_ = 0;
  std::int32_t MoveInterval_ = 0;  // milliseconds
  std::int32_t MoveSpeed_ = 0;
  std::int32_t ZoomInterval_ = 0;  // milliseconds
};

}  // namespace ptzd
