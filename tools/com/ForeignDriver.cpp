#include "../ForeignDriver.h"

#include "com/Automation.h"

#include <algorithm>
#include <array>
#include <utility>

#include <ptzd/DriverFactory.h>
#include <ptzd/Error.h>
#include <ptzd/PropertyBag.h>
#include "../Connection.h"
#include "../Words.h"
#include "com/Errors.h"
#include "com/ForeignBag.h"
#include "com/Values.h"
#include "common/Numbers.h"

namespace ptzctl {

namespace {

using namespace ptzd;
using com::ComPtr;
using com::OwnedVariant;

/// The library's interfaces, which other makers' drivers implement from its type library.
constexpr GUID LibraryID = {0x04B52BB1, 0x7DBA, 0x4A29, {0x98, 0xA5, 0x70, 0x71, 0xB2, 0x38, 0x3D, 0xD2}};
constexpr GUID DeviceID = {0xF332AFA5, 0x37BF, 0x44CD, {0xB5, 0x91, 0xC5, 0x03, 0xC6, 0xA7, 0x6B, 0xEF}};
constexpr GUID Device2ID = {0x1B4EA8B6, 0xE257, 0x4482, {0xBE, 0xE8, 0xA0, 0xEB, 0xA8, 0x95, 0xB4, 0xC6}};
constexpr GUID ContinuousControlID = {
    0x74EA15EF, 0xA5ED, 0x4C40, {0x91, 0x74, 0xE5, 0x97, 0xDA, 0xFB, 0x12, 0xFE}};
constexpr WORD LibraryMajor = 1, LibraryMinor = 36;

void UseCOM() {
  static const bool done = SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
  if (!done) throw UsageError("COM cannot be used on this machine");
}

/// One interface of an object, whose members are called by name.
class Members {
 public:
  /// `known` is a member that tells whether an object without the interface has its members all the same.
  Members(IUnknown* object, REFIID interface_, const wchar_t* known) {
    if (SUCCEEDED(object->QueryInterface(interface_, &Pointer_))) {
      ComPtr<ITypeLib> library;
      if (SUCCEEDED(LoadRegTypeLib(LibraryID, LibraryMajor, LibraryMinor, LOCALE_NEUTRAL, &library)))
        library->GetTypeInfoOfGuid(interface_, &Type_);
      if (Type_) return;
    }
    Pointer_.Reset();
    auto* name = const_cast<LPOLESTR>(known);
    DISPID id = DISPID_UNKNOWN;
    ComPtr<IDispatch> dispatch;
    if (SUCCEEDED(object->QueryInterface(IID_PPV_ARGS(&dispatch))) &&
        SUCCEEDED(dispatch->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id)))
      Dispatch_ = dispatch;
  }

  bool Has() const { return Type_ || Dispatch_; }

  template <typename... Arguments>
  OwnedVariant Call(const wchar_t* member, const Arguments&... arguments) const {
    std::array<OwnedVariant, sizeof...(arguments)> values{Value(arguments)...};
    std::array<VARIANT, sizeof...(arguments) + 1> given{};
    std::transform(values.rbegin(), values.rend(), given.begin(), [](OwnedVariant& value) { return *value; });
    return Invoke(member, given.data(), sizeof...(arguments));
  }
  OwnedVariant CallWithBytes(const wchar_t* member, std::span<const std::uint8_t> bytes) const {
    auto* array = com::NewByteArray({bytes.begin(), bytes.end()});
    VARIANT argument;
    VariantInit(&argument);
    V_VT(&argument) = VT_ARRAY | VT_UI1 | VT_BYREF;
    V_ARRAYREF(&argument) = &array;
    const struct Guard {
      SAFEARRAY*& Array;
      ~Guard() { SafeArrayDestroy(Array); }
    } guard{array};
    return Invoke(member, &argument, 1);
  }

 private:
  static OwnedVariant Of(VARTYPE type) {
    OwnedVariant value;
    V_VT(&*value) = type;
    return value;
  }
  static OwnedVariant Value(float number) {
    auto value = Of(VT_R4);
    V_R4(&*value) = number;
    return value;
  }
  static OwnedVariant Value(std::int32_t number) {
    auto value = Of(VT_I4);
    V_I4(&*value) = number;
    return value;
  }
  static OwnedVariant Value(const std::string& text) { return com::ToVariant(text); }

