#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "com/ControlAdaptors.h"

namespace ptzd::com {

/// Makes the adaptor of a driver class's own interface; the other interfaces' members are its too.
using OwnInterface = std::shared_ptr<IDispatch> (*)(Object& object, ptzd::PTZDevice& core,
                                                    const std::vector<Dispatcher::Part>& others);

/// For a class whose own interface has no members.
template <class Interface>
std::shared_ptr<IDispatch> EmptyInterface(Object& object, ptzd::PTZDevice&,
                                          const std::vector<Dispatcher::Part>& others) {
  return std::make_shared<Adaptor<IDispatch>>(object, __uuidof(Interface), others);
}

/// A driver as hosts hold it: its class's own interface, which is also what scripts call, and those control
/// interfaces that it implements.
class Driver final : public Object {
 public:
  Driver(const std::string& className, REFIID ownIID, OwnInterface createOwn,
         std::unique_ptr<ptzd::PTZDevice> core);

 private:
  IUnknown* Find(REFIID iid) override;
  template <class CoreInterface, class InterfaceAdaptor>
  void Adapt(std::optional<InterfaceAdaptor>& adaptor, REFIID iid);

  std::unique_ptr<ptzd::PTZDevice> Core_;
  std::optional<DeviceAdaptor> Device_;
  std::optional<Device2Adaptor> Device2_;
  std::optional<ContinuousControlAdaptor> ContinuousControl_;
  std::optional<OptionsAdaptor> Options_;
  std::optional<NamedPresetsAdaptor> NamedPresets_;
  std::optional<MoveInImageAdaptor> MoveInImage_;
  std::vector<Dispatcher::Part> Control_;  // those of the above that the driver has, in this order
  IID OwnIID_;
  std::shared_ptr<IDispatch> Own_;
};

}  // namespace ptzd::com
