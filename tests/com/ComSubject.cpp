// The contract suite's drivers as COM hosts have them: created from the class table, called through the slots
// of their interfaces. The camera stays the suite's own.

#include <gtest/gtest.h>

#include <algorithm>

#include <ptzd/Error.h>
#include "com/ClassTable.h"
#include "com/Contract.h"
#include "com/Host.h"
#include "com/Values.h"
#include "contract/Subject.h"

namespace ptzd::test {

namespace {

using host::ComPtr;
using host::Value;

/// Raises what a failed call left, as a host sees it.
void Check(HRESULT result) {
  if (SUCCEEDED(result)) return;
  ComPtr<IErrorInfo> error;
  BSTR description = nullptr;
  if (GetErrorInfo(0, &error) == S_OK) error->GetDescription(&description);
  const bool isControl = (static_cast<std::uint32_t>(result) & 0xFFFF0000U) == 0x800A0000U;
  const auto number =
      isControl ? static_cast<std::int32_t>(result & 0xFFFF) : static_cast<std::int32_t>(result);
  const auto text = com::Utf8(description);
  SysFreeString(description);
  throw Error(number, text);
}

/// What a call answers into its last argument.
template <class Result, class Call>
Result Ask(const Call& call) {
  Result result{};
  Check(call(&result));
  return result;
}
template <class Call>
bool AskTruth(const Call& call) {
  return Ask<VARIANT_BOOL>(call) != VARIANT_FALSE;
}

/// What both device interfaces have.
template <class Core, class Interface>
class AnyDevice : public Core {
 public:
  explicit AnyDevice(ComPtr<Interface> camera) : Camera_(std::move(camera)) {}

  ptzd::Capabilities Capabilities() override {
    return static_cast<ptzd::Capabilities>(
        Ask<enum ::Capabilities>([&](auto* r) { return Camera_->get_Capabilities(r); }));
  }
  bool Connect(std::span<const std::uint8_t> options) override {
    auto* bytes = com::NewByteArray({options.begin(), options.end()});
    VARIANT_BOOL connected = VARIANT_FALSE;
    const auto result = Camera_->Connect(&bytes, &connected);
    SafeArrayDestroy(bytes);
    Check(result);
    return connected != VARIANT_FALSE;
  }
  bool Connected() override {
    return AskTruth([&](auto* r) { return Camera_->get_Connected(r); });
  }
  float Pan() override {
    return Ask<float>([&](auto* r) { return Camera_->get_Pan(r); });
  }
  float Tilt() override {
    return Ask<float>([&](auto* r) { return Camera_->get_Tilt(r); });
  }

 protected:
  ComPtr<Interface> Camera_;
};

class Device final : public AnyDevice<PTZDevice, ::_PTZDevice> {
 public:
  using AnyDevice::AnyDevice;

  bool Move(Directions direction, float angle) override {
    return AskTruth(
        [&](auto* r) { return Camera_->Move(static_cast<enum ::Directions>(direction), angle, r); });
  }
  bool MoveTo(float pan, float tilt) override {
    return AskTruth([&](auto* r) { return Camera_->MoveTo(pan, tilt, r); });
  }
  bool Zoom(Zooms level) override {
    return AskTruth([&](auto* r) { return Camera_->Zoom(static_cast<enum ::Zooms>(level), r); });
  }
  bool Iris(ptzd::Iris level) override {
    return AskTruth([&](auto* r) { return Camera_->Iris(static_cast<enum ::Iris>(level), r); });
  }
  bool Focus(ptzd::Focus level) override {
    return AskTruth([&](auto* r) { return Camera_->Focus(static_cast<enum ::Focus>(level), r); });
  }
  Variant Disconnect() override {
    const auto answer = Ask<Value>([&](auto* r) { return Camera_->Disconnect(r); });
    return com::FromVariant(answer);
  }
  bool MoveBoth(float pan, float tilt) override {
    return AskTruth([&](auto* r) { return Camera_->MoveBoth(pan, tilt, r); });
  }
  std::int32_t PresetCount() override {
    return Ask<LONG>([&](auto* r) { return Camera_->PresetCount(r); });
  }
  bool PresetGoto(std::int32_t preset) override {
    return AskTruth([&](auto* r) { return Camera_->PresetGoto(preset, r); });
  }
  bool PresetSave(std::int32_t preset) override {
    return AskTruth([&](auto* r) { return Camera_->PresetSave(preset, r); });
  }
  void SetPanTilt(float pan, float tilt) override { Check(Camera_->SetPanTilt(pan, tilt)); }
  bool Home() override {
    return AskTruth([&](auto* r) { return Camera_->Home(r); });
  }
};

class Device2 final : public AnyDevice<PTZDevice2, ::_PTZDevice2> {
 public:
  using AnyDevice::AnyDevice;

