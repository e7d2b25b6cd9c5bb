#pragma once

#include <chrono>
#include <optional>
#include <string_view>
#include <vector>

namespace ptzctl {

/// Keys that type no character; above all characters.
enum Key : char32_t {
  KeyNone = 0,
  KeyEscape = 27,
  KeyUp = 0x110000,
  KeyDown,
  KeyLeft,
  KeyRight,
  KeyUpLeft,
  KeyUpRight,
  KeyDownLeft,
  KeyDownRight,
  KeyMiddle,
  KeyPageUp,
  KeyPageDown,
  KeyZoomIn,
  KeyZoomOut,
  // What a terminal tells besides.
  KeyFocusIn,
  KeyFocusOut,
  KeyOffersProtocol,  ///< it can tell presses, repeats and releases apart
};

struct KeyEvent {
  enum class Kind { Press, Repeat, Release };

  /// What is typed, or a `Key`: '+' whatever has to be held for it. Of a release the key alone: '='.
  char32_t Code = KeyNone;
  Kind What = Kind::Press;
  bool Control = false, Shift = false;
  char32_t Plain = KeyNone;  ///< what the key types without others; the same at its press and its release
  bool Told = false;         ///< what it is was told, not guessed: a release will follow
};

/// What a control sequence means, without the escape that begins it: "[1;1:3A", "OP". Nothing for one that is
/// of no use here.
std::optional<KeyEvent> ReadControlSequence(std::string_view sequence);

/// Where something is held to: -1, 0 or 1, positive to the right, up and in.
struct Deflection {
  int Pan = 0, Tilt = 0, Zoom = 0;

  bool IsNone() const { return Pan == 0 && Tilt == 0 && Zoom == 0; }
  bool operator==(const Deflection&) const = default;
};

/// Which keys are held down. Most terminals tell only that a key was pressed, and again while it repeats:
/// then it is held for a time behind each.
class HeldKeys {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// Behind the first press: systems begin to repeat after 250 to 660 ms.
  static constexpr std::chrono::milliseconds FirstHold{750};
  /// Behind each repeat: the slowest usual ones come every 92 ms.
  static constexpr std::chrono::milliseconds RepeatHold{250};
  /// Two keys pressed within this time are meant together.
  static constexpr std::chrono::milliseconds Together{80};
  /// Where the terminal tells releases: keys repeat, so a keyboard of which nothing is heard for longer is
  /// not there any more.
  static constexpr std::chrono::milliseconds Silence{2000};

  enum class Change { None, Begins, GoesOn };
  /// What it makes of the key: `None` also at its release.
  Change Take(const KeyEvent& event, const Deflection& to, Time now);
  Deflection At(Time now) const;
  /// They are held no more, and their repeats are not heeded.
  void LetGo() { Held_.clear(); }

 private:
  struct HeldKey {
    char32_t Code;
    Deflection To;
    Time Pressed, Ends;
    bool Repeats = false;
  };
  HeldKey* Find(char32_t code, Time now);
  Change TakeTold(const KeyEvent& event, const Deflection& to, Time now);
  Change TakeGuessed(const KeyEvent& event, const Deflection& to, Time now);

  std::vector<HeldKey> Held_;  ///< the latest behind
};

}  // namespace ptzctl
