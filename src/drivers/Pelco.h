#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include <ptzd/DriverData.h>
#include <ptzd/PTZDevice.h>
#include <ptzd/PTZOptions.h>
#include <ptzd/Platform.h>
#include <ptzd/PropertyBag.h>
#include <ptzd/SerialPortPool.h>
#include "drivers/kit/ContinuousDriver.h"

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
class Pelco final : public PTZDevice, public ContinuousDriver, public TabledOptions {
 public:
  static const DriverData Data;

  explicit Pelco(const Platform& platform = {});
  ~Pelco() override;
  Pelco(const Pelco&) = delete;
  Pelco& operator=(const Pelco&) = delete;

  ptzd::Capabilities Capabilities() override;
  [[nodiscard]] bool Connect(std::span<const std::uint8_t> options) override;
  bool Connected() override { return Connected_; }
  float Pan() override { return CurrentPan_; }
  float Tilt() override { return CurrentTilt_; }

  bool Move(Directions direction, float angle = 5) override;
  bool MoveBoth(float panAngle, float tiltAngle) override;
  bool MoveTo(float pan, float tilt) override;
  /// Drives the zoom and always answers False.
  bool Zoom(Zooms zoomLevel) override;
  bool Iris(ptzd::Iris irisLevel) override;
  bool Focus(ptzd::Focus focusLevel) override;
  /// True; raises 91 where there is no port. While others use the port, this driver can still write to it.
  Variant Disconnect() override;

  /// 32 for Pelco-D, 255 for Pelco-P.
  std::int32_t PresetCount() override;
  /// 0 to 254.
  bool PresetGoto(std::int32_t preset) override;
  bool PresetSave(std::int32_t preset) override;
  void SetPanTilt(float pan, float tilt) override;

  void ContinuousMove(float pan, float tilt) override;
  void ContinuousZoom(float amount) override;

 private:
  struct Command;
  struct Frame;
  template <typename Mode>
  struct ModeRow;
  struct Tables;

  std::span<const OptionRow> OptionTable() const override;

  void OpenPort(std::int32_t portNumber);
  bool GiveBackPort();
  void GiveBackQuietly();
  bool TimedMove(float pan, float tilt);
  Frame BuildFrame(const Command& command) const;
  void Output(const Frame& frame);
  void Send(const Command& command);
  void Drive(const Command& command, std::int32_t wait);
  template <typename Mode>
  bool DriveMode(std::span<const ModeRow<Mode>> table, Mode mode);

  Clock& Clock_;
  PropertyBag Options_;
  std::shared_ptr<SerialPortPool> Pool_;
  std::shared_ptr<SerialPort> Port_;
  bool Acquired_ = false;  // a port that was given back may be kept all the same
  bool Connected_ = false;
  std::int32_t Protocol_ = 0;
  std::int32_t MoveInterval_ = 0;  // milliseconds
  std::int32_t MoveSpeed_ = 0;
  std::int32_t ZoomInterval_ = 0;  // milliseconds
  float CurrentPan_ = 0;           // degrees
  float CurrentTilt_ = 0;          // degrees
};

}  // namespace ptzd
