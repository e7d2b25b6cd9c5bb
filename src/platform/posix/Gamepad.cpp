#include "platform/Gamepad.h"

#include <fcntl.h>
#include <linux/input.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <utility>

namespace ptzd {

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::seconds SearchPause(1);
/// Of half an axis: sticks do not come back to their middle exactly.
constexpr float DeadZone = 0.15F;
constexpr int BitsPerWord = sizeof(long) * 8;

struct Axis {
  unsigned short Code;
  float GamepadSticks::*Stick;
  float Sign;  ///< devices count downwards
};
constexpr Axis Axes[] = {{ABS_X, &GamepadSticks::LeftX, 1},
                         {ABS_Y, &GamepadSticks::LeftY, -1},
                         {ABS_RX, &GamepadSticks::RightX, 1},
                         {ABS_RY, &GamepadSticks::RightY, -1}};

constexpr std::pair<unsigned short, GamepadButton> Buttons[] = {{BTN_A, GamepadButton::A},
                                                                {BTN_B, GamepadButton::B},
                                                                {BTN_X, GamepadButton::X},
                                                                {BTN_Y, GamepadButton::Y},
                                                                {BTN_TL, GamepadButton::LeftShoulder},
                                                                {BTN_TR, GamepadButton::RightShoulder},
                                                                {BTN_SELECT, GamepadButton::Select},
                                                                {BTN_START, GamepadButton::Start}};

/// Whether a bit is set in words of hexadecimal digits, the highest first, as the system writes them.
bool HasBit(const std::filesystem::path& file, int bit) {
  std::ifstream stream(file);
  std::vector<unsigned long> words;
  for (unsigned long word = 0; stream >> std::hex >> word;) words.push_back(word);
  const auto index = static_cast<std::size_t>(bit / BitsPerWord);
  return index < words.size() && (words[words.size() - 1 - index] >> (bit % BitsPerWord) & 1) != 0;
}

/// Of the devices that everybody is told about, also those that may not be read.
bool IsGamepad(const std::filesystem::path& description) {
  const auto capabilities = description / "device" / "capabilities";
  return HasBit(capabilities / "key", BTN_GAMEPAD) && HasBit(capabilities / "abs", ABS_X);
}

}  // namespace

class Gamepad::Reader {
 public:
  explicit Reader(GamepadPlaces places) : Places_(std::move(places)) {}
  explicit Reader(std::string device) : Device_(std::move(device)) {}
  ~Reader() { Close(); }

  void Poll() {
    if (File_ < 0 && steady_clock::now() >= NextSearch_) {
      NextSearch_ = steady_clock::now() + SearchPause;
      Search();
    }
    if (File_ >= 0) Read();
  }

  GamepadSticks Sticks;
  std::vector<GamepadButton> Pressed;
  std::string Name, Problem;
  bool IsOpen() const { return File_ >= 0; }

