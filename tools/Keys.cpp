#include "Keys.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace ptzctl {

namespace {

using Kind = KeyEvent::Kind;

constexpr char32_t FirstKeypadDigit = 57399;
constexpr int ShiftBit = 1, ControlBit = 4, OthersBits = 2 | 8 | 16 | 32;  // Alt, Super, Hyper, Meta

/// Keys of the number pad and keys without a character, as terminals number them.
constexpr std::pair<char32_t, Key> Numbered[] = {
    {57412, KeyZoomOut},
    {57413, KeyZoomIn},
    {57417, KeyLeft},
    {57418, KeyRight},
    {57419, KeyUp},
    {57420, KeyDown},
    {57421, KeyUpRight},
    {57422, KeyDownRight},
    {57423, KeyUpLeft},
    {57424, KeyDownLeft},
    {57427, KeyMiddle},
    {FirstKeypadDigit + 1, KeyDownLeft},
    {FirstKeypadDigit + 2, KeyDown},
    {FirstKeypadDigit + 3, KeyDownRight},
    {FirstKeypadDigit + 4, KeyLeft},
    {FirstKeypadDigit + 5, KeyMiddle},
    {FirstKeypadDigit + 6, KeyRight},
    {FirstKeypadDigit + 7, KeyUpLeft},
    {FirstKeypadDigit + 8, KeyUp},
    {FirstKeypadDigit + 9, KeyUpRight},
};
constexpr std::pair<char, Key> Lettered[] = {{'A', KeyUp},     {'B', KeyDown},    {'C', KeyRight},
                                             {'D', KeyLeft},   {'H', KeyUpLeft},  {'F', KeyDownLeft},
                                             {'E', KeyMiddle}, {'I', KeyFocusIn}, {'O', KeyFocusOut}};
constexpr std::pair<int, Key> Tilded[] = {{1, KeyUpLeft},   {7, KeyUpLeft}, {4, KeyDownLeft},
                                          {8, KeyDownLeft}, {5, KeyPageUp}, {6, KeyPageDown}};

template <typename From, std::size_t Count>
char32_t Find(const std::pair<From, Key> (&rows)[Count], From from) {
  for (const auto& [code, key] : rows)
    if (code == from) return key;
  return KeyNone;
}

/// "97:65;2:3;65" as {{97, 65}, {2, 3}, {65}}; an absent number is 0.
std::vector<std::vector<int>> Numbers(std::string_view text) {
  std::vector<std::vector<int>> fields{{0}};
  while (!text.empty()) {
    const char first = text.front();
    if (first == ';') fields.push_back({0});
    if (first == ':') fields.back().push_back(0);
    if (first == ';' || first == ':') {
      text.remove_prefix(1);
      continue;
    }
    const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), fields.back().back());
    if (problem != std::errc()) return {};
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  }
  return fields;
}

int At(const std::vector<std::vector<int>>& fields, std::size_t field, std::size_t part) {
  return field < fields.size() && part < fields[field].size() ? fields[field][part] : 0;
}

}  // namespace

std::optional<KeyEvent> ReadControlSequence(std::string_view sequence) {
  if (sequence.size() < 2) return std::nullopt;
  const char last = sequence.back();
  auto inner = sequence.substr(1, sequence.size() - 2);
  if (inner.starts_with('?')) {
    if (last != 'u') return std::nullopt;
    return KeyEvent{.Code = KeyOffersProtocol, .Plain = KeyOffersProtocol};
  }
  const auto fields = Numbers(inner);
  if (fields.empty()) return std::nullopt;
  KeyEvent event;
  if (last == 'u') {
    const auto code = static_cast<char32_t>(At(fields, 0, 0));
    const auto key = Find(Numbered, code);
    event.Plain = key != KeyNone ? key : code;
    const auto typed = static_cast<char32_t>(At(fields, 2, 0));
    event.Code = key == KeyNone && typed != 0 ? typed : event.Plain;
  } else {
    event.Code = event.Plain = last == '~' ? Find(Tilded, At(fields, 0, 0)) : Find(Lettered, last);
  }
  if (event.Code == KeyNone) return std::nullopt;
  if (const int modifiers = At(fields, 1, 0); modifiers != 0) {
    event.Shift = ((modifiers - 1) & ShiftBit) != 0;
    event.Control = ((modifiers - 1) & ControlBit) != 0;
    if (((modifiers - 1) & OthersBits) != 0) return std::nullopt;
  }
  const int kind = At(fields, 1, 1);
  event.What = kind == 3 ? Kind::Release : kind == 2 ? Kind::Repeat : Kind::Press;
  return event;
}

HeldKeys::HeldKey* HeldKeys::Find(char32_t code, Time now) {
  std::erase_if(Held_, [now](const HeldKey& key) { return key.Ends <= now; });
  const auto found = std::ranges::find(Held_, code, &HeldKey::Code);
  return found == Held_.end() ? nullptr : &*found;
}

HeldKeys::Change HeldKeys::Take(const KeyEvent& event, const Deflection& to, Time now) {
  return event.Told ? TakeTold(event, to, now) : TakeGuessed(event, to, now);
}

HeldKeys::Change HeldKeys::TakeTold(const KeyEvent& event, const Deflection& to, Time now) {
  auto* known = Find(event.Plain, now);
  for (auto& key : Held_) key.Ends = now + Silence;
  if (event.What == Kind::Release) {
    std::erase_if(Held_, [&](const HeldKey& key) { return key.Code == event.Plain; });
    return Change::None;
  }
  if (known != nullptr) return Change::GoesOn;
  if (event.What == Kind::Repeat || to.IsNone()) return Change::None;
  Held_.push_back({event.Plain, to, now, now + Silence});
  return Change::Begins;
}

HeldKeys::Change HeldKeys::TakeGuessed(const KeyEvent& event, const Deflection& to, Time now) {
  if (to.IsNone()) return Change::None;
  auto* const known = Find(event.Plain, now);
  const auto change = known != nullptr ? Change::GoesOn : Change::Begins;
  const auto ends = now + (known != nullptr ? RepeatHold : FirstHold);
  if (known == nullptr) {
    // Of several keys only the latest repeats: one that was held goes on with it, one that was only
    // touched does not.
    std::erase_if(Held_, [now](const HeldKey& key) { return !key.Repeats && now - key.Pressed > Together; });
    Held_.push_back({event.Plain, to, now, ends});
  } else {
    known->Repeats = true;
  }
  for (auto& key : Held_) key.Ends = ends;
  return change;
}

Deflection HeldKeys::At(Time now) const {
  Deflection all;
  for (const auto& key : Held_) {
    if (key.Ends <= now) continue;
    if (key.To.Pan != 0) all.Pan = key.To.Pan;
    if (key.To.Tilt != 0) all.Tilt = key.To.Tilt;
    if (key.To.Zoom != 0) all.Zoom = key.To.Zoom;
  }
  return all;
}

}  // namespace ptzctl
