// Vivotek and D-Link cameras: CGI requests over HTTP GET, replies of "key=value" lines. Two generations: the
// older ones take clicks in the picture at a fixed number of pixels per degree, the newer ones in a picture
// of 704 x 576 that shows 48 degrees either way. A command is accepted by status 200.

#include "drivers/Vivotek.h"

#include <algorithm>
#include <cmath>
#include <set>

#include <ptzd/Error.h>
#include <ptzd/Logging.h>
#include "common/Credentials.h"
#include "common/Numbers.h"
#include "drivers/kit/DriverErrors.h"
#include "platform/CodePages.h"
#include "platform/LetterCase.h"
#include "transport/HTTP.h"
#include "transport/Split2DModule.h"
#include "transport/StringEncoding.h"

namespace ptzd {

namespace {

constexpr const char* InformationPath = "/cgi-bin/sysinfo.cgi";
constexpr const char* NewControlPath = "/cgi-bin/viewer/camctrl.cgi?channel=";
constexpr const char* OldControlPath = "/cgi-bin/camctrl.cgi?cam=";
constexpr const char* SavePath = "/cgi-bin/operator/preset.cgi?channel=";
constexpr const char* RecallPath = "/cgi-bin/viewer/recall.cgi?channel=";

// A numbered preset is a named one: the host product's name and the number.
constexpr const char* NumberedPreset = "Quorvane%20preset%20";
constexpr std::int32_t NumberedPresets = 128;

constexpr const char* HomeCommand = "move=home";
constexpr const char* StopMoveCommand = "vx=0&vy=0&vs=0";
constexpr const char* StopZoomCommand = "zooming=wide&zs=0";

// Pixels per degree in the pictures of the older generation.
constexpr double PanPixels = 7.74;
constexpr double TiltPixels = 6;

// Camera speeds per unit of `ContinuousMove` and of `ContinuousZoom`.
constexpr float MoveSpeedUnits = 5;
constexpr float ZoomSpeedUnits = 10;

/// Lines may end in CR LF as well as in LF.
std::string PlainLines(std::string_view text) {
  std::string lines;
  for (std::size_t i = 0; i < text.size(); ++i)
    if (text[i] != '\r' || i + 1 == text.size() || text[i + 1] != '\n') lines += text[i];
  return lines;
}

/// Whole, and one more: the camera's slowest speed is 1.
std::string SpeedText(float speed) { return Text(ToInt32(Int(ToSingle(speed)) + 1)); }

}  // namespace

/// A camera's model, known by the first five characters of its name.
struct Vivotek::Model {
  std::string_view Prefix;
  bool NewProtocol;
  std::int32_t ImageWidth, ImageHeight;    // pixels
  float PanMin, PanMax, TiltMin, TiltMax;  // degrees; the camera itself keeps to them
  float FieldOfView;                       // degrees, horizontally and vertically