  float ZoomLevel() override {
    return Ask<float>([&](auto* r) { return Camera_->get_ZoomLevel(r); });
  }
  void Move(Directions direction, float angle) override {
    Check(Camera_->Move(static_cast<enum ::Directions>(direction), angle));
  }
  void MoveBoth(float pan, float tilt) override { Check(Camera_->MoveBoth(pan, tilt)); }
  void MoveTo(float pan, float tilt, float zoom) override { Check(Camera_->MoveTo(pan, tilt, zoom)); }
  void Zoom(Zooms direction, float amount) override {
    Check(Camera_->Zoom(static_cast<enum ::Zooms>(direction), amount));
  }
  void ZoomTo(float zoom) override { Check(Camera_->ZoomTo(zoom)); }
  void Disconnect() override { Check(Camera_->Disconnect()); }
};

class ContinuousControl final : public PTZContinuousControl {
 public:
  explicit ContinuousControl(ComPtr<::_PTZContinuousControl> camera) : Camera_(std::move(camera)) {}

  void ContinuousMove(float pan, float tilt) override { Check(Camera_->ContinuousMove(pan, tilt)); }
  void ContinuousZoom(float amount) override { Check(Camera_->ContinuousZoom(amount)); }
  void StopContinuous() override { Check(Camera_->StopContinuous()); }

 private:
  ComPtr<::_PTZContinuousControl> Camera_;
};

std::vector<Variant> Copy(SAFEARRAY* values) {
  std::vector<Variant> copies;
  for (LONG i = 0; static_cast<ULONG>(i) < values->rgsabound[0].cElements; ++i) {
    Value value;
    Check(SafeArrayGetElement(values, &i, &value));
    copies.push_back(com::FromVariant(value));
  }
  SafeArrayDestroy(values);
  return copies;
}

PTZOption Copy(::_PTZOption& option) {
  BSTR name = nullptr, description = nullptr;
  LONG type = 0;
  Value value;
  Check(option.get_Name(&name));
  Check(option.get_Description(&description));
  Check(option.get_OType(&type));
  Check(option.get_Default(&value));
  PTZOption copy;
  // A descriptor without a name was never given anything.
  if (SysStringLen(name) != 0)
    copy.Init(com::Utf8(name), com::Utf8(description), static_cast<OptionTypes>(type),
              Copy(Ask<SAFEARRAY*>([&](auto* r) { return option.get_Values(r); })), com::FromVariant(value));
  SysFreeString(name);
  SysFreeString(description);
  return copy;
}

template <class Interface, class Visit>
void ForEach(IUnknown& enumerator, const Visit& visit) {
  ComPtr<IEnumVARIANT> items;
  Check(enumerator.QueryInterface(IID_IEnumVARIANT, &items));
  for (Value value; items->Next(1, &value, nullptr) == S_OK; value = {}) {
    ComPtr<Interface> item;
    Check(value.pdispVal->QueryInterface(__uuidof(Interface), &item));
    visit(*item.Get());
  }
}

class Options final : public PTZOptions {
 public:
  explicit Options(ComPtr<::_PTZOptions> camera) : Camera_(std::move(camera)) {}

