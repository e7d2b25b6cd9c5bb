#pragma once

#include <cstdint>
#include <span>

#include <ptzd/Enumerations.h>
#include <ptzd/Export.h>
#include <ptzd/Variant.h>

namespace ptzd {

/// The interface that every driver implements. Pan is in degrees, positive to the right; tilt in degrees,
/// positive upwards. A Boolean result is True on success and False where the camera refused or did not
/// answer; several drivers answer some members always alike (see `DriverData`). Called on the interface
/// itself, every member does nothing and answers 0, False or empty.
///
/// A device is used by one thread at a time. Members block until the camera has answered or the request
/// failed. A camera's failure is an answer and no error, except in `Connect`, in Vivotek's presets (17001,
/// 13104, 13106), in what reads Sanyo's position (9) and on a Pelco line (57, 8018). Every member raises 6
/// (overflow) for a number, an argument's or the camera's, that does not fit, 13 for an option that it reads
/// and that is not of its kind, and some drivers' 91 for want of a line or of options (`DriverData`).
class PTZD_API PTZDevice {
 public:
  virtual ~PTZDevice() = default;

  /// What the connected camera can do; before `Connect` what the driver can say of itself.
  virtual ptzd::Capabilities Capabilities();

  /// Reads the options (`PropertyBag::Contents`), probes the camera and answers True when the driver is
  /// ready. Where the camera cannot be used it raises a `PTZErrors` number or answers False, as the driver is
  /// made; some drivers ask nothing and notice nothing. Raises 5 where the bytes are no options, 13 or 6
  /// where an option or a number that the camera tells is none or does not fit, 9 or 11 where the camera
  /// leaves a number out (Sanyo, Sony), and `HTTPClient`'s numbers, 13101 to 13106, where a Sanyo or Vivotek
  /// cannot be asked. The new options hold even if it fails.
  [[nodiscard]] virtual bool Connect(std::span<const std::uint8_t> options);
  virtual bool Connected();

  /// The driver's idea of the position, in degrees.
  virtual float Pan();
  virtual float Tilt();

  /// Steps by `angle` degrees in a direction.
  virtual bool Move(Directions direction, float angle = 5);
  /// Goes to an absolute position in degrees.
  virtual bool MoveTo(float pan, float tilt);
  virtual bool Zoom(Zooms zoomLevel);
  virtual bool Iris(ptzd::Iris irisLevel);
  virtual bool Focus(ptzd::Focus focusLevel);

  /// Releases what the driver holds; it can be connected again. Answers True or empty, as the driver is made.
  virtual Variant Disconnect();

  /// Steps by two signed amounts in degrees.
  virtual bool MoveBoth(float panAngle, float tiltAngle);

  /// Numbered presets that a host may use, counted from 0; 0 where there are none.
  virtual std::int32_t PresetCount();
  virtual bool PresetGoto(std::int32_t preset);
  virtual bool PresetSave(std::int32_t preset);

  /// Tells the driver where the camera is, in degrees, without moving it.
  virtual void SetPanTilt(float pan, float tilt);

  virtual bool Home();
};

}  // namespace ptzd