  static const Model* Find(std::string_view name);
};

const Vivotek::Model* Vivotek::Model::Find(std::string_view name) {
  static constexpr Model table[] = {
      // The lower-case x is literal.
      {"PZ61x", false, 352, 240, -135, 135, -45, 90, 44.5F},
      {"PT31x", false, 352, 240, -135, 135, -45, 45, 44.5F},
      {"PT713", false, 320, 240, -135, 135, -90, 45, 48},
      {"PZ71X", true, 704, 576, -150, 150, -45, 90, 48},
      {"PZ713", true, 704, 576, -175, 175, -35, 90, 48},
      {"PT716", true, 704, 576, -150, 150, -45, 90, 48},
      {"SD83X", true, 704, 576, -180, 180, -90, 0, 48},
      {"SD836", true, 704, 576, -180, 180, -90, 0, 48},
  };
  const auto* found = std::ranges::find(table, name.substr(0, 5), &Model::Prefix);
  return found == std::end(table) ? nullptr : found;
}

const DriverData Vivotek::Data = {
    .Move = MemberRule::OutcomeIfConnected,
    .MoveTo = MemberRule::OutcomeIfConnected,
    .MoveBoth = MemberRule::OutcomeIfConnected,
    .Zoom = MemberRule::OutcomeIfConnected,
    .PresetGoto = MemberRule::False,
    .PresetSave = MemberRule::False,
    .Home = MemberRule::OutcomeIfConnected,
    .DisconnectAnswersTrue = false,
    .SharedOptions = SharesAddress | SharesCamera,
    .NoAddress = DriverData::Failure{PTZErrorNoAddressSpecified, "No address specified"},
};

Vivotek::Vivotek(const Platform& platform) : HTTPDriver(platform) {}

Capabilities Vivotek::Capabilities() { return CapabilityBits_ | CapabilityHome | CapabilityRelativeControl; }

bool Vivotek::NewProtocol() const { return Model_ != nullptr && Model_->NewProtocol; }

std::string Vivotek::Camera() const { return Options_.Text("Camera", NewProtocol() ? "0" : "1"); }

/// A reply as text. Raises 17001 for another status than 200 and what `HTTPClient` raises.
std::string Vivotek::Fetch(const std::string& path) {
  const auto url = Url(path);
  LogMessage("Requesting " + url);
  const auto body = Client_.GetResource(url, "", "");
  RequireStatusOK(Client_);
  auto text = DecodeBytes(body, CodePage1252);
  LogMessage("Received: " + text);
  return text;
}

bool Vivotek::SendCommand(const std::string& parameters) {
  try {
    Fetch((NewProtocol() ? NewControlPath : OldControlPath) + Camera() + "&" + parameters);
    return true;
  } catch (const Error&) {
    return false;
  }
}

bool Vivotek::Connect(std::span<const std::uint8_t> options) {
  OpenOptions(options);
  CapabilityBits_ = {};
  const auto address = RequireAddress(Options_, Data);
  LogMessage("Connecting PTZ driver to " + address);

  const auto reply = Fetch(InformationPath);
  if (reply.empty()) Raise(PTZErrorConnectionFailed, "No valid reply from the device.");

  const Model* model = nullptr;
  ptzd::Capabilities bits{};
  const auto lines = PlainLines(reply);
  for (const auto& [name, value] : Split2D(lines, "\n", "=")) {
    const auto key = LowerCase(name);
    if (key == "model") {
      LogMessage("Camera model: " + std::string(value));
      model = Model::Find(value);
      if (model == nullptr)
        Raise(PTZErrorUnrecognisedDevice, "Unrecognized model number: " + MaskCredentials(value));
    } else if (key == "ptzenabled") {
      // The camera's number is taken as it stands, whatever its bits mean there.
      bits = static_cast<ptzd::Capabilities>(ToInt32(Val(value)));
      if (bits != 0) bits |= CapabilityPreset | CapabilityContinuousMove | CapabilityContinuousZoom;
      LogMessage("Camera capabilities: " + std::string(value));
    }
  }
  if (bits == 0) Raise(PTZErrorPTZIncapable, "This device does not support PTZ.");
  // Without a model a click cannot be placed.
  if (model == nullptr) Raise(PTZErrorUnrecognisedDevice, "Unrecognized model number: ");

  CapabilityBits_ = bits;
  Model_ = model;
  SendCommand(HomeCommand);
  Connected_ = true;
  return true;
}

Variant Vivotek::Disconnect() {
  Connected_ = false;
  return {};
}

bool Vivotek::Move(Directions direction, float angle) {
  if (!Connected_) return false;
  LogMessage("Moving " + Text(angle) + " degrees " + Text(static_cast<std::int32_t>(direction)));
  const auto step = CancellingStepOf(direction, angle);
  const double pan = CurrentPan_ + step.Pan, tilt = CurrentTilt_ + step.Tilt;
  return MoveToPosition(ToInt32(pan), ToInt32(tilt));
}

bool Vivotek::MoveBoth(float panAngle, float tiltAngle) {
  if (!Connected_) return false;
  return MoveToPosition(static_cast<double>(CurrentPan_) + panAngle,
                        static_cast<double>(CurrentTilt_) + tiltAngle);
}

bool Vivotek::MoveTo(float pan, float tilt) { return Connected_ && MoveToPosition(pan, tilt); }

bool Vivotek::MoveToPosition(double targetPan, double targetTilt) {
  const auto pan = ToSingle(targetPan), tilt = ToSingle(targetTilt);
  LogMessage("Moving to " + Text(pan) + ", " + Text(tilt));
  const auto newPan = ToInt32(pan), newTilt = ToInt32(tilt);
  const double right = static_cast<double>(pan) - CurrentPan_;
  const double down = static_cast<double>(CurrentTilt_) - tilt;
  const double width = Model_->ImageWidth, height = Model_->ImageHeight, view = Model_->FieldOfView;
  const auto click = [](double x, double y) { return "x=" + Text(ToInt32(x)) + "&y=" + Text(ToInt32(y)); };

  std::string parameters;
  if (NewProtocol()) {
    const auto size = Text(width) + "x" + Text(height);
    parameters = "video=0&" +
                 click(Int(width / view * right + width / 2), Int(down * (height / view) + height / 2)) +
                 "&resolution=" + size + "&videosize=" + size + "&stretch=0";
  } else {
    parameters = click(Int(right * PanPixels) + width / 2, Int(down * TiltPixels) + height / 2);
  }
  if (!SendCommand(parameters)) return false;
  CurrentPan_ = newPan;
  CurrentTilt_ = newTilt;
  return true;
}

bool Vivotek::Zoom(Zooms zoomLevel) {
  if (!Connected_) return false;
  LogMessage("Zooming " + Text(static_cast<std::int32_t>(zoomLevel)));
  if (zoomLevel == ZoomIn) return SendCommand("zoom=tele");
  if (zoomLevel == ZoomOut) return SendCommand("zoom=wide");
  return false;
}

bool Vivotek::Home() { return Connected_ && SendCommand(HomeCommand); }

void Vivotek::SetPanTilt(float pan, float tilt) {
  if (!Connected_) return;
  const auto roundedPan = ToInt32(pan), roundedTilt = ToInt32(tilt);
  CurrentPan_ = roundedPan;
  CurrentTilt_ = roundedTilt;
}

std::int32_t Vivotek::PresetCount() { return NewProtocol() ? NumberedPresets : 0; }

// Both answer False on purpose, also where the camera did as told.
bool Vivotek::PresetSave(std::int32_t preset) {
  if (NewProtocol()) Fetch(SavePath + Camera() + "&addpos=" + NumberedPreset + Text(preset));
  return false;
}

bool Vivotek::PresetGoto(std::int32_t preset) {
  Recall(NumberedPreset + Text(preset));
  return false;
}

void Vivotek::GotoNamedPreset(const std::string& id) { Recall(UrlEncode(id)); }

void Vivotek::Recall(const std::string& encodedName) {
  if (NewProtocol()) Fetch(RecallPath + Camera() + "&recall=" + encodedName);
}

std::vector<PTZNamedPreset> Vivotek::GetNamedPresets() {
  if (!NewProtocol()) return {};
  std::vector<PTZNamedPreset> presets;
  std::set<std::string> ids;
  const auto lines = PlainLines(Fetch(InformationPath));
  for (const auto& [name, value] : Split2D(lines, "\n", "=")) {
    if (value.empty() || !LowerCase(name).starts_with("preset")) continue;
    const std::string id(value);
    if (!ids.insert(id).second) Raise(ErrorDuplicateKey);
    // The number is read from the "t" of "preset" on, which spells none: 0 on purpose.
    presets.emplace_back(0, id, id);
  }
  return presets;
}

void Vivotek::ContinuousMove(float pan, float tilt) {
  const bool isStop = pan == 0 && tilt == 0;
  const auto parameters = isStop ? StopMoveCommand
                                 : "vx=" + Text(pan) + "&vy=" + Text(tilt) +
                                       "&vs=" + SpeedText((std::abs(pan) + std::abs(tilt)) * MoveSpeedUnits);
  if (LastMove_.Replace(parameters, isStop)) SendCommand(parameters);
}

void Vivotek::ContinuousZoom(float amount) {
  const auto parameters = amount == 0 ? StopZoomCommand
                                      : std::string("zooming=") + (amount < 0 ? "wide" : "tele") +
                                            "&zs=" + SpeedText(std::abs(amount) * ZoomSpeedUnits);
  if (LastZoom_.Replace(parameters, amount == 0)) SendCommand(parameters);
}

}  // namespace ptzd
