#pragma once

#include <cstdint>

namespace ptzd {

// The values are part of the contract with hosts. Any 32-bit value may come from a host, also one without a
// name.

/// Bit flags of what a driver can do. Two are deliberately no single bits: full zoom includes zoom, and
/// automatic focus is the bits of pan and automatic iris, so that hosts test `CapabilityAutoFocus2` instead.
enum Capabilities : std::int32_t {
  CapabilityPan = 1,
  CapabilityTilt = 2,
  CapabilityZoom = 4,
  CapabilityIris = 8,
  CapabilityFocus = 16,
  CapabilityPreset = 32,        ///< numbered presets
  CapabilityHome = 64,          ///< `Home` is meaningful
  CapabilityFullZoom = 132,     ///< absolute zoom
  CapabilityAutoIris = 256,     ///< automatic iris
  CapabilityAutoFocus = 257,    ///< automatic focus
  CapabilityAutoFocus2 = 512,   ///< automatic focus
  CapabilityMultiport = 65536,  ///< one address serves several cameras, chosen by the option Port
  CapabilityContinuousMove = 131072,
  CapabilityExtendedOptions = 262144,   ///< the driver implements `PTZOptions`
  CapabilityNoAddress = 524288,         ///< needs no network address (serial lines)
  CapabilityRelativeControl = 1048576,  ///< only relative moves
  CapabilitySimpleControl = 2097152,    ///< only simple direction moves
  CapabilityContinuousZoom = 4194304,
  CapabilityNamedPresets = 8388608,  ///< the driver implements `PTZNamedPresets`
  CapabilityMoveInImage = 16777216,  ///< the driver implements `PTZMoveInImage`
};

/// Up 1, down 2, left 4, right 8; a diagonal is the OR of two.
enum Directions : std::int32_t {
  DirectionUp = 1,
  DirectionDown = 2,
  DirectionLeft = 4,
  DirectionRight = 8,
  DirectionUpLeft = 5,
  DirectionUpRight = 9,
  DirectionDownLeft = 6,
  DirectionDownRight = 10,
};

enum Zooms : std::int32_t { ZoomIn = 1, ZoomOut = 2 };

enum Iris : std::int32_t { IrisAuto = 0, IrisOpen = 1, IrisClose = 2 };

enum Focus : std::int32_t { FocusAuto = 0, FocusNear = 1, FocusFar = 2 };

/// Numbers of the errors that drivers raise. An incapable device and an unknown one share theirs.
enum PTZErrors : std::int32_t {
  PTZErrorBase = 17000,
  PTZErrorConnectionFailed = 17001,
  PTZErrorUnrecognisedDevice = 17002,
  PTZErrorPTZIncapable = 17002,
  PTZErrorNoAddressSpecified = 17003,
  PTZErrorAuthenticationFailure = 17004,
};

// The flags combine within their own type.
constexpr Capabilities operator|(Capabilities a, Capabilities b) {
  return static_cast<Capabilities>(static_cast<std::int32_t>(a) | static_cast<std::int32_t>(b));
}
constexpr Capabilities& operator|=(Capabilities& a, Capabilities b) { return a = a | b; }

constexpr Directions operator|(Directions a, Directions b) {
  return static_cast<Directions>(static_cast<std::int32_t>(a) | static_cast<std::int32_t>(b));
}

}  // namespace ptzd
