// Sony SNC cameras: CGI inquiries answered by "name=value" pairs joined with "&", VISCA frames in hexadecimal
// characters, positions as signed 16-bit camera units in hexadecimal. Inquiries are waited for, commands are
// not: nobody reads their replies.

#include "drivers/Sony.h"

#include <algorithm>
#include <array>

#include <ptzd/Error.h>
#include <ptzd/Logging.h>
#include "common/Concatenation.h"
#include "common/Credentials.h"
#include "common/Numbers.h"
#include "drivers/kit/DriverErrors.h"
#include "drivers/kit/Options.h"
#include "transport/Split2DModule.h"

namespace ptzd {

namespace {

constexpr std::string_view SystemPath = "/command/inquiry.cgi?inq=system";
constexpr std::string_view SysInfoPath = "/command/inquiry.cgi?inq=sysinfo";
constexpr std::string_view PtzfPath = "/command/inquiry.cgi?inq=ptzf";
constexpr std::string_view ViscaInquiryPath = "/command/visca-inquiry.cgi?visca=81090612ff";
constexpr std::string_view ControlPath = "/command/ptzf.cgi";

constexpr std::string_view NoViscaInquiry = "HTTP/1.1 404 Not Found";
constexpr std::string_view NoInformation = "Unable to get the device information";

constexpr std::string_view TiltRangeKey = "TiltMovementRange";
constexpr std::string_view PtzfTiltRangeKey = "TiltPanoramaRange";  // firmware that answers the ptzf inquiry
constexpr std::string_view PtzfPositionKey = "AbsolutePTZF";
constexpr double PtzfFirmware = 6.0;  // CGI version

constexpr float ZoomUnits = 5200;  // camera units of zoom 1
constexpr std::int32_t MaxZoomPosition = 65535;

// Camera speeds in one unit of `ContinuousMove` and of `ContinuousZoom`.
constexpr float MoveSpeedUnits = 4;
constexpr float ZoomSpeedUnits = 8;

std::string_view WithoutLineEnd(std::string_view reply) {
  while (reply.ends_with('\n') || reply.ends_with('\r')) reply.remove_suffix(1);
  return reply;
}

/// The first two numbers of a value such as "FDAC,0254".
std::array<std::int32_t, 2> HexPair(std::string_view value) {
  const auto parts = Split(value, ",");
  if (parts.size() < 2) Raise(ErrorSubscript);
  return {Int16FromHex(parts[0]), Int16FromHex(parts[1])};
}

/// Four hexadecimal digits, each behind a 0: VISCA carries such a number in the low halves of four bytes.
std::string ViscaNumber(std::int32_t value) {
  std::string text;
  for (const char digit : Hex4(value)) (text += '0') += digit;
  return text;
}

/// To four decimals. Raises 11 where a camera told no range, for then no angle can be told in its units.
double UnitsPerDegree(std::int32_t units, float degrees) {
  const double scale = Round(units / static_cast<double>(degrees), 4);
  if (scale == 0) Raise(ErrorDivisionByZero);
  return scale;
}

std::int32_t ZoomPosition(float zoom) {
  const auto units = ToInt32(ToSingle(zoom * ZoomUnits));
  if (units > MaxZoomPosition) Raise(ErrorOverflow);
  return units;
}

constexpr const DriverOption* Options[] = {&AddressOption, &ResetOption};

constexpr Evidence Signs[] = {
    {.Request = SystemPath, .Pattern = "ModelName=*CGIVersion=#"},
};
constexpr std::string_view MakeNames[] = {"Sony"};

}  // namespace

/// How a model's camera units lie to degrees. Without units the camera tells its limits.
struct Sony::Model {
  struct DegreeRange {
    float Min, Max;
    float Span() const { return Max - Min; }
  };

  std::string_view Name;
  std::optional<Range> PanUnits;
  DegreeRange PanDegrees;
  std::optional<Range> TiltUnits;
  DegreeRange TiltDegrees;
  bool EndlessPan = false;

