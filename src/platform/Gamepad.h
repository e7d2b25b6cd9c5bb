#pragma once

#include <memory>
#include <string>
#include <vector>

namespace ptzd {

/// How a gamepad is held: -1 to 1, positive to the right and up; 0 where a stick rests or is next to that.
struct GamepadSticks {
  float LeftX = 0, LeftY = 0, RightX = 0, RightY = 0;
  int CrossX = 0, CrossY = 0;  ///< the directional pad: -1, 0 or 1
};

enum class GamepadButton { A, B, X, Y, LeftShoulder, RightShoulder, Select, Start };

/// Where the system has its input devices, and what it tells of them to everybody.
struct GamepadPlaces {
  std::string Devices = "/dev/input", Descriptions = "/sys/class/input";
};

/// The gamepad of this machine, if it has one; one that comes later is found, and one that goes is let go of.
/// Nothing here blocks or raises.
class Gamepad {
 public:
  /// The first that is found.
  explicit Gamepad(GamepadPlaces places = {});
  /// One device, or a pipe of what such a device tells, whose sticks go from -32767 to 32767.
  explicit Gamepad(std::string device);
  ~Gamepad();
  Gamepad(const Gamepad&) = delete;
  Gamepad& operator=(const Gamepad&) = delete;

  /// Takes what it told since the last call. Looks for one where there is none, at most once a second.
  void Poll();
  const GamepadSticks& Sticks() const;
  /// Buttons that were pressed since the last call, in their order.
  std::vector<GamepadButton> TakePressed();
  bool IsThere() const;
  /// What the device calls itself; of a pipe its path.
  const std::string& Name() const;
  /// Why there is none although there seems to be one: "/dev/input/event5: Permission denied"; else empty.
  const std::string& Problem() const;

 private:
  class Reader;
  std::unique_ptr<Reader> Reader_;
};

}  // namespace ptzd