  OwnedVariant Invoke(const wchar_t* member, VARIANT* arguments, UINT count) const {
    constexpr WORD kind = DISPATCH_METHOD | DISPATCH_PROPERTYGET;
    auto* name = const_cast<LPOLESTR>(member);
    DISPID id = DISPID_UNKNOWN;
    const auto found = Type_ ? Type_->GetIDsOfNames(&name, 1, &id)
                             : Dispatch_->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id);
    if (FAILED(found))
      throw com::ComError(found, "The driver lacks the member " + com::Utf8(std::wstring_view(member)));
    DISPPARAMS parameters{arguments, nullptr, count, 0};
    OwnedVariant result;
    EXCEPINFO exception{};
    const auto called =
        Type_ ? Type_->Invoke(Pointer_.Get(), id, kind, &parameters, result.Get(), &exception, nullptr)
              : Dispatch_->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, kind, &parameters, result.Get(),
                                  &exception, nullptr);
    if (FAILED(called)) com::ThrowException(called, exception);
    return result;
  }

  ComPtr<IUnknown> Pointer_;
  ComPtr<ITypeInfo> Type_;      ///< calls the interface itself
  ComPtr<IDispatch> Dispatch_;  ///< of an object that has the members and not the interface
};

template <typename Number>
Number NumberOf(const OwnedVariant& value) {
  return static_cast<Number>(ToDouble(com::FromVariant(*value)));
}

bool BooleanOf(const OwnedVariant& value) {
  // A member that answers nothing did what it was told.
  return value.Type() == VT_EMPTY || ToBoolean(com::FromVariant(*value));
}

class ForeignDevice final : public PTZDevice {
 public:
  explicit ForeignDevice(Members members) : Members_(std::move(members)) {}

  ptzd::Capabilities Capabilities() override {
    return static_cast<ptzd::Capabilities>(NumberOf<std::int32_t>(Members_.Call(L"Capabilities")));
  }
  bool Connect(std::span<const std::uint8_t> options) override {
    return BooleanOf(Members_.CallWithBytes(L"Connect", options));
  }
  bool Connected() override { return BooleanOf(Members_.Call(L"Connected")); }
  float Pan() override { return NumberOf<float>(Members_.Call(L"Pan")); }
  float Tilt() override { return NumberOf<float>(Members_.Call(L"Tilt")); }
  bool Move(Directions direction, float angle) override {
    return BooleanOf(Members_.Call(L"Move", std::int32_t{direction}, angle));
  }
  bool MoveTo(float pan, float tilt) override { return BooleanOf(Members_.Call(L"MoveTo", pan, tilt)); }
  bool Zoom(Zooms zoomLevel) override { return BooleanOf(Members_.Call(L"Zoom", std::int32_t{zoomLevel})); }
  bool Iris(ptzd::Iris irisLevel) override {
    return BooleanOf(Members_.Call(L"Iris", std::int32_t{irisLevel}));
  }
  bool Focus(ptzd::Focus focusLevel) override {
    return BooleanOf(Members_.Call(L"Focus", std::int32_t{focusLevel}));
  }
  Variant Disconnect() override { return com::FromVariant(*Members_.Call(L"Disconnect")); }
  bool MoveBoth(float panAngle, float tiltAngle) override {
    return BooleanOf(Members_.Call(L"MoveBoth", panAngle, tiltAngle));
  }
  std::int32_t PresetCount() override { return NumberOf<std::int32_t>(Members_.Call(L"PresetCount")); }
  bool PresetGoto(std::int32_t preset) override { return BooleanOf(Members_.Call(L"PresetGoto", preset)); }
  bool PresetSave(std::int32_t preset) override { return BooleanOf(Members_.Call(L"PresetSave", preset)); }
  void SetPanTilt(float pan, float tilt) override { Members_.Call(L"SetPanTilt", pan, tilt); }
  bool Home() override { return BooleanOf(Members_.Call(L"Home")); }

 private:
  const Members Members_;
};

class ForeignDevice2 final : public PTZDevice2 {
 public:
  explicit ForeignDevice2(Members members) : Members_(std::move(members)) {}

