#include "tools/Keys.h"

#include <gtest/gtest.h>

#include <string_view>

namespace ptzctl {
namespace {

using namespace std::chrono_literals;
using Kind = KeyEvent::Kind;

constexpr Deflection Up{0, 1, 0}, Right{1, 0, 0}, In{0, 0, 1}, None{};

KeyEvent Event(char32_t code, Kind kind, bool told) {
  return {.Code = code, .What = kind, .Plain = code, .Told = told};
}

TEST(ControlSequences, MeanKeys) {
  const struct {
    std::string_view Sequence;
    char32_t Code, Plain;
    Kind What;
    bool Control, Shift;
  } rows[] = {
      {"[A", KeyUp, KeyUp, Kind::Press, false, false},
      {"OD", KeyLeft, KeyLeft, Kind::Press, false, false},
      {"[1;1:3A", KeyUp, KeyUp, Kind::Release, false, false},
      {"[1;129:2B", KeyDown, KeyDown, Kind::Repeat, false, false},  // NumLock is on
      {"[5;1:1~", KeyPageUp, KeyPageUp, Kind::Press, false, false},
      {"[57405;129;54u", KeyRight, KeyRight, Kind::Press, false, false},  // the pad's digits are directions
      {"[57413u", KeyZoomIn, KeyZoomIn, Kind::Press, false, false},
      {"[61:43;2;43u", '+', '=', Kind::Press, false, true},
      {"[61;1:3u", '=', '=', Kind::Release, false, false},  // of what began as a plus
      {"[49;2;33u", '!', '1', Kind::Press, false, true},
      {"[38;2;49u", '1', '&', Kind::Press, false, true},  // a layout whose digits need Shift
      {"[99;5u", 'c', 'c', Kind::Press, true, false},
      {"[27u", KeyEscape, KeyEscape, Kind::Press, false, false},
      {"[I", KeyFocusIn, KeyFocusIn, Kind::Press, false, false},
      {"[?0u", KeyOffersProtocol, KeyOffersProtocol, Kind::Press, false, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Sequence);
    const auto event = ReadControlSequence(row.Sequence);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->Code, row.Code);
    EXPECT_EQ(event->Plain, row.Plain);
    EXPECT_EQ(event->What, row.What);
    EXPECT_EQ(event->Control, row.Control);
    EXPECT_EQ(event->Shift, row.Shift);
  }
  // Also what terminals answer to others, and keys with Alt.
  for (const auto* other : {"[", "[?62;22c", "[24;80R", "[200~", "[99999999999u", "[1;3A", "[u"})
    EXPECT_FALSE(ReadControlSequence(other)) << other;
}

class GuessedKeys : public testing::Test {
 protected:
  void Press(char32_t code, const Deflection& to) { Keys_.Take(Event(code, Kind::Press, false), to, Now_); }
  Deflection After(std::chrono::milliseconds time) { return Keys_.At(Now_ += time); }

  HeldKeys Keys_;
  HeldKeys::Time Now_{};
};

TEST_F(GuessedKeys, DoNotStutterBeforeRepeatsBegin) {
  Press(KeyUp, Up);
  EXPECT_EQ(After(660ms), Up);  // the longest usual delay
  Press(KeyUp, Up);
  EXPECT_EQ(After(92ms), Up);  // the slowest usual rate
  Press(KeyUp, Up);
  EXPECT_EQ(After(HeldKeys::RepeatHold), None);
}

TEST_F(GuessedKeys, JoinWhatIsHeldButNotWhatWasTouched) {
  Press(KeyUp, Up);
  After(50ms);
  Press(KeyRight, Right);  // together
  EXPECT_EQ(After(500ms), (Deflection{1, 1, 0}));
  Press('+', In);  // neither repeated, so neither is held
  EXPECT_EQ(After(10ms), In);
  After(400ms);
  Press('+', In);
  After(40ms);
  Press(KeyRight, Right);  // that one repeated
  EXPECT_EQ(After(600ms), (Deflection{1, 0, 1}));
}

TEST(ToldKeys, AreHeldUntilTheyAreReleasedOrTheKeyboardIsSilent) {
  HeldKeys keys;
  HeldKeys::Time now{};
  const auto take = [&](char32_t code, Kind kind, const Deflection& to) {
    return keys.Take(Event(code, kind, true), to, now);
  };
  EXPECT_EQ(take(KeyUp, Kind::Press, Up), HeldKeys::Change::Begins);
  take(KeyRight, Kind::Press, Right);
  now += 1900ms;
  EXPECT_EQ(take(KeyRight, Kind::Repeat, Right), HeldKeys::Change::GoesOn);
  now += 1900ms;
  EXPECT_EQ(keys.At(now), (Deflection{1, 1, 0}));
  take(KeyRight, Kind::Release, Right);
  EXPECT_EQ(keys.At(now), Up);
  EXPECT_EQ(keys.At(now + HeldKeys::Silence), None);
  keys.LetGo();
  EXPECT_EQ(take(KeyUp, Kind::Repeat, Up), HeldKeys::Change::None);  // stopped; the key is still down
  EXPECT_EQ(keys.At(now), None);
}

}  // namespace
}  // namespace ptzctl
