// Vivotek and D-Link cameras: CGI requests over HTTP GET, replies of "key=value" lines. Two generations: the
// older ones take clicks in the picture at a fixed number of pixels per degree, the newer ones in a picture
// of 704 x 576 that shows 48 degrees either way. A command is accepted by status 200.

#include "drivers/Vivotek.h"

#include <algorithm>
#include <cmath>
#include <set>

#include <ptzd/Error.h>
#include <ptzd/Logging.h>
#include "common/Concatenation.h"
#include "common/Credentials.h"
#include "common/Numbers.h"
#include "drivers/kit/DriverErrors.h"
#include "drivers/kit/Options.h"
#include "platform/LetterCase.h"
#include "transport/HTTP.h"
#include "transport/Split2DModule.h"

namespace ptzd {

namespace {

constexpr std::string_view InformationPath = "/cgi-bin/sysinfo.cgi";
constexpr std::string_view NewControlPath = "/cgi-bin/viewer/camctrl.cgi?channel=";
constexpr std::string_view OldControlPath = "/cgi-bin/camctrl.cgi?cam=";
constexpr std::string_view SavePath = "/cgi-bin/operator/preset.cgi?channel=";
constexpr std::string_view RecallPath = "/cgi-bin/viewer/recall.cgi?channel=";

// A numbered preset is a named one: the host product's name and the number.
constexpr std::string_view NumberedPreset = "Quorvane%20preset%20";
constexpr std::int32_t NumberedPresets = 128;

constexpr std::string_view HomeCommand = "move=home";
constexpr std::string_view StopMoveCommand = "vx=0&vy=0&vs=0";
constexpr std::string_view StopZoomCommand = "zooming=wide&zs=0";

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

constexpr RequestStyle Style{
    .AnnouncesUrl = true,
    .Completion = "Received: ",
    .Failure = "",
    .AcceptsStatus = [](std::string_view code) { return code == "200"; },
};

constexpr const DriverOption* Options[] = {&AddressOption, &CameraOption};

constexpr Evidence Signs[] = {
    {.Request = InformationPath, .Pattern = "Model=*ptzenabled="},
};
constexpr std::string_view MakeNames[] = {"Vivotek", "D-Link"};

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
    .Class = "QVPTZ.Vivotek",
    .Capabilities = CapabilityHome | CapabilityRelativeControl,
    .Move = MemberRule::OutcomeIfConnected,
    .MoveTo = MemberRule::OutcomeIfConnected,
    .MoveBoth = MemberRule::OutcomeIfConnected,
    .Zoom = MemberRule::OutcomeIfConnected,
    .PresetGoto = MemberRule::Fails,  // on purpose, also where the camera did as told
    .PresetSave = MemberRule::Fails,
    .Home = MemberRule::OutcomeIfConnected,
    .SetPanTilt = PlaceRule::TakenIfConnected,
    .DisconnectAnswersTrue = false,
    .OppositesCancel = true,
    .PanRange = ValueRange{-180, 180, "degrees", Beyond::PassedOn, true},
    .TiltRange = ValueRange{-90, 90, "degrees", Beyond::PassedOn, true},
    .PanSpeed = ValueRange{.Unit = "5 camera speeds"},
    .TiltSpeed = ValueRange{.Unit = "5 camera speeds"},
    .ZoomSpeed = ValueRange{.Unit = "10 camera speeds"},
    .MovesToConnect = ConnectMovement::OnEveryModel,
    .NoAddress = DriverData::Failure{PTZErrorNoAddressSpecified, "No address specified"},
    .Options = Options,
    .Evidence = Signs,
    .MakeNames = MakeNames,
};

Vivotek::Vivotek(const Platform& platform) : HTTPDriver(Data, platform, Style), ContinuousDriver(Data) {}

bool Vivotek::Open() {
  LogMessage("Connecting PTZ driver to " + AddressOption.In(Options_));

  const auto reply = TextOf(InformationPath);
  if (reply.empty()) Raise(PTZErrorConnectionFailed, "No valid reply from the device.");

  Found_ = {};  // what an earlier one told holds until here
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

  Found_ = bits;
  Model_ = model;
  SendCommand(HomeCommand);
  return true;
}

bool Vivotek::DeviceMove(Directions direction, float angle) {
  return Ruled(Data_.Move, [&] {
    LogMessage("Moving " + Text(angle) + " degrees " + Text(static_cast<std::int32_t>(direction)));
    const auto step = CancellingStepOf(direction, angle);
    return GoTo({0.0 + ToInt32(Current_.Pan + step.Pan), 0.0 + ToInt32(Current_.Tilt + step.Tilt)});
  });
}

/// The click is at the target, the position that is kept in whole degrees.
bool Vivotek::GoTo(HeadPosition target) {
  const auto pan = ToSingle(target.Pan), tilt = ToSingle(target.Tilt);
  LogMessage("Moving to " + Text(pan) + ", " + Text(tilt));
  const auto newPan = ToInt32(pan), newTilt = ToInt32(tilt);
  const double right = pan - Current_.Pan;
  const double down = Current_.Tilt - tilt;
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
  Current_ = {0.0 + newPan, 0.0 + newTilt};
  return true;
}

bool Vivotek::Zoom(Zooms zoomLevel) {
  const LogScope scope(Subject_);
  if (Connected_) LogMessage("Zooming " + Text(static_cast<std::int32_t>(zoomLevel)));
  return HTTPDriver::Zoom(zoomLevel);
}

bool Vivotek::ZoomBy(Zooms direction, float) {
  return SendCommand(direction == ZoomIn ? "zoom=tele" : "zoom=wide");
}

std::int32_t Vivotek::PresetCount() { return NewProtocol() ? NumberedPresets : 0; }

bool Vivotek::SavePreset(std::int32_t preset) {
  if (NewProtocol()) TextOf(SavePath + Camera() + "&addpos=" + NumberedPreset + Text(preset));
  return NewProtocol();
}

bool Vivotek::GoToPreset(std::int32_t preset) {
  Recall(NumberedPreset + Text(preset));
  return NewProtocol();
}

bool Vivotek::GoHome() { return SendCommand(HomeCommand); }

void Vivotek::GotoNamedPreset(const std::string& id) { Recall(UrlEncode(id)); }

void Vivotek::Recall(const std::string& encodedName) {
  if (NewProtocol()) TextOf(RecallPath + Camera() + "&recall=" + encodedName);
}

std::vector<PTZNamedPreset> Vivotek::GetNamedPresets() {
  if (!NewProtocol()) return {};
  std::vector<PTZNamedPreset> presets;
  std::set<std::string> ids;
  const auto lines = PlainLines(TextOf(InformationPath));
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
  const auto parameters = isStop ? std::string(StopMoveCommand)
                                 : "vx=" + Text(pan) + "&vy=" + Text(tilt) +
                                       "&vs=" + SpeedText((std::abs(pan) + std::abs(tilt)) * MoveSpeedUnits);
  if (LastMove_.Replace(parameters, isStop)) SendCommand(parameters);
}

void Vivotek::ContinuousZoom(float amount) {
  const auto parameters = amount == 0 ? std::string(StopZoomCommand)
                                      : std::string("zooming=") + (amount < 0 ? "wide" : "tele") +
                                            "&zs=" + SpeedText(std::abs(amount) * ZoomSpeedUnits);
  if (LastZoom_.Replace(parameters, amount == 0)) SendCommand(parameters);
}

void Vivotek::TakePlace(float pan, float tilt) { Current_ = {0.0 + ToInt32(pan), 0.0 + ToInt32(tilt)}; }

bool Vivotek::NewProtocol() const { return Model_ != nullptr && Model_->NewProtocol; }

std::string Vivotek::Camera() const { return Options_.Text(CameraOption.Name, NewProtocol() ? "0" : "1"); }

bool Vivotek::SendCommand(std::string_view parameters) {
  const auto path = NewProtocol() ? NewControlPath : OldControlPath;
  return Request(path + Camera() + "&" + parameters).has_value();
}

/// A reply that is needed. Raises 17001 for another status than 200 and what `HTTPClient` raises.
std::string Vivotek::TextOf(std::string_view path) {
  auto reply = Fetch(path);
  if (reply.Failure) throw *reply.Failure;
  return std::move(reply.Text);
}

}  // namespace ptzd
