#include "com/ClassTable.h"

#include "com/Contract.h"

#include <algorithm>

#include <ptzd/DriverFactory.h>
#include "com/Driver.h"
#include "com/Log.h"
#include "com/Records.h"
#include "com/SanyoAdaptor.h"
#include "com/SerialPorts.h"

namespace ptzd::com {

namespace {

template <class Own, OwnInterface CreateOwn>
ComPtr<IUnknown> NewDriver(const CreatableClass& row, const Platform& platform) {
  return static_cast<ISupportErrorInfo*>(
      new Driver(row.Name, __uuidof(Own), CreateOwn, CreateDriver(row.ProgID(), platform)));
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

ComPtr<IUnknown> NewContinuousControl(const CreatableClass&, const Platform&) {
  return static_cast<ISupportErrorInfo*>(new ContinuousControl());
}

}  // namespace

std::span<const CreatableClass> CreatableClasses() {
  static const CreatableClass classes[] = {
      {__uuidof(::PTZContinuousControl), "PTZContinuousControl", &NewContinuousControl},
      {__uuidof(::PTZOption), "PTZOption",
       [](const CreatableClass&, const Platform&) { return NewEmptyOption(); }},
      {__uuidof(::PTZDrivers), "PTZDrivers",
       [](const CreatableClass&, const Platform&) { return NewCatalogue(); }},
      {__uuidof(::PropertyBag), "PropertyBag",
       [](const CreatableClass&, const Platform&) { return NewPropertyBag(); }},
      {__uuidof(::SerialPorts), "SerialPorts",
       [](const CreatableClass&, const Platform&) { return NewSerialPorts(); }},
      {__uuidof(::Log), "Log", [](const CreatableClass&, const Platform&) { return NewLog(); }},
      DriverRow<::Axis, ::_Axis>("Axis"),
      DriverRow<::Bosch, ::_Bosch>("Bosch"),
      DriverRow<::Elmo, ::_Elmo>("Elmo"),
      DriverRow<::Elmo4, ::_Elmo4>("Elmo4"),
      DriverRow<::Elmo402, ::_Elmo402>("Elmo402"),
      DriverRow<::Foscam, ::_Foscam>("Foscam"),
      DriverRow<::FoscamHD, ::_FoscamHD>("FoscamHD"),
      DriverRow<::Grandeye, ::_Grandeye>("Grandeye"),
      DriverRow<::MeritLilin, ::_MeritLilin>("MeritLilin"),
      DriverRow<::Panasonic, ::_Panasonic>("Panasonic"),
      DriverRow<::PanasoniciPro, ::_PanasoniciPro>("PanasoniciPro"),
      DriverRow<::Panogenics, ::_Panogenics>("Panogenics"),
      DriverRow<::Pelco, ::_Pelco>("Pelco"),
      DriverRow<::Quorvane, ::_Quorvane>("Quorvane"),
      DriverRow<::Sanyo, ::_Sanyo, &OwnSanyo>("Sanyo"),
      DriverRow<::Secubest, ::_Secubest>("Secubest"),
      DriverRow<::Sony, ::_Sony>("Sony"),
      DriverRow<::Toshiba, ::_Toshiba>("Toshiba"),
      DriverRow<::Toshiba2, ::_Toshiba2>("Toshiba2"),
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
