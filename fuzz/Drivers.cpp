// Each driver in front of a camera that answers as the input says. The parts of an input are a session and
// then the replies, one for each request as long as there are any. The session's first line names the driver,
// its last are calls, and those between them are options:
//
//     Axis
//     Port=2
//     C t10,-20 z1 q
//
// A call is a letter of `Perform` and numbers. A reply may begin with its status line; "!" is none.

#include <ptzd/DriverFactory.h>
#include <ptzd/Error.h>
#include <ptzd/PTZContinuousControl.h>
#include <ptzd/PTZDevice2.h>
#include <ptzd/PTZMoveInImage.h>
#include <ptzd/PTZNamedPresets.h>
#include <ptzd/PTZOptions.h>
#include <ptzd/PropertyBag.h>
#include <ptzd/SanyoControl.h>

#include <array>
#include <cstdlib>
#include <limits>
#include <memory>
#include <numeric>

#include "Listener.h"
#include "Target.h"
#include "platform/RequestText.h"
#include "support/FakeClock.h"
#include "support/FakeInternet.h"
#include "support/FakeSerialPort.h"
#include "support/FakeSocket.h"
#include "transport/Split2DModule.h"

namespace ptzd::fuzz {

namespace {

constexpr std::size_t MostCalls = 32;

/// What the driver is connected to.
struct World {
  test::FakeClock Time;
  test::FakeInternet Net;
  test::FakeSockets Sockets{Time};
  test::FakeSerialPorts Ports{Time};
};

class CallArguments {
 public:
  explicit CallArguments(std::string_view text) : Text(text) {
    const char* at = Text.c_str();
    for (auto& number : Numbers_) {
      char* end = nullptr;
      number = std::strtof(at, &end);
      at = end == at || *end == 0 ? end : end + 1;
    }
  }

  float operator[](std::size_t i) const { return Numbers_[i]; }
  /// A host may hand over any 32-bit number.
  template <typename Value = std::int32_t>
  Value Whole(std::size_t i) const {
    constexpr float end = 2147483648.0F;
    const float number = Numbers_[i];
    return static_cast<Value>(number > -end && number < end ? static_cast<std::int32_t>(number)
                                                            : std::numeric_limits<std::int32_t>::min());
  }

  const std::string Text;

