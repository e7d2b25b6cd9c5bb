#include "Words.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <iomanip>
#include <iterator>
#include <sstream>
#include <system_error>
#include <utility>

#include "common/Numbers.h"

namespace ptzctl {

namespace {

using namespace ptzd;

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

}  // namespace

Directions ReadDirection(std::string_view name, std::string_view word) {
  return MeaningOf(DirectionWords, name, word);
}
Zooms ReadZoom(std::string_view name, std::string_view word) { return MeaningOf(ZoomWords, name, word); }
ptzd::Iris ReadIris(std::string_view name, std::string_view word) { return MeaningOf(IrisWords, name, word); }
ptzd::Focus ReadFocus(std::string_view name, std::string_view word) {
  return MeaningOf(FocusWords, name, word);
}

std::string DirectionChoices() { return TextOf(DirectionWords, "|"); }
std::string ZoomChoices() { return TextOf(ZoomWords, "|"); }
std::string IrisChoices() { return TextOf(IrisWords, "|"); }
std::string FocusChoices() { return TextOf(FocusWords, "|"); }

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

double AsWritten(float value) { return Val(Text(value)); }

std::string Seconds(std::chrono::milliseconds time) {
  return Text(static_cast<double>(time.count()) / 1000) + " s";
}

std::string SystemReason() {
  const int error = errno;
  return error != 0 ? std::generic_category().message(error) : "the system does not say why";
}

std::vector<std::string> SplitWords(const std::string& line) {
  std::istringstream input(line);
  std::vector<std::string> words;
  for (std::string word; !(input >> std::ws).eof(); words.push_back(word))
    if (!(input >> std::quoted(word))) throw UsageError("a quotation mark is not closed");
  return words;
}

}  // namespace ptzctl