  float ZoomLevel() override { return NumberOf<float>(Members_.Call(L"ZoomLevel")); }
  void MoveTo(float pan, float tilt, float zoom) override { Members_.Call(L"MoveTo", pan, tilt, zoom); }
  void Zoom(Zooms direction, float amount) override {
    Members_.Call(L"Zoom", std::int32_t{direction}, amount);
  }
  void ZoomTo(float zoom) override { Members_.Call(L"ZoomTo", zoom); }

 private:
  const Members Members_;
};

class ForeignContinuousControl final : public PTZContinuousControl {
 public:
  explicit ForeignContinuousControl(Members members) : Members_(std::move(members)) {}

  void ContinuousMove(float pan, float tilt) override { Members_.Call(L"ContinuousMove", pan, tilt); }
  void ContinuousZoom(float amount) override { Members_.Call(L"ContinuousZoom", amount); }
  void StopContinuous() override { Members_.Call(L"StopContinuous"); }

 private:
  const Members Members_;
};

/// "2", "true" and "front door" as what they look like.
Variant ValueOf(const std::string& word) {
  constexpr std::size_t mostDigits = 9;
  const auto digits = word.find_first_not_of('-') == 1 ? word.substr(1) : word;
  if (!digits.empty() && digits.size() <= mostDigits &&
      digits.find_first_not_of("0123456789") == std::string::npos)
    return ReadWholeNumber("-o", word);
  if (word == "True" || word == "true") return true;
  if (word == "False" || word == "false") return false;
  return word;
}

}  // namespace

bool IsForeign(const Invocation& invocation) {
  if (invocation.Driver.empty()) return false;
  if (!invocation.ByCOM &&
      (FindDriverClass(invocation.Driver) || FindDriverClass("QVPTZ." + invocation.Driver)))
    return false;
  UseCOM();
  CLSID identifier;
  const bool registered = SUCCEEDED(CLSIDFromProgID(com::Utf16(invocation.Driver).c_str(), &identifier));
  if (!registered && invocation.ByCOM)
    throw UsageError("--com: no class " + Printable(invocation.Driver) + " is registered for programs of " +
                     std::to_string(8 * sizeof(void*)) + " bits");
  return registered;
}

ForeignOptions ForeignOptionsOf(const Invocation& invocation) {
  std::vector<std::pair<std::string, Variant>> options;
  for (const auto& option : invocation.Options) {
    const auto sign = option.find('=');
    if (sign == std::string::npos || sign == 0)
      throw UsageError("-o " + Printable(option) + ": an option has the form Key=Value");
    options.emplace_back(option.substr(0, sign), ValueOf(option.substr(sign + 1)));
  }
  if (!invocation.Address.empty()) options.emplace_back("Address", CheckedAddress(invocation.Address));
  if (!invocation.Line.empty()) options.emplace_back("COMPort", ReadWholeNumber("--line", invocation.Line));

  ForeignOptions foreign;
  PropertyBag bag;
  for (const auto& [name, value] : options) {
    bag.WriteProperty(name, value);
    if (name == "Address") foreign.Address = ToText(value);
  }
  foreign.Contents = com::MakeForeignContents(options).value_or(bag.Contents());
  return foreign;
}

DriverUnderTest MakeForeignDriver(const std::string& progID) {
  UseCOM();
  CLSID identifier;
  com::Check(CLSIDFromProgID(com::Utf16(progID).c_str(), &identifier), "The driver is not registered");
  ComPtr<IUnknown> object;
  com::Check(CoCreateInstance(identifier, nullptr, CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER,
                              IID_PPV_ARGS(&object)),
             "The driver cannot be created");
  DriverUnderTest driver;
  Members device(object.Get(), DeviceID, L"Connect");
  if (!device.Has())
    throw UsageError("--driver: the class " + progID + " is no camera driver: it has no Connect");
  driver.Device = std::make_shared<ForeignDevice>(std::move(device));
  if (Members members(object.Get(), Device2ID, L"ZoomTo"); members.Has())
    driver.Device2 = std::make_shared<ForeignDevice2>(std::move(members));
  if (Members members(object.Get(), ContinuousControlID, L"ContinuousMove"); members.Has())
    driver.Continuous = std::make_shared<ForeignContinuousControl>(std::move(members));
  return driver;
}

}  // namespace ptzctl