 private:
  std::array<float, 4> Numbers_{};
};

void Perform(char letter, PTZDevice& device, const Bytes& options, const CallArguments& a) {
  switch (letter) {
    case 'C':
      return Demand(device.Connect(options) || !device.Connected(), "a failed connect leaves no connection");
    case 'D':
      device.Disconnect();
      return;
    case 'q':
      device.Connected(), device.Pan(), device.Tilt(), device.Capabilities(), device.PresetCount();
      return;
    case 'm':
      device.Move(a.Whole<Directions>(0), a[1]);
      return;
    case 'b':
      device.MoveBoth(a[0], a[1]);
      return;
    case 't':
      device.MoveTo(a[0], a[1]);
      return;
    case 'z':
      device.Zoom(a.Whole<Zooms>(0));
      return;
    case 'i':
      device.Iris(a.Whole<Iris>(0));
      return;
    case 'f':
      device.Focus(a.Whole<Focus>(0));
      return;
    case 'g':
      device.PresetGoto(a.Whole(0));
      return;
    case 's':
      device.PresetSave(a.Whole(0));
      return;
    case 'p':
      device.SetPanTilt(a[0], a[1]);
      return;
    case 'h':
      device.Home();
      return;
    default:
      break;
  }
}

void Perform(char letter, PTZDevice2& device, const Bytes&, const CallArguments& a) {
  switch (letter) {
    case 'Q':
      device.ZoomLevel(), device.Pan(), device.Tilt();
      return;
    case 'M':
      return device.Move(a.Whole<Directions>(0), a[1]);
    case 'B':
      return device.MoveBoth(a[0], a[1]);
    case 'T':
      return device.MoveTo(a[0], a[1], a[2]);
    case 'Z':
      return device.Zoom(a.Whole<Zooms>(0), a[1]);
    case 'o':
      return device.ZoomTo(a[0]);
    case 'd':
      return device.Disconnect();
    default:
      break;
  }
}

void Perform(char letter, PTZContinuousControl& device, const Bytes&, const CallArguments& a) {
  switch (letter) {
    case 'c':
      return device.ContinuousMove(a[0], a[1]);
    case 'k':
      return device.ContinuousZoom(a[0]);
    case 'x':
      return device.StopContinuous();
    default:
      break;
  }
}

void Perform(char letter, PTZMoveInImage& device, const Bytes&, const CallArguments& a) {
  if (letter == 'I') device.MoveInImage(a.Whole(0), a.Whole(1), a.Whole(2), a.Whole(3));
}

void Perform(char letter, PTZNamedPresets& device, const Bytes&, const CallArguments& a) {
  if (letter == 'N') device.GetNamedPresets();
  if (letter == 'G') device.GotoNamedPreset(a.Text);
}

void Perform(char letter, PTZOptions& device, const Bytes&, const CallArguments& a) {
  if (letter == 'O') device.NewEnum(), device.Item(a.Text), device.Item(a.Whole(0));
}

void Perform(char letter, SanyoControl& device, const Bytes&, const CallArguments& a) {
  if (letter == 'S') device.SendOpeCmd(a.Whole(0), a.Text);
}

/// What happens to the world meanwhile.
void Perform(char letter, World& world, const CallArguments& a) {
  switch (letter) {
    case 'w':
      return world.Time.Advance(a.Whole(0));
    case 'u':
      world.Ports.Line.Plugged = a[0] != 0;
      world.Ports.Line.FramesUntilUnplugged = a.Whole(1);
      return;
    case 'e':
      world.Sockets.OpenError = a.Whole(0);
      world.Sockets.ConnectError = a.Whole(1);
      world.Sockets.SendError = a.Whole(2);
      return;
    default:
      break;
  }
}

template <typename... Interfaces>
void PerformOn(PTZDevice& device, char letter, const Bytes& options, const CallArguments& arguments) {
  const auto perform = [&](auto* face) {
    if (face != nullptr) Perform(letter, *face, options, arguments);
  };
  (perform(dynamic_cast<Interfaces*>(&device)), ...);
}

test::FakeReply ReplyOf(std::string_view part) {
  test::FakeReply reply;
  if (part == "!") reply.Answers = false;
  if (part.starts_with("HTTP/")) {
    const auto end = part.find('\n');
    reply.StatusLine = part.substr(0, end);
    part.remove_prefix(end == part.npos ? part.size() : end + 1);
  }
  reply.Body = part;
  return reply;
}

const DriverClass& DriverNamed(std::string_view name) {
  const auto drivers = DriverClasses();
  for (const auto& driver : drivers)
    if (driver.ProgID.substr(driver.ProgID.find('.') + 1) == name) return driver;
  return drivers[std::accumulate(name.begin(), name.end(), std::size_t{0}) % drivers.size()];
}

}  // namespace

void Drivers(std::string_view input) {
  const auto parts = PartsOf(input);
  auto session = LinesOf(parts.front());
  if (session.size() < 2) return;
  const auto& driver = DriverNamed(session.front());
  const auto calls = session.back();

  PropertyBag bag;
  bag.WriteProperty("Address", std::string("camera1"));
  bag.WriteProperty("COMPort", 1);
  for (const auto line : std::span(session).subspan(1, session.size() - 2))
    if (const auto sign = line.find('='); sign != line.npos && sign != 0)
      bag.WriteProperty(std::string(line.substr(0, sign)), std::string(line.substr(sign + 1)));
  const auto options = bag.Contents();

  World world;
  for (std::size_t i = 1; i < parts.size(); ++i) world.Net.Replies.push_back(ReplyOf(parts[i]));
  {
    const auto device = driver.Create({.Internet = &world.Net,
                                       .Clock = &world.Time,
                                       .Sockets = &world.Sockets,
                                       .DebugOutput = [](std::string_view) {},
                                       .Exchanges = std::make_shared<Listener>()});
    const auto words = ptzd::Split(calls, " ");
    for (std::size_t i = 0; i < words.size() && i < MostCalls; ++i) {
      if (words[i].empty()) continue;
      const CallArguments arguments(words[i].substr(1));
      Perform(words[i].front(), world, arguments);
      try {
        PerformOn<PTZDevice, PTZDevice2, PTZContinuousControl, PTZMoveInImage, PTZNamedPresets, PTZOptions,
                  SanyoControl>(*device, words[i].front(), options, arguments);
      } catch (const Error& error) {
        Demand(error.Number() != 0, "an error has a number");
      }
    }
  }
  Demand(world.Net.OpenHandles() == 0, "no handle of a session is left");
  Demand(world.Sockets.Alive == 0, "no socket is left");
  for (const auto& request : world.Net.Sent) {
    Demand(request.Object.empty() || request.Object.starts_with('/'), "a request asks for a path");
    Demand(!HasLineBreakOrNul(request.Object) && !HasLineBreakOrNul(request.Host), "a request's line is one");
    Demand(AreHeaderLines(request.Headers), "header lines stay so");
  }
}

}  // namespace ptzd::fuzz
