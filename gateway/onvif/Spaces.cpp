#include "gateway/onvif/Spaces.h"

#include <algorithm>
#include <cmath>

#include "common/Numbers.h"
#include "gateway/onvif/Envelope.h"

namespace ptzgate {

using namespace ptzd;

namespace {

constexpr std::string_view PanTiltBase = "http://www.onvif.org/ver10/tptz/PanTiltSpaces/";
constexpr std::string_view ZoomBase = "http://www.onvif.org/ver10/tptz/ZoomSpaces/";
constexpr char GenericPosition[] = "PositionGenericSpace";
constexpr char GenericTranslation[] = "TranslationGenericSpace";
constexpr char GenericVelocity[] = "VelocityGenericSpace";
constexpr char DegreesPosition[] = "SphericalPositionSpaceDegrees";
constexpr char DegreesTranslation[] = "SphericalTranslationSpaceDegrees";

/// What a camera is known to do. Some drivers learn that from the camera: before they have, they may do
/// all that they have members for, or whoever asks while a camera is away would never steer it.
struct Abilities {
  explicit Abilities(const GateCamera& camera)
      : Flags(camera.CapabilitiesNow()),
        IsKnown(camera.State().Connected ||
                (Flags & (CapabilityPan | CapabilityTilt | CapabilityZoom)) != 0) {}
  bool Has(Capabilities all) const { return !IsKnown || (Flags & all) == all; }

