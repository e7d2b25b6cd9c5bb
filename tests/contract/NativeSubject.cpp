#include <ptzd/PTZMoveInImage.h>
#include "contract/Subject.h"

namespace ptzd::test {

Subject CreateSubject(const DriverClass& driver, const Platform& platform) {
  const std::shared_ptr<PTZDevice> device = driver.Create(platform);
  return {.Owner = device,
          .Device = device.get(),
          .Device2 = dynamic_cast<PTZDevice2*>(device.get()),
          .Continuous = dynamic_cast<PTZContinuousControl*>(device.get()),
          .Options = dynamic_cast<PTZOptions*>(device.get()),
          .NamedPresets = dynamic_cast<PTZNamedPresets*>(device.get()),
          .MovesInImage = dynamic_cast<PTZMoveInImage*>(device.get()) != nullptr};
}

}  // namespace ptzd::test