  std::optional<PTZOption> Item(const Variant& indexKey) override {
    ComPtr<::_PTZOption> option;
    auto key = com::ToVariant(indexKey);
    Check(Camera_->get_Item(*key, &option));
    if (!option) return std::nullopt;
    return Copy(*option.Get());
  }
  std::int32_t Count() override {
    return Ask<LONG>([&](auto* r) { return Camera_->get_Count(r); });
  }
  std::vector<PTZOption> NewEnum() override {
    ComPtr<IUnknown> enumerator;
    Check(Camera_->get_NewEnum(&enumerator));
    std::vector<PTZOption> options;
    ForEach<::_PTZOption>(*enumerator.Get(), [&](auto& option) { options.push_back(Copy(option)); });
    return options;
  }

 private:
  ComPtr<::_PTZOptions> Camera_;
};

class NamedPresets final : public PTZNamedPresets {
 public:
  explicit NamedPresets(ComPtr<::_PTZNamedPresets> camera) : Camera_(std::move(camera)) {}

  std::vector<PTZNamedPreset> GetNamedPresets() override {
    ComPtr<IDispatch> collection;
    Check(Camera_->GetNamedPresets(&collection));
    Value enumerator;
    DISPPARAMS none{};
    Check(collection->Invoke(DISPID_NEWENUM, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYGET, &none,
                             &enumerator, nullptr, nullptr));
    std::vector<PTZNamedPreset> presets;
    ForEach<::_PTZNamedPreset>(*enumerator.punkVal, [&](auto& preset) {
      BSTR id = nullptr, name = nullptr;
      Check(preset.get_ID(&id));
      Check(preset.get_Name(&name));
      presets.emplace_back(Ask<LONG>([&](auto* r) { return preset.get_Index(r); }), com::Utf8(id),
                           com::Utf8(name));
      SysFreeString(id);
      SysFreeString(name);
    });
    return presets;
  }
  void GotoNamedPreset(const std::string& id) override {
    auto* text = com::NewBstr(id);
    const auto result = Camera_->GotoNamedPreset(text);
    SysFreeString(text);
    Check(result);
  }

 private:
  ComPtr<::_PTZNamedPresets> Camera_;
};

struct ComHost {
  std::optional<Device> TheDevice;
  std::optional<Device2> TheDevice2;
  std::optional<ContinuousControl> Continuous;
  std::optional<Options> TheOptions;
  std::optional<NamedPresets> Presets;
};

template <class Interface, class Proxy>
Proxy* Adopt(IUnknown& object, std::optional<Proxy>& proxy) {
  ComPtr<Interface> found;
  if (FAILED(object.QueryInterface(__uuidof(Interface), &found))) return nullptr;
  return &proxy.emplace(std::move(found));
}

}  // namespace

Subject CreateSubject(const DriverClass& driver, const Platform& platform) {
  const auto classes = com::CreatableClasses();
  const auto row = std::ranges::find_if(classes, [&](const auto& c) { return c.ProgID() == driver.ProgID; });
  if (row == classes.end()) throw std::logic_error(std::string(driver.ProgID) + " is no class");
  const auto object = row->Create(*row, platform);
  auto hosted = std::make_shared<ComHost>();
  Subject subject{.Owner = hosted};
  subject.Device = Adopt<::_PTZDevice>(*object.Get(), hosted->TheDevice);
  subject.Device2 = Adopt<::_PTZDevice2>(*object.Get(), hosted->TheDevice2);
  subject.Continuous = Adopt<::_PTZContinuousControl>(*object.Get(), hosted->Continuous);
  subject.Options = Adopt<::_PTZOptions>(*object.Get(), hosted->TheOptions);
  subject.NamedPresets = Adopt<::_PTZNamedPresets>(*object.Get(), hosted->Presets);
  ComPtr<::_PTZMoveInImage> inImage;
  subject.MovesInImage = SUCCEEDED(object->QueryInterface(__uuidof(::_PTZMoveInImage), &inImage));
  return subject;
}

}  // namespace ptzd::test
