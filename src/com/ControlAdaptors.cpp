#include "com/ControlAdaptors.h"

#include "com/Collection.h"
#include "com/Records.h"

namespace ptzd::com {

namespace {

enum ::Capabilities Flags(ptzd::Capabilities flags) { return static_cast<enum ::Capabilities>(flags); }

}  // namespace

HRESULT DeviceAdaptor::get_Capabilities(enum ::Capabilities* Result) {
  return Answer(Result, [&] { return Flags(Device_.Capabilities()); });
}
HRESULT DeviceAdaptor::Connect(SAFEARRAY** Options, VARIANT_BOOL* Result) {
  if (!Options) return E_POINTER;
  return Answer(Result, [&] { return Device_.Connect(ByteArray(*Options, "The argument Options")); });
}
HRESULT DeviceAdaptor::get_Connected(VARIANT_BOOL* Result) {
  return Answer(Result, [&] { return Device_.Connected(); });
}
HRESULT DeviceAdaptor::get_Pan(float* Result) {
  return Answer(Result, [&] { return Device_.Pan(); });
}
HRESULT DeviceAdaptor::get_Tilt(float* Result) {
  return Answer(Result, [&] { return Device_.Tilt(); });
}
HRESULT DeviceAdaptor::Move(enum ::Directions Direction, float Angle, VARIANT_BOOL* Result) {
  return Answer(Result, [&] { return Device_.Move(static_cast<ptzd::Directions>(Direction), Angle); });
}
HRESULT DeviceAdaptor::MoveTo(float Pan, float Tilt, VARIANT_BOOL* Result) {
  return Answer(Result, [&] { return Device_.MoveTo(Pan, Tilt); });
}
HRESULT DeviceAdaptor::Zoom(enum ::Zooms ZoomLevel, VARIANT_BOOL* Result) {
  return Answer(Result, [&] { return Device_.Zoom(static_cast<ptzd::Zooms>(ZoomLevel)); });
}
HRESULT DeviceAdaptor::Iris(enum ::Iris IrisLevel, VARIANT_BOOL* Result) {
  return Answer(Result, [&] { return Device_.Iris(static_cast<ptzd::Iris>(IrisLevel)); });
}
HRESULT DeviceAdaptor::Focus(enum ::Focus FocusLevel, VARIANT_BOOL* Result) {
  return Answer(Result, [&] { return Device_.Focus(static_cast<ptzd::Focus>(FocusLevel)); });
}
HRESULT DeviceAdaptor::Disconnect(VARIANT* Result) {
  return Answer(Result, [&] { return Device_.Disconnect(); });
}
HRESULT DeviceAdaptor::MoveBoth(float PanAngle, float TiltAngle, VARIANT_BOOL* Result) {
  return Answer(Result, [&] { return Device_.MoveBoth(PanAngle, TiltAngle); });
}
HRESULT DeviceAdaptor::PresetCount(LONG* Result) {
  return Answer(Result, [&] { return Device_.PresetCount(); });
}
HRESULT DeviceAdaptor::PresetGoto(LONG Preset, VARIANT_BOOL* Result) {
  return Answer(Result, [&] { return Device_.PresetGoto(Preset); });
}
HRESULT DeviceAdaptor::PresetSave(LONG Preset, VARIANT_BOOL* Result) {
  return Answer(Result, [&] { return Device_.PresetSave(Preset); });
}
HRESULT DeviceAdaptor::SetPanTilt(float Pan, float Tilt) {
  return Do([&] { Device_.SetPanTilt(Pan, Tilt); });
}
HRESULT DeviceAdaptor::Home(VARIANT_BOOL* Result) {
  return Answer(Result, [&] { return Device_.Home(); });
}

HRESULT Device2Adaptor::get_Capabilities(enum ::Capabilities* Result) {
  return Answer(Result, [&] { return Flags(Device_.Capabilities()); });
}
HRESULT Device2Adaptor::Connect(SAFEARRAY** Options, VARIANT_BOOL* Result) {
  if (!Options) return E_POINTER;
  return Answer(Result, [&] { return Device_.Connect(ByteArray(*Options, "The argument Options")); });
}
HRESULT Device2Adaptor::get_Connected(VARIANT_BOOL* Result) {
  return Answer(Result, [&] { return Device_.Connected(); });
}
HRESULT Device2Adaptor::get_Pan(float* Result) {
  return Answer(Result, [&] { return Device_.Pan(); });
}
HRESULT Device2Adaptor::get_Tilt(float* Result) {
  return Answer(Result, [&] { return Device_.Tilt(); });
}
HRESULT Device2Adaptor::get_ZoomLevel(float* Result) {
  return Answer(Result, [&] { return Device_.ZoomLevel(); });
}
HRESULT Device2Adaptor::Move(enum ::Directions Direction, float Angle) {
  return Do([&] { Device_.Move(static_cast<ptzd::Directions>(Direction), Angle); });
}
HRESULT Device2Adaptor::MoveBoth(float PanAngle, float TiltAngle) {
  return Do([&] { Device_.MoveBoth(PanAngle, TiltAngle); });
}
HRESULT Device2Adaptor::MoveTo(float Pan, float Tilt, float Zoom) {
  return Do([&] { Device_.MoveTo(Pan, Tilt, Zoom); });
}
HRESULT Device2Adaptor::Zoom(enum ::Zooms Direction, float Amount) {
  return Do([&] { Device_.Zoom(static_cast<ptzd::Zooms>(Direction), Amount); });
}
HRESULT Device2Adaptor::ZoomTo(float Zoom) {
  return Do([&] { Device_.ZoomTo(Zoom); });
}
HRESULT Device2Adaptor::Disconnect() {
  return Do([&] { Device_.Disconnect(); });
}

HRESULT ContinuousControlAdaptor::ContinuousMove(float Pan, float Tilt) {
  return Do([&] { Control_.ContinuousMove(Pan, Tilt); });
}
HRESULT ContinuousControlAdaptor::ContinuousZoom(float Amount) {
  return Do([&] { Control_.ContinuousZoom(Amount); });
}
HRESULT ContinuousControlAdaptor::StopContinuous() {
  return Do([&] { Control_.StopContinuous(); });
}

HRESULT OptionsAdaptor::get_Item(VARIANT vntIndexKey, ::_PTZOption** Result) {
  return Answer(Result, [&] {
    Variant key;
    try {
      key = FromVariant(vntIndexKey);
    } catch (const Error&) {
      // What is neither number nor text is the key of no option, which is no error.
    }
    const auto option = Options_.Item(key);
    return option ? NewOption(*option) : ComPtr<::_PTZOption>();
  });
}
HRESULT OptionsAdaptor::get_Count(LONG* Result) {
  return Answer(Result, [&] { return Options_.Count(); });
}
HRESULT OptionsAdaptor::get_NewEnum(IUnknown** Result) {
  return Answer(Result, [&] {
    auto items = std::make_shared<std::vector<CollectionItem>>();
    for (const auto& option : Options_.NewEnum()) items->push_back({NewOption(option).Get()});
    return NewEnumerator(std::move(items));
  });
}

HRESULT NamedPresetsAdaptor::GetNamedPresets(IDispatch** Result) {
  return Answer(Result, [&] {
    auto items = std::make_shared<std::vector<CollectionItem>>();
    for (const auto& preset : Presets_.GetNamedPresets())
      items->push_back({NewNamedPreset(preset).Get(), Utf16(preset.ID())});
    return NewCollection(std::move(items));
  });
}
HRESULT NamedPresetsAdaptor::GotoNamedPreset(BSTR ID) {
  return Do([&] { Presets_.GotoNamedPreset(Utf8(ID)); });
}

HRESULT MoveInImageAdaptor::MoveInImage(LONG X, LONG Y, LONG Width, LONG Height) {
  return Do([&] { Device_.MoveInImage(X, Y, Width, Height); });
}

}  // namespace ptzd::com
