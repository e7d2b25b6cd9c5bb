#pragma once

#include <ptzd/PTZDevice.h>
#include <ptzd/PTZDevice2.h>

namespace ptzd {

/// `PTZDevice` and `PTZDevice2` both have `Move`, `MoveBoth` and `Disconnect`, with different results, so no
/// class can override both. These bases give each interface's three members a name of their own.
class PTZDeviceBridge : public PTZDevice {
 public:
  bool Move(Directions direction, float angle = 5) final { return DeviceMove(direction, angle); }
  bool MoveBoth(float panAngle, float tiltAngle) final { return DeviceMoveBoth(panAngle, tiltAngle); }
  Variant Disconnect() final { return DeviceDisconnect(); }

 protected:
  virtual bool DeviceMove(Directions direction, float angle) = 0;
  virtual bool DeviceMoveBoth(float panAngle, float tiltAngle) = 0;
  virtual Variant DeviceDisconnect() = 0;
};

class PTZDevice2Bridge : public PTZDevice2 {
 public:
  void Move(Directions direction, float angle) final { Device2Move(direction, angle); }
  void MoveBoth(float panAngle, float tiltAngle) final { Device2MoveBoth(panAngle, tiltAngle); }
  void Disconnect() final { Device2Disconnect(); }

 protected:
  virtual void Device2Move(Directions direction, float angle) = 0;
  virtual void Device2MoveBoth(float panAngle, float tiltAngle) = 0;
  virtual void Device2Disconnect() = 0;
};

}  // namespace ptzd