  Capabilities Flags;
  bool IsKnown;
};

double Span(const Range& range) { return range.Greatest - range.Least; }

/// Where a value stands in a range: 0 is its least, 1 its greatest.
double ShareOf(const Range& range, double value) {
  return Span(range) > 0 ? std::clamp((value - range.Least) / Span(range), 0.0, 1.0) : 0;
}

/// The same pan within a range, where whole turns bring it there.
double Turned(const Range& range, double pan) {
  if (pan < range.Least && pan + 360 <= range.Greatest) return pan + 360;
  if (pan > range.Greatest && pan - 360 >= range.Least) return pan - 360;
  return pan;
}

Element RangeElement(std::string name, const Range& range) {
  return {std::move(name), {Element("tt:Min", Text(range.Least)), Element("tt:Max", Text(range.Greatest))}};
}

const char* NameOf(Spaces::Kind kind) {
  switch (kind) {
    case Spaces::Kind::Position:
      return "Absolute";
    case Spaces::Kind::Translation:
      return "Relative";
    case Spaces::Kind::Velocity:
      return "Continuous";
  }
  return "";
}

}  // namespace

struct Spaces::Space {
  Kind Of = Kind::Position;
  bool IsPanTilt = true;
  bool IsDegrees = false;
  std::string URI;
  Range X, Y;
};

Spaces::Spaces(const GateCamera& camera) : Ranges_(camera.RangesNow()) {
  const Abilities abilities(camera);
  const auto& data = *camera.Driver().Data;
  const bool turns = abilities.Has(CapabilityPan) || abilities.Has(CapabilityTilt);
  const bool hasPlaces = Ranges_.Pan && Ranges_.Tilt;
  MovesTo_ = turns && hasPlaces && data.MoveTo != MemberRule::Nothing;
  MovesBy_ = turns && hasPlaces && data.MoveBoth != MemberRule::Nothing;
  Drives_ = abilities.Has(CapabilityContinuousMove) && Ranges_.PanSpeed && Ranges_.TiltSpeed;
  ZoomsTo_ = abilities.Has(CapabilityFullZoom) && Ranges_.Zoom;
  ZoomDrives_ = abilities.Has(CapabilityContinuousZoom) && Ranges_.ZoomSpeed;
}

std::vector<Spaces::Space> Spaces::All() const {
  std::vector<Space> all;
  const auto panTilt = [&](Kind kind, const char* name, const Range& x, const Range& y, bool isDegrees) {
    all.push_back({kind, true, isDegrees, std::string(PanTiltBase) + name, x, y});
  };
  const auto zoom = [&](Kind kind, const char* name, const Range& x) {
    all.push_back({kind, false, false, std::string(ZoomBase) + name, x, {}});
  };
  const Range whole{-1, 1, ""};
  if (MovesTo_) {
    panTilt(Kind::Position, GenericPosition, whole, whole, false);
    panTilt(Kind::Position, DegreesPosition, *Ranges_.Pan, *Ranges_.Tilt, true);
  }
  if (ZoomsTo_) zoom(Kind::Position, GenericPosition, {0, 1, ""});
  if (MovesBy_) {
    const auto pan = Span(*Ranges_.Pan), tilt = Span(*Ranges_.Tilt);
    panTilt(Kind::Translation, GenericTranslation, whole, whole, false);
    panTilt(Kind::Translation, DegreesTranslation, {-pan, pan, ""}, {-tilt, tilt, ""}, true);
  }
  if (ZoomsTo_) zoom(Kind::Translation, GenericTranslation, whole);
  if (Drives_) panTilt(Kind::Velocity, GenericVelocity, whole, whole, false);
  if (ZoomDrives_) zoom(Kind::Velocity, GenericVelocity, whole);
  return all;
}

bool Spaces::Has(Kind kind, bool isPanTilt) const {
  const auto all = All();
  return std::ranges::any_of(
      all, [&](const Space& space) { return space.Of == kind && space.IsPanTilt == isPanTilt; });
}

Spaces::Space Spaces::SpaceOf(Kind kind, bool isPanTilt, const Element& vector) const {
  const auto* uri = vector.Attribute("space");
  for (const auto& space : All())
    if (space.Of == kind && space.IsPanTilt == isPanTilt &&
        (uri == nullptr || uri->empty() || space.URI == *uri))
      return space;
  throw InvalidArgument("ter:SpaceNotSupported",
                        uri != nullptr && !uri->empty()
                            ? vector.Name + ": this camera has no space " + *uri + " for that"
                            : "this camera has no space for " + vector.Name + " of that");
}

namespace {

double Within(const Element& vector, std::string_view attribute, const Range& range, Spaces::Kind kind) {
  const auto value = NumberOf(vector, attribute);
  if (value >= range.Least && value <= range.Greatest) return value;
  const char* subcode = kind == Spaces::Kind::Position      ? "ter:InvalidPosition"
                        : kind == Spaces::Kind::Translation ? "ter:InvalidTranslation"
                                                            : "ter:InvalidVelocity";
  throw InvalidArgument(subcode, vector.Name + ": " + std::string(attribute) + " is " + Text(value) +
                                     "; expected " + Text(range.Least) + " to " + Text(range.Greatest));
}

}  // namespace

Spaces::Axes Spaces::PanTilt(Kind kind, const Element& vector) const {
  const auto space = SpaceOf(kind, true, vector);
  const auto x = Within(vector, "x", space.X, kind), y = Within(vector, "y", space.Y, kind);
  if (space.IsDegrees) return {x, y};
  const auto &pan = *Ranges_.Pan, &tilt = *Ranges_.Tilt;
  switch (kind) {
    case Kind::Position:
      return {pan.Least + (x + 1) / 2 * Span(pan), tilt.Least + (y + 1) / 2 * Span(tilt)};
    case Kind::Translation:  // in the scale of places
      return {x / 2 * Span(pan), y / 2 * Span(tilt)};
    case Kind::Velocity:
      break;
  }
  return {SpeedAt(*Ranges_.PanSpeed, x), SpeedAt(*Ranges_.TiltSpeed, y)};
}

double Spaces::Zoom(Kind kind, const Element& vector) const {
  const auto space = SpaceOf(kind, false, vector);
  const auto x = Within(vector, "x", space.X, kind);
  switch (kind) {
    case Kind::Position:
      return Ranges_.Zoom->Least + x * Span(*Ranges_.Zoom);
    case Kind::Translation:
      return x * Span(*Ranges_.Zoom);
    case Kind::Velocity:
      break;
  }
  return SpeedAt(*Ranges_.ZoomSpeed, x);
}

Element Spaces::PanTiltElement(double pan, double tilt) const {
  const auto number = [](const Range& range, double value) {
    return Text(static_cast<float>(2 * ShareOf(range, value) - 1));
  };
  return Element("tt:PanTilt")
      .With("x", number(*Ranges_.Pan, Turned(*Ranges_.Pan, pan)))
      .With("y", number(*Ranges_.Tilt, tilt))
      .With("space", std::string(PanTiltBase) + GenericPosition);
}

Element Spaces::ZoomElement(double zoom) const {
  return Element("tt:Zoom")
      .With("x", Text(static_cast<float>(ShareOf(*Ranges_.Zoom, zoom))))
      .With("space", std::string(ZoomBase) + GenericPosition);
}

std::vector<Element> Spaces::Elements() const {
  std::vector<Element> elements;
  for (const auto kind : {Kind::Position, Kind::Translation, Kind::Velocity})
    for (const bool isPanTilt : {true, false})
      for (const auto& space : All()) {
        if (space.Of != kind || space.IsPanTilt != isPanTilt) continue;
        const std::string what = kind == Kind::Position      ? "PositionSpace"
                                 : kind == Kind::Translation ? "TranslationSpace"
                                                             : "VelocitySpace";
        Element element("tt:" + std::string(NameOf(kind)) + (isPanTilt ? "PanTilt" : "Zoom") + what,
                        {Element("tt:URI", space.URI), RangeElement("tt:XRange", space.X)});
        if (isPanTilt) element.Children.push_back(RangeElement("tt:YRange", space.Y));
        elements.push_back(std::move(element));
      }
  return elements;
}

std::vector<Element> Spaces::Defaults() const {
  // The standard's own names, with the slip of its pen in the first of them.
  struct Default {
    Kind Of;
    bool IsPanTilt;
    const char* Name;
  };
  constexpr Default defaults[] = {
      {Kind::Position, true, "tt:DefaultAbsolutePantTiltPositionSpace"},
      {Kind::Position, false, "tt:DefaultAbsoluteZoomPositionSpace"},
      {Kind::Translation, true, "tt:DefaultRelativePanTiltTranslationSpace"},
      {Kind::Translation, false, "tt:DefaultRelativeZoomTranslationSpace"},
      {Kind::Velocity, true, "tt:DefaultContinuousPanTiltVelocitySpace"},
      {Kind::Velocity, false, "tt:DefaultContinuousZoomVelocitySpace"},
  };
  std::vector<Element> elements;
  const auto all = All();
  for (const auto& one : defaults) {
    const auto space = std::ranges::find_if(
        all, [&](const Space& s) { return s.Of == one.Of && s.IsPanTilt == one.IsPanTilt; });
    if (space != all.end()) elements.emplace_back(one.Name, space->URI);
  }
  return elements;
}

bool HasHome(const GateCamera& camera) {
  return Abilities(camera).Has(CapabilityHome) && camera.Driver().Data->Home != MemberRule::Nothing;
}

bool HasPresets(const GateCamera& camera) {
  const Abilities abilities(camera);
  return abilities.Has(CapabilityPreset) || abilities.Has(CapabilityNamedPresets) || camera.KeepsPlaces();
}

}  // namespace ptzgate
