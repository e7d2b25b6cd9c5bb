#pragma once

/// The control interfaces as COM has them, each over the library's interface of the same name.

#include "com/Contract.h"

#include <ptzd/PTZContinuousControl.h>
#include <ptzd/PTZDevice.h>
#include <ptzd/PTZDevice2.h>
#include <ptzd/PTZMoveInImage.h>
#include <ptzd/PTZNamedPresets.h>
#include <ptzd/PTZOptions.h>
#include "com/Object.h"

namespace ptzd::com {

// Enumerations cross as the numbers they are: a host may hand in any.

class DeviceAdaptor final : public Adaptor<::_PTZDevice> {
 public:
  DeviceAdaptor(Object& object, ptzd::PTZDevice& device) : Adaptor(object), Device_(device) {}

  HRESULT STDMETHODCALLTYPE get_Capabilities(enum ::Capabilities* Result) override;
  HRESULT STDMETHODCALLTYPE Connect(SAFEARRAY** Options, VARIANT_BOOL* Result) override;
  HRESULT STDMETHODCALLTYPE get_Connected(VARIANT_BOOL* Result) override;
  HRESULT STDMETHODCALLTYPE get_Pan(float* Result) override;
  HRESULT STDMETHODCALLTYPE get_Tilt(float* Result) override;
  HRESULT STDMETHODCALLTYPE Move(enum ::Directions Direction, float Angle, VARIANT_BOOL* Result) override;
  HRESULT STDMETHODCALLTYPE MoveTo(float Pan, float Tilt, VARIANT_BOOL* Result) override;
  HRESULT STDMETHODCALLTYPE Zoom(enum ::Zooms ZoomLevel, VARIANT_BOOL* Result) override;
  HRESULT STDMETHODCALLTYPE Iris(enum ::Iris IrisLevel, VARIANT_BOOL* Result) override;
  HRESULT STDMETHODCALLTYPE Focus(enum ::Focus FocusLevel, VARIANT_BOOL* Result) override;
  HRESULT STDMETHODCALLTYPE Disconnect(VARIANT* Result) override;
  HRESULT STDMETHODCALLTYPE MoveBoth(float PanAngle, float TiltAngle, VARIANT_BOOL* Result) override;
  HRESULT STDMETHODCALLTYPE PresetCount(LONG* Result) override;
  HRESULT STDMETHODCALLTYPE PresetGoto(LONG Preset, VARIANT_BOOL* Result) override;
  HRESULT STDMETHODCALLTYPE PresetSave(LONG Preset, VARIANT_BOOL* Result) override;
  HRESULT STDMETHODCALLTYPE SetPanTilt(float Pan, float Tilt) override;
  HRESULT STDMETHODCALLTYPE Home(VARIANT_BOOL* Result) override;

 private:
  ptzd::PTZDevice& Device_;
};

class Device2Adaptor final : public Adaptor<::_PTZDevice2> {
 public:
  Device2Adaptor(Object& object, ptzd::PTZDevice2& device) : Adaptor(object), Device_(device) {}

  HRESULT STDMETHODCALLTYPE get_Capabilities(enum ::Capabilities* Result) override;
  HRESULT STDMETHODCALLTYPE Connect(SAFEARRAY** Options, VARIANT_BOOL* Result) override;
  HRESULT STDMETHODCALLTYPE get_Connected(VARIANT_BOOL* Result) override;
  HRESULT STDMETHODCALLTYPE get_Pan(float* Result) override;
  HRESULT STDMETHODCALLTYPE get_Tilt(float* Result) override;
  HRESULT STDMETHODCALLTYPE get_ZoomLevel(float* Result) override;
  HRESULT STDMETHODCALLTYPE Move(enum ::Directions Direction, float Angle) override;
  HRESULT STDMETHODCALLTYPE MoveBoth(float PanAngle, float TiltAngle) override;
  HRESULT STDMETHODCALLTYPE MoveTo(float Pan, float Tilt, float Zoom) override;
  HRESULT STDMETHODCALLTYPE Zoom(enum ::Zooms Direction, float Amount) override;
  HRESULT STDMETHODCALLTYPE ZoomTo(float Zoom) override;
  HRESULT STDMETHODCALLTYPE Disconnect() override;

 private:
  ptzd::PTZDevice2& Device_;
};

class ContinuousControlAdaptor final : public Adaptor<::_PTZContinuousControl> {
 public:
  ContinuousControlAdaptor(Object& object, ptzd::PTZContinuousControl& control)
      : Adaptor(object), Control_(control) {}

  HRESULT STDMETHODCALLTYPE ContinuousMove(float Pan, float Tilt) override;
  HRESULT STDMETHODCALLTYPE ContinuousZoom(float Amount) override;
  HRESULT STDMETHODCALLTYPE StopContinuous() override;

 private:
  ptzd::PTZContinuousControl& Control_;
};

class OptionsAdaptor final : public Adaptor<::_PTZOptions> {
 public:
  OptionsAdaptor(Object& object, ptzd::PTZOptions& options) : Adaptor(object), Options_(options) {}

  HRESULT STDMETHODCALLTYPE get_Item(VARIANT vntIndexKey, ::_PTZOption** Result) override;
  HRESULT STDMETHODCALLTYPE get_Count(LONG* Result) override;
  HRESULT STDMETHODCALLTYPE get_NewEnum(IUnknown** Result) override;

 private:
  ptzd::PTZOptions& Options_;
};

class NamedPresetsAdaptor final : public Adaptor<::_PTZNamedPresets> {
 public:
  NamedPresetsAdaptor(Object& object, ptzd::PTZNamedPresets& presets) : Adaptor(object), Presets_(presets) {}

  HRESULT STDMETHODCALLTYPE GetNamedPresets(IDispatch** Result) override;
  HRESULT STDMETHODCALLTYPE GotoNamedPreset(BSTR ID) override;

 private:
  ptzd::PTZNamedPresets& Presets_;
};

class MoveInImageAdaptor final : public Adaptor<::_PTZMoveInImage> {
 public:
  MoveInImageAdaptor(Object& object, ptzd::PTZMoveInImage& device) : Adaptor(object), Device_(device) {}

  HRESULT STDMETHODCALLTYPE MoveInImage(LONG X, LONG Y, LONG Width, LONG Height) override;

 private:
  ptzd::PTZMoveInImage& Device_;
};

}  // namespace ptzd::com
