// The interfaces called directly: every member succeeds without doing anything and answers nothing.

#include <ptzd/PTZContinuousControl.h>
#include <ptzd/PTZDevice.h>
#include <ptzd/PTZDevice2.h>
#include <ptzd/PTZMoveInImage.h>
#include <ptzd/PTZNamedPresets.h>
#include <ptzd/PTZOptions.h>

namespace ptzd {

ptzd::Capabilities PTZDevice::Capabilities() { return {}; }
bool PTZDevice::Connect(std::span<const std::uint8_t>) { return false; }
bool PTZDevice::Connected() { return false; }
float PTZDevice::Pan() { return 0; }
float PTZDevice::Tilt() { return 0; }
bool PTZDevice::Move(Directions, float) { return false; }
bool PTZDevice::MoveTo(float, float) { return false; }
bool PTZDevice::Zoom(Zooms) { return false; }
bool PTZDevice::Iris(ptzd::Iris) { return false; }
bool PTZDevice::Focus(ptzd::Focus) { return false; }
Variant PTZDevice::Disconnect() { return {}; }
bool PTZDevice::MoveBoth(float, float) { return false; }
std::int32_t PTZDevice::PresetCount() { return 0; }
bool PTZDevice::PresetGoto(std::int32_t) { return false; }
bool PTZDevice::PresetSave(std::int32_t) { return false; }
void PTZDevice::SetPanTilt(float, float) {}
bool PTZDevice::Home() { return false; }

ptzd::Capabilities PTZDevice2::Capabilities() { return {}; }
bool PTZDevice2::Connect(std::span<const std::uint8_t>) { return false; }
bool PTZDevice2::Connected() { return false; }
float PTZDevice2::Pan() { return 0; }
float PTZDevice2::Tilt() { return 0; }
float PTZDevice2::ZoomLevel() { return 0; }
void PTZDevice2::Move(Directions, float) {}
void PTZDevice2::MoveBoth(float, float) {}
void PTZDevice2::MoveTo(float, float, float) {}
void PTZDevice2::Zoom(Zooms, float) {}
void PTZDevice2::ZoomTo(float) {}
void PTZDevice2::Disconnect() {}

void PTZContinuousControl::ContinuousMove(float, float) {}
void PTZContinuousControl::ContinuousZoom(float) {}
void PTZContinuousControl::StopContinuous() {}

void PTZMoveInImage::MoveInImage(std::int32_t, std::int32_t, std::int32_t, std::int32_t) {}

std::vector<PTZNamedPreset> PTZNamedPresets::GetNamedPresets() { return {}; }
void PTZNamedPresets::GotoNamedPreset(const std::string&) {}

std::optional<PTZOption> PTZOptions::Item(const Variant&) { return std::nullopt; }
std::int32_t PTZOptions::Count() { return 0; }
std::vector<PTZOption> PTZOptions::NewEnum() { return {}; }

}  // namespace ptzd
