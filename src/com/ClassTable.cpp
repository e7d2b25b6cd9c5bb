#include "com/ClassTable.h"

#include "com/Contract.h"

#include <algorithm>

#include "catalogue/DriverFactory.h"
#include "com/Driver.h"
#include "com/Records.h"
#include "com/SerialPorts.h"

namespace ptzd::com {

namespace {

template <class Own, OwnInterface CreateOwn>
ComPtr<IUnknown> NewDriver(const CreatableClass& row) {
  return static_cast<ISupportErrorInfo*>(
      new Driver(row.Name, __uuidof(Own), CreateOwn, CreateDriver(row.ProgID())));
}

/// A driver class with its own interface, which has no members unless an adaptor of its own is named.
template <class Class, class Own, OwnInterface CreateOwn = &EmptyInterface<Own>>
CreatableClass DriverRow(const char* name) {
  return {__uuidof(Class), name, &NewDriver<Own, CreateOwn>};
}

class ContinuousControl final : public Object {
 public:
  ContinuousControl() : Object("PTZContinuousControl"), Adaptor_(*this, Core_) {}

 private:
  IUnknown* Find(REFIID iid) override {
    const bool known = IsEqualIID(iid, __uuidof(::_PTZContinuousControl)) || IsEqualIID(iid, IID_IDispatch);
    return known ? &Adaptor_ : nullptr;
  }

  ptzd::PTZContinuousControl Core_;
  ContinuousControlAdaptor Adaptor_;
};

ComPtr<IUnknown> NewContinuousControl(const CreatableClass&) {
  return static_cast<ISupportErrorInfo*>(new ContinuousControl());
}

}  // namespace

std::span<const CreatableClass> CreatableClasses() {
  static const CreatableClass classes[] = {
      {__uuidof(::PTZContinuousControl), "PTZContinuousControl", &NewContinuousControl},
      {__uuidof(::PTZOption), "PTZOption", [](const CreatableClass&) { return NewEmptyOption(); }},
      {__uuidof(::PTZDrivers), "PTZDrivers", [](const CreatableClass&) { return NewCatalogue(); }},
      {__uuidof(::PropertyBag), "PropertyBag", [](const CreatableClass&) { return NewPropertyBag(); }},
      {__uuidof(::SerialPorts), "SerialPorts", [](const CreatableClass&) { return NewSerialPorts(); }},
      DriverRow<::Axis, ::_Axis>("Axis"),
      DriverRow<::Pelco, ::_Pelco>("Pelco"),
      DriverRow<::Quorvane, ::_Quorvane>("Quorvane"),
      DriverRow<::Secubest, ::_Secubest>("Secubest"),
      DriverRow<::Sony, ::_Sony>("Sony"),
      DriverRow<::Vivotek, ::_Vivotek>("Vivotek"),
  };
  return classes;
}

const CreatableClass* FindCreatableClass(REFCLSID identifier) {
  const auto classes = CreatableClasses();
  const auto found = std::ranges::find_if(
      classes, [&](const CreatableClass& row) { return IsEqualCLSID(row.Identifier, identifier); });
  return found == classes.end() ? nullptr : &*found;
}

}  // namespace ptzd::com
