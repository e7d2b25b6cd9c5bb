#pragma once

#include <memory>

#include <ptzd/DriverFactory.h>
#include <ptzd/PTZContinuousControl.h>
#include <ptzd/PTZDevice.h>
#include <ptzd/PTZDevice2.h>
#include <ptzd/PTZNamedPresets.h>
#include <ptzd/PTZOptions.h>

namespace ptzd::test {

/// A driver as its host holds it; interfaces that it lacks are null.
struct Subject {
  std::shared_ptr<void> Owner;
  PTZDevice* Device = nullptr;
  PTZDevice2* Device2 = nullptr;
  PTZContinuousControl* Continuous = nullptr;
  PTZOptions* Options = nullptr;
  PTZNamedPresets* NamedPresets = nullptr;
  bool MovesInImage = false;
};

/// The driver itself, or what a COM host has of it, as the program is linked.
Subject CreateSubject(const DriverClass& driver, const Platform& platform);

}  // namespace ptzd::test
