#include "gateway/remote/Remote.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <string_view>
#include <vector>

#include "cameras/InputWords.h"
#include "common/ASCII.h"
#include "common/Printable.h"
#include "gateway/core/Order.h"
#include "gateway/core/Refusal.h"

namespace ptzgate {

namespace {

constexpr double FullJoystick = 100;

/// In ASCII: the other side takes bytes for those of its own code page.
std::string ASCIIMarkup(const std::string& text) {
  const auto markup = ptzd::MarkupText(text);
  std::string ascii;
  for (std::size_t at = 0; at < markup.size();) {
    const auto byte = [&](std::size_t offset) { return static_cast<unsigned char>(markup[at + offset]); };
    const std::size_t size = byte(0) < 0x80 ? 1 : byte(0) < 0xe0 ? 2 : byte(0) < 0xf0 ? 3 : 4;
    std::uint32_t character = size == 1 ? byte(0) : byte(0) & (0x7fU >> size);
    for (std::size_t i = 1; i < size; ++i) character = character << 6 | (byte(i) & 0x3fU);
    ascii += size == 1 ? std::string(1, markup[at]) : "&#" + std::to_string(character) + ";";
    at += size;
  }
  return ascii;
}

std::string Element(const char* name, const std::string& id, const std::string& text) {
  return std::string("<") + name + " id=\"" + ASCIIMarkup(id) + "\" name=\"" + ASCIIMarkup(text) + "\"/>\r\n";
}

Response Document(const std::string& root, const std::string& content) {
  return {.Headers = {{"Content-Type", "text/xml; charset=utf-8"}, {"Cache-Control", "no-store"}},
          .Body = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<" + root + ">\r\n" + content + "</" + root +
                  ">\r\n"};
}

/// The other side takes this text and nothing else for a success.
Response Done() {
  return {.Headers = {{"Content-Type", "text/html"}, {"Cache-Control", "no-store"}}, .Body = "OK"};
}

Response Failed(int status, const std::string& why) {
  return {.Status = status, .Headers = {{"Content-Type", "text/plain; charset=utf-8"}}, .Body = why};
}

int StatusOf(Refusal::Why why) {
  switch (why) {
    case Refusal::Why::Unknown:
      return 404;
    case Refusal::Why::NotAllowed:
      return 403;
    case Refusal::Why::Held:
      return 409;
    case Refusal::Why::Ending:
      return 503;
    default:
      return 400;
  }
}

double NumberAt(const Request& request, const char* name) {
  const auto* text = request.Parameter(name);
  const auto number = text == nullptr ? std::nullopt : ptzd::WholeTextNumber(*text);
  if (!number || std::abs(*number) > std::numeric_limits<float>::max())
    throw Refusal(Refusal::Why::Invalid, std::string(name) + " is missing or not a number");
  return *number;
}

/// Of what may be left out.
double OffsetAt(const Request& request, const char* name) {
  return request.Parameter(name) == nullptr ? 0 : NumberAt(request, name);
}

float SpeedOf(const Request& request, const char* name, const std::optional<Range>& range) {
  const auto part = std::clamp(NumberAt(request, name), -FullJoystick, FullJoystick) / FullJoystick;
  if (part != 0 && !range)
    throw Refusal(Refusal::Why::Unsupported, "this camera has no continuous motion of that axis");
  return part == 0 ? 0 : static_cast<float>(SpeedAt(*range, part));
}

bool IsStill(const ptzd::DriveSpeeds& speeds) {
  const bool turns = speeds.PanTilt && (speeds.PanTilt->Pan != 0 || speeds.PanTilt->Tilt != 0);
  return !turns && speeds.Zoom.value_or(0) == 0;
}

}  // namespace

bool Remote::Has(const std::string& path) { return path == "/feedlist.xml" || path.starts_with("/ptz/"); }

void Remote::Handle(const std::shared_ptr<Call>& call) {
  if (!Gate_.Settings().Remote) return call->Answer(Problem(404, "this gateway is no remote system"));
  if (call->Asked().Method != "GET") return call->Answer(MethodProblem(call->Asked(), "GET"));
  Access_.Identify(call, "remote", [this, call](const Client& client) {
    try {
      Serve(call, client);
    } catch (const Refusal& refusal) {
      call->Answer(Failed(StatusOf(refusal.Reason()), refusal.what()));
    }
  });
}

void Remote::Forget(std::uint64_t connection) {
  std::erase_if(Joysticks_,
                [connection](const auto& joystick) { return joystick.first.first == connection; });
}

void Remote::Serve(const std::shared_ptr<Call>& call, const Client& client) {
  const auto& request = call->Asked();
  if (request.Path == "/feedlist.xml") {
    std::string feeds;
    for (const auto& camera : Gate_.CamerasFor(client.User))
      feeds += Element("feed", camera->Name(), camera->Name());
    return call->Answer(Document("feeds", feeds));
  }
  const auto* feed = request.Parameter("feed");
  if (feed == nullptr) throw Refusal(Refusal::Why::Invalid, "no feed is named");
  const auto camera = Gate_.Find(*feed, client.User);
  if (request.Path == "/ptz/control.htm") return Control(call, client, *camera);
  if (request.Path != "/ptz/presets.xml")
    return call->Answer(Problem(404, "there is nothing at " + request.Path));
  std::string presets;
  for (const auto& preset : camera->Presets())
    if (preset.HasName) presets += Element("preset", preset.Token, preset.Name);
  call->Answer(Document("presets", presets));
}

void Remote::Control(const std::shared_ptr<Call>& call, const Client& client, GateCamera& camera) {
  const auto& request = call->Asked();
  const auto word = [&](const char* name) {
    const auto* text = request.Parameter(name);
    return text == nullptr ? std::string() : *text;
  };
  const auto move = word("move"), zoom = word("zoom");
  if (move.empty() && zoom.empty()) throw Refusal(Refusal::Why::Invalid, "no command");

  // All of it is read before anything moves.
  std::vector<Order> orders;
  ptzd::DriveSpeeds drive;
  const auto& ranges = camera.RangesNow();
  if (move == "offset") {
    const auto pan = OffsetAt(request, "pan"), tilt = OffsetAt(request, "tilt");
    if (pan != std::floor(pan) || tilt != std::floor(tilt))
      throw Refusal(Refusal::Why::Invalid, "pan and tilt are whole numbers");
    if (pan != 0 || tilt != 0) orders.push_back(MoveBy{static_cast<float>(pan), static_cast<float>(tilt)});
  } else if (move == "joystick") {
    drive.PanTilt = {SpeedOf(request, "x", ranges.PanSpeed), SpeedOf(request, "y", ranges.TiltSpeed)};
  } else if (move == "preset") {
    orders.push_back(GoToPreset{word("preset")});
  } else if (!move.empty()) {
    throw Refusal(Refusal::Why::Invalid, "there is no move " + move);
  }
  if (zoom == "offset") {
    const auto level = static_cast<float>(NumberAt(request, "level"));
    if (level != 0) orders.push_back(ZoomBy{level > 0 ? ptzd::ZoomIn : ptzd::ZoomOut, std::abs(level)});
  } else if (zoom == "joystick") {
    drive.Zoom = SpeedOf(request, "level", ranges.ZoomSpeed);
  } else if (!zoom.empty()) {
    throw Refusal(Refusal::Why::Invalid, "there is no zoom " + zoom);
  }

  if (drive.PanTilt || drive.Zoom) return Drive(call, client, camera, drive);
  if (orders.empty()) return call->Answer(Done());  // an offset of nothing
  // The first that fails is told, and the last that goes well.
  const auto left = std::make_shared<std::size_t>(orders.size());
  for (const auto& order : orders)
    camera.Do(client, order, {}, [call, left](const ptzd::WishOutcome& outcome) {
      if (!ptzd::IsDone(outcome.Result))
        call->Answer(Failed(502, std::string(ptzd::Name(outcome.Result)) + " " + outcome.Text));
      else if (--*left == 0)
        call->Answer(Done());
    });
}

void Remote::Drive(const std::shared_ptr<Call>& call, const Client& client, GateCamera& camera,
                   const ptzd::DriveSpeeds& change) {
  const auto told = [call](const ptzd::WishOutcome& outcome) {
    call->Answer(ptzd::IsDone(outcome.Result) || outcome.Result == ptzd::WishResult::Stopped
                     ? Done()
                     : Failed(502, std::string(ptzd::Name(outcome.Result)) + " " + outcome.Text));
  };
  const Key key{call->Connection(), camera.Name()};
  auto speeds = Joysticks_.contains(key) ? Joysticks_[key].Speeds : ptzd::DriveSpeeds();
  if (change.PanTilt) speeds.PanTilt = change.PanTilt;
  if (change.Zoom) speeds.Zoom = change.Zoom;
  if (IsStill(speeds)) {
    camera.Do(client, Stop(), told);
    Joysticks_.erase(key);
    return;
  }
  const auto* connection = call->Asked().Header("Connection");
  const bool stays = connection == nullptr || !ptzd::EqualsIgnoringCase(*connection, "close");
  const auto& settings = Gate_.Settings();
  // What somebody has stopped meanwhile does not go on with the next axis.
  const auto number = ++LastNumber_;
  const auto over = [this, life = std::weak_ptr(Life_), key, number](const ptzd::WishOutcome&) {
    if (!life.lock()) return;
    if (const auto known = Joysticks_.find(key); known != Joysticks_.end() && known->second.Number == number)
      Joysticks_.erase(known);
  };
  auto held = camera.Drive(client, speeds, stays ? settings.LongestLease : settings.Lease, over, told);
  auto& joystick = Joysticks_[key];
  joystick.Number = number;
  joystick.Speeds = speeds;
  joystick.Drive = std::move(held);
  if (!stays) {
    // It ends with its lease, not with the connection.
    const auto kept = std::make_shared<std::unique_ptr<HeldDrive>>(std::move(joystick.Drive));
    Joysticks_.erase(key);
    const auto timer = std::make_shared<boost::asio::steady_timer>(Gate_.Context(), settings.Lease);
    timer->async_wait([kept, timer](const auto&) { kept->reset(); });
  }
}

}  // namespace ptzgate