  static const Model* Find(std::string_view name);
};

const Sony::Model* Sony::Model::Find(std::string_view name) {
  constexpr auto camera = std::nullopt;
  constexpr Range rz25Pan{-2275, 2275}, rz25Tilt{-1199, 417};
  constexpr Range rz50Pan{-2448, 2448}, rz50Tilt{-828, 828};
  // The units of these heads run against degrees, in both axes.
  constexpr Range rz30Pan{2448, -2448}, rz30Tilt{828, -828};
  constexpr DegreeRange headPan{-170, 170}, domePan{-180, 180};
  static constexpr Model table[] = {
      {"SNC-P5", Range{-564, 564}, {-60, 60}, Range{-226, 339}, {-65, 10}},
      {"SNC-RZ25P", rz25Pan, headPan, rz25Tilt, {-90, 30}},
      {"SNC-RZ25N", rz25Pan, headPan, rz25Tilt, {-90, 30}},
      {"SNC-RZ30P", rz30Pan, headPan, rz30Tilt, {-90, 25}},
      {"SNC-RZ30N", rz30Pan, headPan, rz30Tilt, {-90, 25}},
      {"SNC-RZ50P", rz50Pan, headPan, rz50Tilt, {-90, 25}},
      {"SNC-RZ50N", rz50Pan, headPan, rz50Tilt, {-90, 25}},
      {"SNC-EP521", camera, headPan, camera, {-90, 15}},
      {"SNC-RX530P", camera, domePan, camera, {-90, 0}, true},
      {"SNC-RX530N", camera, domePan, camera, {-90, 0}, true},
      {"SNC-RX550P", camera, domePan, camera, {-90, 0}, true},
      {"SNC-RX550N", camera, domePan, camera, {-90, 0}, true},
      {"SNC-RX570P", camera, domePan, camera, {-90, 0}, true},
      {"SNC-RX570N", camera, domePan, camera, {-90, 0}, true},
      {"SNC-RH164", camera, domePan, camera, {-90, 15}, true},
      {"SNC-RS46P", camera, domePan, camera, {-90, 15}, true},
      {"SNC-RS46N", camera, domePan, camera, {-90, 15}, true},
  };
  const auto* found = std::ranges::find(table, name, &Model::Name);
  return found == std::end(table) ? nullptr : found;
}

const DriverData Sony::Data = {
    .Class = "QVPTZ.Sony",
    .Move = MemberRule::SucceedsIfConnected,
    .MoveTo = MemberRule::SucceedsIfConnected,
    .MoveBoth = MemberRule::SucceedsIfConnected,
    .Zoom = MemberRule::SucceedsIfConnected,
    .SetPanTilt = PlaceRule::AsksAnew,
    .DisconnectAnswersTrue = false,
    .PositionRequests = AsksOnConnecting | AsksBeforeMove | AsksBeforeAnswer,
    .PositionStep = 0.1,
    .PanRange = ValueRange{-180, 180, "degrees", Beyond::Limited, true},  // steps of endless heads go around
    .TiltRange = ValueRange{-90, 30, "degrees", Beyond::Limited, true},
    .ZoomRange = ValueRange{0, MaxZoomPosition / ZoomUnits, "5200 camera units", Beyond::Overflows},
    .PanSpeed = ValueRange{.Unit = "4 camera speeds"},
    .TiltSpeed = ValueRange{.Unit = "4 camera speeds"},
    .ZoomSpeed = ValueRange{.Unit = "8 camera speeds"},
    .StopsBySpeedZero = false,
    .NoAddress = DriverData::Failure{PTZErrorNoAddressSpecified, "No address specified"},
    .Options = Options,
    .Evidence = Signs,
    .MakeNames = MakeNames,
};

/// Takes over the rows that it knows; the others are the camera's own business.
void Sony::Head::Read(std::string_view reply, std::string_view tiltRangeKey) {
  for (const auto& [name, value] : Split2D(WithoutLineEnd(reply), "&", "=")) {
    if (name == "CGIVersion") CgiVersion = Val(value.substr(0, 3));
    if (name == "ModelName") ModelName = value;
    if (value == "1") {
      if (name == "PanTiltFunc") Flags |= CapabilityPan | CapabilityTilt;
      if (name == "ZoomFunc") Flags |= CapabilityZoom | CapabilityFullZoom;
      if (name == "ContinuousPanTiltZoomFunc") Flags |= CapabilityContinuousMove | CapabilityContinuousZoom;
    }
    const auto readRange = [&value = value](Range& range) {
      const auto [min, max] = HexPair(value);
      range = {min, max};
    };
    if (name == "PanMovementRange") readRange(PanRange);
    if (name == tiltRangeKey) readRange(TiltRange);
    if (name == "PanTiltMaxVelocity") MaxVelocity = ToInt32(NumberFromText(value));
    if (name == PtzfPositionKey) At = ReadablePosition(value);
  }
}

void Sony::Head::Apply(const Model& model) {
  PanRange = model.PanUnits.value_or(PanRange);
  TiltRange = model.TiltUnits.value_or(TiltRange);
  EndlessPan = model.EndlessPan;
  if (!Has(CapabilityPan)) return;  // and no tilt either
  PanScale = UnitsPerDegree(PanRange.Max - PanRange.Min, model.PanDegrees.Span());
  TiltScale = UnitsPerDegree(TiltRange.Max - TiltRange.Min, model.TiltDegrees.Span());
  TiltCentre = ToSingle(Round(-TiltRange.Min / TiltScale + model.TiltDegrees.Min, 2));
}

bool Sony::Head::ReportsPtzf() const { return CgiVersion >= PtzfFirmware; }

Sony::Sony(const Platform& platform) : WithZoom(Data, platform), ContinuousDriver(Data) {}

void Sony::ReadOptions() {
  Head_ = {};
  Found_ = {};
}

bool Sony::Open() {
  Head head;
  head.Read(Inquire(SystemPath), TiltRangeKey);
  head.Read(Inquire(SysInfoPath), TiltRangeKey);
  if (head.ReportsPtzf()) head.Read(Inquire(PtzfPath), PtzfTiltRangeKey);
  if (head.ModelName.empty()) Raise(PTZErrorConnectionFailed, NoInformation);
  const auto* model = Model::Find(head.ModelName);
  if (model == nullptr)
    Raise(PTZErrorUnrecognisedDevice, "Unrecognised model: " + MaskCredentials(head.ModelName));
  head.Apply(*model);

  if (head.Has(CapabilityPan)) {
    const auto reply = Request(ViscaInquiryPath);
    if (!reply) Raise(PTZErrorConnectionFailed, NoInformation);
    // No other status speaks against VISCA.
    head.ViscaInquiry = !Client_.GetHeader().starts_with(NoViscaInquiry);
    if (head.ViscaInquiry)
      if (const auto position = ViscaPosition(*reply)) head.At = position;
  }

  Head_ = head;
  Found_ = head.Flags;
  Store(head.At);
  PositionAge_.Expire();
  Continuous_ = {};
  if (ResetOption.In(Options_)) GoToUnits({});
  return true;
}

/// Tilt counts from its centre, pan does not, on purpose.
bool Sony::GoTo(HeadPosition target) {
  GoToUnits(
      {Head_.PanScale * target.Pan, Head_.TiltScale * ToSingle(target.Tilt - Head_.TiltCentre), target.Zoom});
  return true;
}

bool Sony::StepBy(double panAngle, double tiltAngle) {
  double pan = Current_.Pan + Head_.PanScale * panAngle;
  if (Head_.EndlessPan) {
    const double low = Head_.PanRange.Low(), high = Head_.PanRange.High();
    if (pan < low)
      pan += high - low;
    else if (pan > high)
      pan -= high - low;
  }
  GoToUnits({pan, Current_.Tilt + Head_.TiltScale * tiltAngle, Current_.Zoom});
  return true;
}

bool Sony::ZoomAt(double zoom) {
  GoToUnits({Current_.Pan, Current_.Tilt, zoom});
  return true;
}

/// Of pan and tilt; nobody waits for an answer.
void Sony::GoToUnits(HeadPosition target) {
  const auto pan = std::clamp(ToInt32(target.Pan), Head_.PanRange.Low(), Head_.PanRange.High());
  const auto tilt = std::clamp(ToInt32(target.Tilt), Head_.TiltRange.Low(), Head_.TiltRange.High());
  target = {0.0 + pan, 0.0 + tilt, ToSingle(std::max(target.Zoom, 0.0))};
  const auto zoomPosition = ZoomPosition(ToSingle(target.Zoom));
  const bool zooms = target.Zoom != Current_.Zoom;

  if (Head_.ViscaInquiry) {
    if (pan != Current_.Pan || tilt != Current_.Tilt) SendVisca(ViscaMove(pan, tilt));
    if (zooms) SendVisca("81010447" + ViscaNumber(zoomPosition) + "FF");
  } else {
    // Unlike VISCA moves this one also goes out where it changes nothing.
    SendCGI("AbsolutePanTilt=" + Hex4(pan) + "," + Hex4(tilt) + "," + Text(Head_.MaxVelocity));
    if (zooms && Head_.Has(CapabilityFullZoom))
      SendCGI("AbsoluteZoom=" + Hex4(zoomPosition));
    else if (zooms)
      SendCGI(target.Zoom > Current_.Zoom ? "RelativeZoom=0080" : "RelativeZoom=FF80");
  }
  Current_ = target;
}

void Sony::ContinuousMove(float pan, float tilt) {
  SendContinuous({.Pan = ToInt32(pan), .Tilt = tilt, .Zoom = Continuous_.Zoom});
}

void Sony::ContinuousZoom(float amount) {
  SendContinuous({.Pan = Continuous_.Pan, .Tilt = Continuous_.Tilt, .Zoom = amount});
}

/// A repeated motion is sent once; whatever goes with a pan and tilt at rest is always sent.
void Sony::SendContinuous(const Speeds& speeds) {
  if (!Connected_) return;
  const auto body =
      "ContinuousPanTiltZoom=" + Text(ToInt32(static_cast<double>(speeds.Pan) * MoveSpeedUnits)) + "," +
      Text(ToSingle(speeds.Tilt * MoveSpeedUnits)) + "," + Text(ToSingle(speeds.Zoom * ZoomSpeedUnits)) +
      ",Image1";
  Continuous_ = speeds;
  if (!LastMove_.Replace(body, speeds.Pan == 0 && speeds.Tilt == 0)) return;
  SendCGI(body);
  PositionAge_.Expire();
}

float Sony::Pan() {
  if (!Head_.Has(CapabilityPan)) return 0;
  Refresh();
  return ToSingle(Round(Current_.Pan / Head_.PanScale, 3));  // pan has no centre offset, on purpose
}

float Sony::Tilt() {
  if (!Head_.Has(CapabilityTilt)) return 0;
  Refresh();
  return ToSingle(Round(Current_.Tilt / Head_.TiltScale, 3) + Head_.TiltCentre);
}

void Sony::QueryPosition() {
  ReadOrKeepPosition([this] {
    if (Head_.ReportsPtzf()) {
      const auto reply = Inquire(PtzfPath);
      for (const auto& [name, value] : Split2D(WithoutLineEnd(reply), "&", "="))
        if (name == PtzfPositionKey) Store(PtzfPosition(value));
    } else if (Head_.ViscaInquiry) {
      Store(ViscaPosition(Inquire(ViscaInquiryPath)));
    }
  });
}

void Sony::Store(const std::optional<Position>& position) {
  if (position) Current_ = {0.0 + position->Pan, 0.0 + position->Tilt, Current_.Zoom};
}

Sony::Position Sony::PtzfPosition(std::string_view value) {
  const auto [pan, tilt] = HexPair(value);
  return {pan, tilt};
}

/// The same, nothing where it cannot be read: the next refresh asks again.
std::optional<Sony::Position> Sony::ReadablePosition(std::string_view value) {
  try {
    return PtzfPosition(value);
  } catch (const Error& error) {
    LogPositionNotRead(error);
    return std::nullopt;
  }
}

/// From "90500p0p0p0p0t0t0t0tFF" in either case, where the p and t are the digits; nothing from any other
/// text.
std::optional<Sony::Position> Sony::ViscaPosition(std::string_view reply) {
  constexpr std::size_t firstPanDigit = 5, firstTiltDigit = 13, end = 20;
  if (reply.size() < end ||
      reply.substr(0, end).find_first_not_of("0123456789ABCDEFabcdef") != std::string_view::npos)
    return std::nullopt;
  const auto number = [&](std::size_t first) -> std::int32_t {
    return Int16FromHex(std::string{reply[first], reply[first + 2], reply[first + 4], reply[first + 6]});
  };
  return Position{number(firstPanDigit), number(firstTiltDigit)};
}

/// Raises 17001 where nothing answers and for another status than 200.
std::string Sony::Inquire(std::string_view path) {
  auto reply = Request(path);
  if (!reply) Raise(PTZErrorConnectionFailed, NoInformation);
  if (const auto status = Status(); status.Code != "200")
    Raise(PTZErrorConnectionFailed, "Received HTTP error " + MaskCredentials(status.Text));
  return *std::move(reply);
}

/// Raises 6 where the camera's highest speed does not fit the command's byte.
std::string Sony::ViscaMove(std::int32_t pan, std::int32_t tilt) const {
  const auto speed = Hex2(ToByte(Head_.MaxVelocity));
  return "81010602" + speed + speed + ViscaNumber(pan) + ViscaNumber(tilt) + "FF";
}

void Sony::SendVisca(const std::string& command) {
  SendAsync(std::string(ControlPath) + "?visca=" + command, "");
}

void Sony::SendCGI(const std::string& body) { SendAsync(ControlPath, body); }

void Sony::SendAsync(std::string_view path, const std::string& body) {
  const LogScope scope(Subject_);
  const auto url = Url(path);
  LogMessage("Requesting " + url + ", " + body);
  try {
    Client_.GetResourceAsync(url, "", body);
  } catch (const Error& error) {
    LogMessage("Request failed. " + error.Description(), LogLevel::Error);
  }
}

}  // namespace ptzd
