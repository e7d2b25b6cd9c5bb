#include "simulators/PanasoniciPro.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>

#include "simulators/engine/Make.h"
#include "simulators/engine/Models.h"
#include "simulators/engine/Rules.h"

namespace ptzsim {

struct PanasoniciPro::Model {
  std::string_view Name;
  Motion::Range Pan, Tilt;  // degrees
  double Tele;              // greatest magnification
  bool Signed = false;  // pan counts from the middle and tilt upwards; else from the left end, and downwards

  bool Endless() const { return Pan.Max - Pan.Min == 360; }
  Motion::Range PanUnits() const;
  Motion::Range TiltUnits() const;
  static const Model All[];
};

constinit const PanasoniciPro::Model PanasoniciPro::Model::All[] = {
    {"WV-SC384", {-175, 175}, {-90, 30}, 18},         {"WV-SC385", {-175, 175}, {-90, 30}, 18},
    {"WV-SW395", {-175, 175}, {-90, 30}, 18},         {"WV-NS202", {-175, 175}, {-90, 30}, 22},
    {"WV-NS202A", {-175, 175}, {-90, 30}, 22},        {"WV-NS950", {-180, 180}, {-90, 5}, 30},
    {"WV-NS954", {-180, 180}, {-90, 5}, 30},          {"WV-NW960", {-180, 180}, {-90, 5}, 30},
    {"WV-NW964", {-180, 180}, {-90, 5}, 30},          {"WV-SW396", {-180, 180}, {-90, 0}, 36},
    {"WV-SW598", {-180, 180}, {-90, 0}, 30},          {"WV-SC588", {-180, 180}, {-90, 0}, 30},
    {"WV-SW174W", {-47.5, 47.5}, {-45, 10}, 4, true}, {"WV-SW175", {-47.5, 47.5}, {-45, 10}, 4, true},
    {"BL-VT164", {-41, 41}, {-32, 10}, 8, true},      {"BL-VT164W", {-41, 41}, {-32, 10}, 8, true},
};

namespace {

constexpr double Degree = 10, Times = 10;           // units of a degree and of the magnification
constexpr double TurnSpeed = 1200, ZoomSpeed = 60;  // units per second
constexpr double Turn = 360 * Degree;

// Where the heads are at first, in units: that of channel 1 to the right, downwards and in, and how far each
// is from the one before.
constexpr double FirstPan = 337, FirstTilt = 143, FirstZoom = 23;
constexpr double NextPan = -125, NextTilt = 16, NextZoom = 4;

/// A number as cameras read it: digits, a minus perhaps, decimals perhaps, no exponent.
double PlainNumber(const std::string& text, Motion::Range range) {
  if (text.find_first_not_of("-.0123456789") != text.npos)
    throw std::invalid_argument("\"" + text + "\" is not a number");
  return NumberOf(text, range);
}

}  // namespace

Motion::Range PanasoniciPro::Model::PanUnits() const {
  if (Signed) return {Pan.Min * Degree, Pan.Max * Degree};
  return {0, (Pan.Max - Pan.Min) * Degree};
}

Motion::Range PanasoniciPro::Model::TiltUnits() const {
  if (Signed) return {Tilt.Min * Degree, Tilt.Max * Degree};
  return {-Tilt.Max * Degree, -Tilt.Min * Degree};
}

std::vector<std::string> PanasoniciPro::Models() { return NamesOf(Model::All); }

PanasoniciPro::PanasoniciPro(const Options& options)
    : Simulator(options.Clock),
      Model_(FindModel(Model::All, options.Model)),
      Channels_(Several(options.Channels, MostChannels, "channels", [this](int i) { return AtFirst(i); })),
      Server_(*this, Mutex_, options.Port, [this](const Request& r) { return Answer(r); }) {}

PanasoniciPro::Channel PanasoniciPro::AtFirst(int index) {
  const double pan = FirstPan + index * NextPan, tilt = FirstTilt + index * NextTilt;
  return {{Time(), Model_.Signed ? pan : pan - Model_.Pan.Min * Degree,
           Model_.Endless() ? Motion::Endless : Model_.PanUnits(), TurnSpeed},
          {Time(), Model_.Signed ? -tilt : tilt, Model_.TiltUnits(), TurnSpeed},
          {Time(), FirstZoom + index * NextZoom, {Times, Model_.Tele * Times}, ZoomSpeed}};
}

HTTPReply PanasoniciPro::Answer(const Request& request) {
  Query query(request.Target);
  Channel& head = Take(query);
  const bool asksAll = query.Pairs.size() == 1 && query.Find("FILE") == "1";
  if (query.Path == "/cgi-bin/getinfo" && asksAll) return HTTPReply::Text(Information());
  if (query.Path == "/cgi-bin/absget" && query.Pairs.empty()) return HTTPReply::Text(Position(head));
  if (query.Path == "/cgi-bin/absctrl") {
    Obey(head, query);
    return HTTPReply::Nothing();
  }
  return {.Status = 404, .Violation = "no such page: " + request.Target};
}

/// Takes the channel, which comes first, off the query. An "&" follows it even where nothing else does.
PanasoniciPro::Channel& PanasoniciPro::Take(Query& query) {
  if (query.Pairs.empty() || query.Pairs[0].first != "ch") return Channels_[0];
  const std::string number = query.Pairs[0].second;
  query.Pairs.erase(query.Pairs.begin());
  if (query.Pairs.size() == 1 && query.Pairs[0].first.empty()) query.Pairs.clear();
  for (std::size_t i = 0; i < Channels_.size(); ++i)
    if (number == std::to_string(i + 1)) return Channels_[i];
  throw std::invalid_argument("there is no channel " + number);
}

std::string PanasoniciPro::Information() const {
  return "MAC=0080F0A1B2C3\r\nSERIAL=KLB00417\r\nHOSTNAME=WV-YARD\r\nVERSION=1.84E2\r\n" +
         std::string(Model_.Signed ? "Name=" : "NAME=") + std::string(Model_.Name) +
         "\r\nTITLE=Gate=west\r\nSDMEMORY=0\r\nZOOM=1\r\n";
}

/// The two kinds of cameras also differ in the form of the rows.
std::string PanasoniciPro::Position(const Channel& channel) const {
  double pan = std::round(channel.Pan.Position());
  if (Model_.Endless()) pan = Wrapped(pan, 0, Turn);
  const auto row = [&](const char* upper, const char* lower, double units) {
    const std::string value = Decimal(std::round(units), 0);
    return Model_.Signed ? lower + ("=" + value) + ".0&nbsp;\r\n" : upper + ("=" + value) + "&nbsp\r\n";
  };
  return row("PAN", "Pan", pan) + row("TILT", "Tilt", channel.Tilt.Position()) +
         row("ZOOM", "Zoom", channel.Zoom.Position()) + row("FOCUS", "Focus", 4711) +
         row("IRIS", "Iris", 128);
}

/// Nothing moves before all of it has been found to be in order.
void PanasoniciPro::Obey(Channel& channel, const Query& query) {
  const auto pan = query.Find("pan"), tilt = query.Find("tilt"), zoom = query.Find("zoom");
  if (pan.has_value() != tilt.has_value()) throw std::invalid_argument("pan and tilt come together");
  const std::size_t known = (pan ? 2 : 0) + (zoom ? 1 : 0);
  if (known == 0) throw std::invalid_argument("no command");
  if (query.Pairs.size() != known) throw std::invalid_argument("an unknown parameter, or one twice");
  const double across = pan ? PlainNumber(*pan, Model_.PanUnits()) : 0;
  const double up = tilt ? PlainNumber(*tilt, Model_.TiltUnits()) : 0;
  if (zoom) channel.Zoom.MoveTo(PlainNumber(*zoom, {Times, Motion::Any.Max}));
  if (!pan) return;
  if (Model_.Endless())
    channel.Pan.TurnTo(across, Turn);
  else
    channel.Pan.MoveTo(across);
  channel.Tilt.MoveTo(up);
}

PanasoniciPro::HeadState PanasoniciPro::Now(const Channel& channel) const {
  double pan = channel.Pan.Position(), tilt = channel.Tilt.Position();
  if (Model_.Endless()) pan = Wrapped(pan, 0, Turn);
  if (!Model_.Signed) pan += Model_.Pan.Min * Degree, tilt = 0 - tilt;
  return {pan / Degree,
          tilt / Degree,
          channel.Zoom.Position() / Times,
          channel.Pan.Moving() || channel.Tilt.Moving() || channel.Zoom.Moving(),
          Model_.Pan,
          Model_.Tilt};
}

PanasoniciPro::HeadState PanasoniciPro::Head(int channel) const {
  const std::lock_guard lock(Mutex_);
  return Now(Channels_.at(static_cast<std::size_t>(channel - 1)));
}

nlohmann::json PanasoniciPro::State() const {
  const std::lock_guard lock(Mutex_);
  nlohmann::json channels = nlohmann::json::array();
  for (const auto& channel : Channels_) {
    const HeadState head = Now(channel);
    channels.push_back(
        {{"pan", head.Pan}, {"tilt", head.Tilt}, {"zoom", head.Zoom}, {"moving", head.Moving}});
  }
  return {{"model", Model_.Name}, {"channels", channels}};
}

const Make PanasoniciPro::AtShell = {"panasonicipro", "Panasonic i-Pro camera or encoder (HTTP)",
                                     [](Shell& shell) {
                                       const auto options = WithModel<PanasoniciPro>(shell);
                                       shell.Number("--channels", options->Channels, 1, MostChannels,
                                                    "How many channels with a head it has");
                                       return From<PanasoniciPro>(options);
                                     },
                                     Line::HTTP, "Panasonic"};

}  // namespace ptzsim