 private:
  void Search() {
    Problem.clear();
    if (!Device_.empty()) return Open(Device_);
    std::vector<std::filesystem::path> found;
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator(Places_.Descriptions, none))
      if (entry.path().filename().string().starts_with("event") && IsGamepad(entry.path()))
        found.push_back(entry.path().filename());
    std::ranges::sort(found);
    for (const auto& name : found) {
      Open(std::filesystem::path(Places_.Devices) / name);
      if (IsOpen()) return;
    }
  }

  void Open(const std::string& path) {
    File_ = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (File_ < 0) {
      Problem = path + ": " + std::strerror(errno);
      return;
    }
    Problem.clear();
    char name[256] = "";
    Name = ioctl(File_, EVIOCGNAME(sizeof(name) - 1), name) >= 0 && name[0] != 0 ? name : path;
    Release();
    ReadAxes();
  }

  void Close() {
    if (File_ >= 0) close(File_);
    File_ = -1;
    Release();
    Name.clear();
  }

  void Release() {
    Sticks = {};
    Next_ = {};
    Dropped_ = false;
  }

  void Read() {
    input_event events[64];
    while (true) {
      const auto got = read(File_, events, sizeof(events));
      if (got < 0 && errno == EINTR) continue;
      if (got < 0 && errno == EAGAIN) return;
      if (got < 0) return Close();     // unplugged
      if (got == 0) return Release();  // nobody writes to the pipe, or no more
      for (std::size_t i = 0; i < static_cast<std::size_t>(got) / sizeof(input_event); ++i) Take(events[i]);
    }
  }

  /// What belongs together ends with a report.
  void Take(const input_event& event) {
    if (event.type == EV_SYN && event.code == SYN_DROPPED) Dropped_ = true;
    if (event.type == EV_SYN && event.code == SYN_REPORT) {
      // Of what was lost nobody tells more than how the device is now.
      if (std::exchange(Dropped_, false)) {
        Next_ = {};
        ReadAxes();
      }
      Sticks = Next_;
    }
    if (Dropped_) return;
    if (event.type == EV_ABS) Turn(event.code, event.value);
    if (event.type == EV_KEY && event.value == 1)
      for (const auto& [code, button] : Buttons)
        if (code == event.code) Pressed.push_back(button);
    if (event.type == EV_KEY && event.value != 2) PressCross(event.code, event.value);
  }

  void Turn(unsigned short code, int value) {
    if (code == ABS_HAT0X) Next_.CrossX = std::clamp(value, -1, 1);
    if (code == ABS_HAT0Y) Next_.CrossY = std::clamp(-value, -1, 1);
    for (const auto& axis : Axes)
      if (axis.Code == code) Next_.*axis.Stick = axis.Sign * Deflection(RangeOf(code), value);
  }

  void PressCross(unsigned short code, int value) {
    if (code == BTN_DPAD_LEFT) Next_.CrossX = -value;
    if (code == BTN_DPAD_RIGHT) Next_.CrossX = value;
    if (code == BTN_DPAD_DOWN) Next_.CrossY = -value;
    if (code == BTN_DPAD_UP) Next_.CrossY = value;
  }

  std::optional<input_absinfo> Ask(unsigned short code) const {
    input_absinfo info{};
    if (ioctl(File_, EVIOCGABS(code), &info) < 0) return std::nullopt;
    return info;
  }

  input_absinfo RangeOf(unsigned short code) const {
    const auto info = Ask(code);
    return info && info->maximum > info->minimum
               ? *info
               : input_absinfo{.minimum = -32767, .maximum = 32767, .fuzz = 0, .flat = 0, .resolution = 0};
  }

  void ReadAxes() {
    for (const auto code :
         std::initializer_list<unsigned short>{ABS_X, ABS_Y, ABS_RX, ABS_RY, ABS_HAT0X, ABS_HAT0Y})
      if (const auto info = Ask(code)) Turn(code, info->value);
    Sticks = Next_;
  }

  /// Grows from 0 at the end of the dead zone.
  static float Deflection(const input_absinfo& range, int value) {
    const float half = (static_cast<float>(range.maximum) - static_cast<float>(range.minimum)) / 2;
    const float middle = static_cast<float>(range.minimum) + half;
    const float part = std::clamp((static_cast<float>(value) - middle) / half, -1.0F, 1.0F);
    const float dead = std::clamp(static_cast<float>(range.flat) / half, DeadZone, 0.9F);
    if (std::fabs(part) <= dead) return 0;
    return std::copysign((std::fabs(part) - dead) / (1 - dead), part);
  }

  const GamepadPlaces Places_;
  const std::string Device_;
  int File_ = -1;
  steady_clock::time_point NextSearch_;
  GamepadSticks Next_;  ///< of the report that is coming in
  bool Dropped_ = false;
};

Gamepad::Gamepad(GamepadPlaces places) : Reader_(std::make_unique<Reader>(std::move(places))) {}
Gamepad::Gamepad(std::string device) : Reader_(std::make_unique<Reader>(std::move(device))) {}
Gamepad::~Gamepad() = default;

void Gamepad::Poll() { Reader_->Poll(); }
const GamepadSticks& Gamepad::Sticks() const { return Reader_->Sticks; }
std::vector<GamepadButton> Gamepad::TakePressed() { return std::exchange(Reader_->Pressed, {}); }
bool Gamepad::IsThere() const { return Reader_->IsOpen(); }
const std::string& Gamepad::Name() const { return Reader_->Name; }
const std::string& Gamepad::Problem() const { return Reader_->Problem; }

}  // namespace ptzd
