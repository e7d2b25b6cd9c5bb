#pragma once

#include <memory>
#include <string>

#include <ptzd/DriverFactory.h>
#include <ptzd/PTZDevice.h>
#include <ptzd/PropertyBag.h>
#include "LogWatch.h"
#include "Outcome.h"

namespace ptzctl {

/// A camera to operate: one driver object with its connection options, and the log that tells what it does.
class Camera {
 public:
  Camera(const ptzd::DriverClass& driver, ptzd::PropertyBag options, LogWatch& log);

  /// `Connect` of `PTZDevice`, or of `PTZDevice2` when asked for and there.
  Outcome Connect(bool device2 = false);

  ptzd::PTZDevice& Device() { return *Device_; }
  /// Another interface of the driver; null where it does not have it.
  template <typename Interface>
  Interface* As() {
    return dynamic_cast<Interface*>(Device_.get());
  }
  const ptzd::DriverClass& Driver() const { return Driver_; }
  /// "Axis"
  std::string DriverName() const;
  /// The address without user and password; empty where there is none.
  std::string Address() const;
  LogWatch& Log() { return Log_; }

  /// A continuous motion that was begun here has not been stopped yet.
  bool InMotion = false;

 private:
  const ptzd::DriverClass& Driver_;
  ptzd::PropertyBag Options_;
  LogWatch& Log_;
  std::unique_ptr<ptzd::PTZDevice> Device_;
};

}  // namespace ptzctl
