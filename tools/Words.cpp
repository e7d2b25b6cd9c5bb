#include "Words.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iomanip>
#include <iterator>
#include <limits>
#include <optional>
#include <sstream>
#include <utility>

#include "common/ASCII.h"
#include "common/Numbers.h"

namespace ptzctl {

namespace {

using namespace ptzd;

template <typename Value>
struct Word {
  std::string_view Text;
  Value Means;
};

constexpr Word<Directions> DirectionWords[] = {{"up", DirectionUp},
                                               {"down", DirectionDown},
                                               {"left", DirectionLeft},
                                               {"right", DirectionRight},
                                               {"up-left", DirectionUpLeft},
                                               {"up-right", DirectionUpRight},
                                               {"down-left", DirectionDownLeft},
                                               {"down-right", DirectionDownRight}};
constexpr Word<Zooms> ZoomWords[] = {{"in", ZoomIn}, {"out", ZoomOut}};
constexpr Word<ptzd::Iris> IrisWords[] = {{"open", IrisOpen}, {"close", IrisClose}, {"auto", IrisAuto}};
constexpr Word<ptzd::Focus> FocusWords[] = {{"near", FocusNear}, {"far", FocusFar}, {"auto", FocusAuto}};
constexpr Word<bool> BooleanWords[] = {{"true", true}, {"false", false}, {"yes", true}, {"no", false},
                                       {"on", true},   {"off", false},   {"1", true},   {"0", false}};

// Automatic focus as 257 is left out: it holds the bits of pan and automatic iris, so that any head has it.
constexpr Word<ptzd::Capabilities> CapabilityWords[] = {
    {"pan", CapabilityPan},
    {"tilt", CapabilityTilt},
    {"zoom", CapabilityZoom},
    {"absolute_zoom", CapabilityFullZoom},
    {"iris", CapabilityIris},
    {"focus", CapabilityFocus},
    {"numbered_presets", CapabilityPreset},
    {"home", CapabilityHome},
    {"auto_iris", CapabilityAutoIris},
    {"auto_focus", CapabilityAutoFocus2},
    {"multiport", CapabilityMultiport},
    {"continuous_move", CapabilityContinuousMove},
    {"options", CapabilityExtendedOptions},
    {"no_address", CapabilityNoAddress},
    {"relative_moves", CapabilityRelativeControl},
    {"simple_moves", CapabilitySimpleControl},
    {"continuous_zoom", CapabilityContinuousZoom},
    {"named_presets", CapabilityNamedPresets},
    {"move_in_image", CapabilityMoveInImage},
};

[[noreturn]] void Refuse(std::string_view name, std::string_view word, const std::string& why) {
  throw UsageError(std::string(name) + ": \"" + Printable(word) + "\" " + why);
}

template <typename Value, std::size_t Count>
Value Find(const Word<Value> (&words)[Count], std::string_view name, std::string_view word) {
  std::string known;
  for (const auto& candidate : words) {
    if (ptzd::EqualsIgnoringCase(candidate.Text, word)) return candidate.Means;
    known.append(known.empty() ? "" : ", ").append(candidate.Text);
  }
  Refuse(name, word, "is none of " + known);
}

std::optional<double> WholeTextNumber(std::string_view word) {
  if (word.starts_with('+') && !word.starts_with("+-")) word.remove_prefix(1);
  double value = 0;
  const auto [end, problem] = std::from_chars(word.data(), word.data() + word.size(), value);
  if (problem == std::errc::result_out_of_range) return std::numeric_limits<double>::infinity();
  if (problem != std::errc() || end != word.data() + word.size()) return std::nullopt;
  return value;
}

}  // namespace

float ReadNumber(std::string_view name, std::string_view word) {
  const auto value = WholeTextNumber(word);
  if (!value || std::isnan(*value)) Refuse(name, word, "is not a number");
  if (std::abs(*value) > std::numeric_limits<float>::max()) Refuse(name, word, "is too large a number");
  return static_cast<float>(*value);
}

std::int32_t ReadWholeNumber(std::string_view name, std::string_view word) {
  const auto value = WholeTextNumber(word);
  if (!value || std::isnan(*value) || (std::isfinite(*value) && *value != std::floor(*value)))
    Refuse(name, word, "is not a whole number");
  using Limits = std::numeric_limits<std::int32_t>;
  if (*value < Limits::min() || *value > Limits::max()) Refuse(name, word, "is too large a number");
  return static_cast<std::int32_t>(*value);
}

std::chrono::milliseconds ReadDuration(std::string_view name, std::string_view word) {
  constexpr std::pair<std::string_view, double> units[] = {{"ms", 1}, {"s", 1000}, {"m", 60000}, {"", 1000}};
  constexpr double day = 86400000;
  for (const auto& [unit, milliseconds] : units) {
    if (!word.ends_with(unit)) continue;
    const auto value = WholeTextNumber(word.substr(0, word.size() - unit.size()));
    if (!value) continue;
    const double time = std::round(*value * milliseconds);
    if (!(time >= 1 && time <= day)) Refuse(name, word, "is not between 1ms and a day");
    return std::chrono::milliseconds(static_cast<std::int64_t>(time));
  }
  Refuse(name, word, "is not a time such as 2s, 500ms or 1.5");
}

bool ReadBoolean(std::string_view name, std::string_view word) { return Find(BooleanWords, name, word); }
Directions ReadDirection(std::string_view name, std::string_view word) {
  return Find(DirectionWords, name, word);
}
Zooms ReadZoom(std::string_view name, std::string_view word) { return Find(ZoomWords, name, word); }
ptzd::Iris ReadIris(std::string_view name, std::string_view word) { return Find(IrisWords, name, word); }
ptzd::Focus ReadFocus(std::string_view name, std::string_view word) { return Find(FocusWords, name, word); }

std::string DirectionText(Directions direction) {
  for (const auto& word : DirectionWords)
    if (word.Means == direction) return std::string(word.Text);
  return std::to_string(static_cast<std::int32_t>(direction));
}

std::vector<std::string> CapabilityWordsOf(std::int32_t capabilities) {
  std::vector<std::string> texts;
  for (const auto& word : CapabilityWords)
    if ((capabilities & word.Means) == word.Means) texts.emplace_back(word.Text);
  return texts;
}

std::string CapabilityWord(ptzd::Capabilities flag) {
  for (const auto& word : CapabilityWords)
    if (word.Means == flag) return std::string(word.Text);
  return std::to_string(static_cast<std::int32_t>(flag));
}

std::string Identifier(std::string_view name) {
  std::string identifier(name);
  std::ranges::replace(identifier, ' ', '_');
  return identifier;
}

std::string Seconds(std::chrono::milliseconds time) {
  return Text(static_cast<double>(time.count()) / 1000) + " s";
}

std::vector<std::string> SplitWords(const std::string& line) {
  std::istringstream input(line);
  std::vector<std::string> words;
  for (std::string word; !(input >> std::ws).eof(); words.push_back(word))
    if (!(input >> std::quoted(word))) throw UsageError("a quotation mark is not closed");
  return words;
}

std::string Printable(std::string_view text) {
  const auto at = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
  std::string printable;
  const auto escape = [&](unsigned code) {
    printable.append("\\x").append(ptzd::Hex2(static_cast<std::int32_t>(code)));
  };
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto code = at(i);
    const std::size_t following = code >= 0xF0 ? 3 : code >= 0xE0 ? 2 : code >= 0xC0 ? 1 : 0;
    bool whole = code < 0x80 || (code >= 0xC2 && code < 0xF5);
    for (std::size_t next = 1; next <= following; ++next) whole = whole && (at(i + next) & 0xC0) == 0x80;
    if (code == '\r') {
      printable += "\\r";
    } else if (code == '\n') {
      printable += "\\n";
    } else if (code < 0x20 || code == 0x7F || !whole) {
      escape(code);
    } else if (code == 0xC2 && at(i + 1) < 0xA0) {
      escape(at(++i));
    } else {
      printable += text.substr(i, following + 1);
      i += following;
    }
  }
  return printable;
}

}  // namespace ptzctl
