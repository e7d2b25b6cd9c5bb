// Every operation of every driver, done by a simulated camera of its make. What came of each stands in the
// test's properties; the support matrix is made from them.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <ranges>

#include <ptzd/Logging.h>
#include <ptzd/PropertyBag.h>
#include <ptzd/SerialPortPool.h>
#include "contract/Subject.h"
#include "simulators/Axis.h"
#include "simulators/Bosch.h"
#include "simulators/Elmo.h"
#include "simulators/Foscam.h"
#include "simulators/Grandeye.h"
#include "simulators/MeritLilin.h"
#include "simulators/Panasonic.h"
#include "simulators/PanasoniciPro.h"
#include "simulators/Panogenics.h"
#include "simulators/Pelco.h"
#include "simulators/Quorvane.h"
#include "simulators/Sanyo.h"
#include "simulators/Secubest.h"
#include "simulators/Sony.h"
#include "simulators/Toshiba.h"
#include "simulators/Vivotek.h"
#include "support/AsyncSends.h"
#include "support/Exchanges.h"
#include "support/FakeClock.h"

namespace ptzd {

namespace {

using namespace std::chrono_literals;
using ptzsim::ClockKind;

/// Where a camera looks: degrees, right and up positive; the rest in the camera's units, more of them for
/// closer, open and far.
struct Pose {
  double Pan = 0, Tilt = 0, Zoom = 0, Iris = 0, Focus = 0;
};

template <class Camera>
Pose Look(const ptzsim::Simulator& simulator) {
  const auto head = static_cast<const Camera&>(simulator).Head();
  Pose pose{static_cast<double>(head.Pan), static_cast<double>(head.Tilt)};
  if constexpr (requires { head.Zoom; }) pose.Zoom = static_cast<double>(head.Zoom);
  if constexpr (requires { head.Iris; }) pose.Iris = head.Iris;
  if constexpr (requires { head.Brightness; }) pose.Iris = head.Brightness;
  if constexpr (requires { head.Focus; }) pose.Focus = head.Focus;
  return pose;
}

/// What counts down towards closer.
Pose LookAtGrandeye(const ptzsim::Simulator& simulator) {
  auto pose = Look<ptzsim::Grandeye>(simulator);
  pose.Zoom = -pose.Zoom;
  return pose;
}

/// 14.4 units a degree, and tilt 0 lies 32.5 degrees above the middle.
Pose LookAtSony(const ptzsim::Simulator& simulator) {
  const auto pose = Look<ptzsim::Sony>(simulator);
  return {pose.Pan / 14.4, pose.Tilt / 14.4 - 32.5, pose.Zoom};
}

Pose LookAtQuorvane(const ptzsim::Simulator& simulator) {
  const auto feed = static_cast<const ptzsim::Quorvane&>(simulator).At("3");
  return {feed.Pan, feed.Tilt, feed.Zoom};
}

Pose LookAtSecubest(const ptzsim::Simulator& simulator) {
  const auto unit = static_cast<const ptzsim::Secubest&>(simulator).Unit();
  return {unit.Pan, unit.Tilt, unit.Zoom};
}

#ifndef _WIN32
/// In degrees of a head that turns by one in 10 ms, which is what drivers of this make count on; these
/// receivers do 80 and 40 a second.
Pose LookAtPelco(const ptzsim::Simulator& simulator) {
  const auto at = static_cast<const ptzsim::Pelco&>(simulator).Receiver().At;
  return {at.Pan / 0.8, at.Tilt / 0.4, at.Zoom, at.Iris, at.Focus};
}
#endif

/// What is peculiar to a driver and its camera.
struct Traits {
  double ZoomStep = 0;  ///< camera units of a step, which is a quarter of the interfaces' 1
  double IrisStep = 0, FocusStep = 0;
  double Widest = 0;           ///< the camera's zoom where the interfaces have 0
  bool FromStart = false;      ///< positions count from where the camera looked on connecting
  bool ReadsZoom = true;       ///< else the driver's zoom is 0 until it has sent one
  bool EightWays = false;      ///< turns straight, or by the same angle on both axes
  bool TurnsDownOnly = false;  ///< by PTZDevice2::Move
  bool ZoomsOutAtHome = false;
  double PanWithin = 0.51, TiltWithin = 0.51;  ///< degrees; most drivers work in whole ones
  const char* Preset = "";                     ///< what the camera calls preset 2; empty where it has none
  Pose MainGate{};                             ///< where the first of the named presets is
  bool Answers = true;                         ///< else a command is sent and not waited for
  const char* Variant = "";                    ///< where a driver is tried on several cameras
};

/// A camera that a driver is tried on.
struct Make {
  const char* Class;
  std::function<std::unique_ptr<ptzsim::Simulator>()> Camera;
  Pose (*Look)(const ptzsim::Simulator&);
  Traits Its;

  std::string ProgID() const { return std::string("QVPTZ.") + Class; }
};
void PrintTo(const Make& make, std::ostream* out) { *out << make.Class << make.Its.Variant; }

template <class Camera>
Make On(const char* driver, typename Camera::Options options, Traits its,
        Pose (*look)(const ptzsim::Simulator&) = Look<Camera>) {
  options.Clock = ClockKind::Manual;
  return {driver, [options] { return std::make_unique<Camera>(options); }, look, its};
}

const Make Makes[] = {
    // A step is a quarter of the magnification that the field angles give.
    On<ptzsim::Axis>(
        "Axis", {},
        {.ZoomStep = 9999 / (623 / 22.0) / 1.1 / 4, .IrisStep = 1000, .FocusStep = 1000, .Widest = 1}),
    On<ptzsim::Axis>("Axis", {.Heads = {ptzsim::AxisHead::Relative}},
                     {.ZoomStep = 101,
                      .IrisStep = 1000,
                      .FocusStep = 1000,
                      .FromStart = true,
                      .Preset = "Quor-vane Preset 2",
                      .Variant = "Relative"}),
    On<ptzsim::Bosch>("Bosch", {}, {.ZoomStep = 0.25, .TurnsDownOnly = true}),
    On<ptzsim::Elmo>("Elmo", {.Model = "200"},
                     {.ZoomStep = 50, .IrisStep = 50, .FocusStep = 50, .Preset = "3"}),
    On<ptzsim::Elmo>("Elmo4", {.Model = "400"},
                     {.ZoomStep = 108, .Widest = 64, .ZoomsOutAtHome = true, .Preset = "3"}),
    On<ptzsim::Elmo>("Elmo402", {.Model = "PTC-402C"}, {.ZoomStep = 104.5, .ZoomsOutAtHome = true}),
    On<ptzsim::Foscam>("Foscam", {}, {.FromStart = true, .EightWays = true, .Preset = "2"}),
    On<ptzsim::Foscam>("FoscamHD", {.Generation = ptzsim::Foscam::Kind::HD},
                       {.FromStart = true, .EightWays = true, .Preset = "Quorvane preset 3"}),
    On<ptzsim::Grandeye>("Grandeye", {}, {.ZoomStep = 250}, LookAtGrandeye),
    On<ptzsim::MeritLilin>("MeritLilin", {},
                           {.ZoomStep = 1, .IrisStep = 1, .FocusStep = 1, .Widest = 1, .Preset = "2"}),
    On<ptzsim::Panasonic>("Panasonic", {}, {.ZoomStep = 50, .IrisStep = 1, .FocusStep = 50}),
    On<ptzsim::PanasoniciPro>("PanasoniciPro", {}, {.ZoomStep = 0.25, .Widest = 1}),
    On<ptzsim::Panogenics>("Panogenics", {}, {.ZoomStep = 12.5, .Preset = "3"}),
#ifndef _WIN32  // has no pseudo-terminals
    On<ptzsim::Pelco>("Pelco", {.Line = {.Baud = 2400, .Raw = false}},
                      {.ZoomStep = 50,
                       .IrisStep = 31.25,
                       .FocusStep = 50,
                       .FromStart = true,
                       .EightWays = true,
                       .Preset = "3",
                       .Answers = false},
                      LookAtPelco),
#endif
    On<ptzsim::Quorvane>("Quorvane", {}, {.ZoomStep = 0.25, .FromStart = true, .MainGate = {-317, 42, 2.5}},
                         LookAtQuorvane),
    On<ptzsim::Sanyo>("Sanyo", {.Session = 24h}, {.ZoomStep = 0.25, .Preset = "3"}),
    On<ptzsim::Secubest>("Secubest", {},
                         {.ZoomStep = 0.25, .FromStart = true, .EightWays = true, .Answers = false},
                         LookAtSecubest),
    On<ptzsim::Sony>("Sony", {}, {.ZoomStep = 1300, .ReadsZoom = false, .Answers = false}, LookAtSony),
    // A grid of 7 by 5.4 degrees.
    On<ptzsim::Toshiba>("Toshiba", {.Model = "IK-WB01"}, {.PanWithin = 3.6, .TiltWithin = 2.8}),
    On<ptzsim::Toshiba>("Toshiba2", {.Model = "IK-WB15"}, {.ZoomStep = 50}),
    On<ptzsim::Vivotek>("Vivotek", {},
                        {.ZoomStep = 50, .Preset = "Quorvane preset 2", .MainGate = {-52.25, -17, 610}}),
};

TEST(Makes, EveryDriverHasOne) {
  for (const auto& driver : DriverClasses()) {
#ifdef _WIN32
    if (driver.ProgID == "QVPTZ.Pelco") continue;
#endif
    EXPECT_TRUE(std::ranges::any_of(Makes, [&](const Make& make) { return make.ProgID() == driver.ProgID; }))
        << driver.ProgID << " is tried on no camera";
  }
}

/// Lets the camera's time pass where a driver waits, once what it sent before has arrived.
class CameraClock final : public test::FakeClock {
 public:
  void SleepUntil(TimePoint deadline) override {
    if (Camera == nullptr || deadline <= Now()) return;
    Camera->Log().WaitForRequests(Messages);
    Slept = true;
    Camera->Time().Advance(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Now()));
    FakeClock::SleepUntil(deadline);
  }
  ptzsim::Simulator* Camera = nullptr;
  std::size_t Messages = 1;
  bool Slept = false;
};

class EveryMake : public testing::TestWithParam<Make> {
 protected:
  void SetUp() override {
    const auto& make = GetParam();
    Class = FindDriverClass(make.ProgID());
    ASSERT_NE(Class, nullptr) << "no driver";
    Camera = make.Camera();
    Clock.Camera = Camera.get();
    PropertyBag options;
#ifndef _WIN32
    if (make.Class == std::string("Pelco")) {
      auto ports = std::make_shared<SharedSerialPorts>();
      ports->MapDevice(1, Camera->Addresses()[0]);
      UseSerialPortPool(ports);
      options.WriteProperty("COMPort", 1);
    }
#endif
    options.WriteProperty("Address", Camera->Addresses()[0]);
    options.WriteProperty("Feed", std::string("3"));
    Driver = test::CreateSubject(*Class, {.Clock = &Clock, .Exchanges = Told});
    ASSERT_NE(Driver.Device, nullptr);
    const auto before = Now();
    ASSERT_TRUE(Driver.Device->Connect(options.Contents()));
    const auto& data = *Class->Data;
    if ((data.PositionRequests & AsksOnConnecting) != 0 && !data.MisreadsBelowHorizon &&
        !make.Its.FromStart) {
      EXPECT_NEAR(std::remainder(Driver.Device->Pan() - before.Pan, 360), 0, make.Its.PanWithin);
      EXPECT_NEAR(Driver.Device->Tilt(), before.Tilt, make.Its.TiltWithin);
    }
    Settle();
    if (data.MovesToConnect == ConnectMovement::Never) {
      EXPECT_EQ(Now().Pan, before.Pan);
    }
  }
  void TearDown() override {
    if (Driver.Device != nullptr) Driver.Device->Disconnect();
    Driver = {};
    UseSerialPortPool(nullptr);
    EXPECT_TRUE(Sends.WaitForClosed(Sends.Sent())) << "the next test counts what is under way";
    if (Camera) Violations();
  }

  /// Long enough for any motion to end, and for the driver to ask again.
  void Settle() {
    Camera->Time().Advance(60s);
    Clock.Advance(5000);
  }

  Pose Now() const { return GetParam().Look(*Camera); }

  /// What a camera that does not answer is sent, and again where a timed move ends.
  struct Messages {
    std::size_t First = 1, Last = 1;
  };

  /// Does an operation, lets time pass, and holds the camera to where it should look then.
  template <class Do>
  void Try(const char* name, const Do& operation, const Pose& wanted, Messages messages = {}) {
    SCOPED_TRACE(name);
    Send(operation, messages);
    Settle();
    const auto& its = GetParam().Its;
    const auto now = Now();
    EXPECT_NEAR(std::remainder(now.Pan - wanted.Pan, 360), 0, its.PanWithin);
    EXPECT_NEAR(now.Tilt, wanted.Tilt, its.TiltWithin);
    EXPECT_NEAR(now.Zoom, wanted.Zoom, its.ZoomStep * 0.49) << "drivers round to whole steps";
    EXPECT_NEAR(now.Iris, wanted.Iris, 1e-3);
    EXPECT_NEAR(now.Focus, wanted.Focus, 1e-3);
    RecordProperty(name, "moved");
  }
  /// The same for a motion that goes on: whether it goes the right way.
  template <class Do>
  void TryRunning(const char* name, const Do& operation, int pan, int tilt, int zoom) {
    SCOPED_TRACE(name);
    const auto sign = [](double way) { return (way > 0) - (way < 0); };
    Send(operation);
    const auto before = Now();
    Camera->Time().Advance(200ms);
    EXPECT_EQ(sign(Now().Pan - before.Pan), pan);
    EXPECT_EQ(sign(Now().Tilt - before.Tilt), tilt);
    EXPECT_EQ(sign(Now().Zoom - before.Zoom), zoom);
    RecordProperty(name, "moved");
  }
  template <class Do>
  void Send(const Do& operation, Messages messages = {}) {
    Driver.Device->Pan();  // what is read first is none of it
    Camera->Log().Clear();
    Clock.Messages = messages.First;
    Clock.Slept = false;
    operation();
    if (!GetParam().Its.Answers) {
      EXPECT_TRUE(Camera->Log().WaitForRequests(messages.First + (Clock.Slept ? messages.Last : 0)));
    }
    EXPECT_FALSE(Camera->Log().Requests().empty());
    Violations();
  }
  void Violations() { EXPECT_EQ(Camera->Log().Violations(), std::vector<std::string>{}); }

  const DriverClass* Class = nullptr;
  CameraClock Clock;
  test::AsyncSends Sends;
  std::shared_ptr<test::Exchanges> Told = std::make_shared<test::Exchanges>();
  std::unique_ptr<ptzsim::Simulator> Camera;
  test::Subject Driver;
};

/// Whether a preset stands under that number or name in a camera's state.
bool Lists(const nlohmann::json& state, const std::string& preset) {
  if (state.is_object() && state.contains("presets")) {
    const auto& presets = state["presets"];
    if (presets.is_object()) return presets.contains(preset);
    return std::ranges::any_of(presets, [&](const auto& p) { return p == preset || p.dump() == preset; });
  }
  return state.is_structured() &&
         std::ranges::any_of(state, [&](const auto& part) { return Lists(part, preset); });
}

TEST_P(EveryMake, TellsEachRequestAndItself) {
  std::mutex mutex;  // lines come from the thread that sends what nobody waits for, too
  std::string strangers;
  const std::string address = GetParam().Class == std::string("Pelco") ? "COM1" : Camera->Addresses()[0];
  SetLogLineSink([&](const LogLine& line) {
    const std::lock_guard lock(mutex);
    if (line.Text.ends_with("Status: 70")) return;  // a handle that Windows lets go of when it likes
    if (line.DriverClass != Class->ProgID || line.Address != address)
      strangers.append(line.Text).append("\n");
  });
  Driver.Device->MoveTo(20, -10);
  if (Driver.Continuous != nullptr) Driver.Continuous->StopContinuous();
  Driver.Device->Pan();
  if (Driver.NamedPresets != nullptr) Driver.NamedPresets->GetNamedPresets();
  EXPECT_TRUE(Sends.WaitForClosed(Sends.Sent())) << "the end of a driver gives up what is not answered yet";
  Driver = {};
  SetLogLineSink({});
  EXPECT_EQ(strangers, "") << "lines that do not say what driver they are about";
  std::vector<std::string> told, logged;
  for (const auto& exchange : Told->Ends()) {
    EXPECT_EQ(exchange.DriverClass, Class->ProgID);
    if (exchange.Where.empty()) continue;  // a URL with the address in it twice, which leads nowhere
    EXPECT_EQ(exchange.ErrorNumber, 0) << exchange.ErrorText;
    if (exchange.Link == ExchangeLink::HTTP)
      told.push_back("/" +
                     exchange.URL.substr(std::min(exchange.URL.find('/', 7), exchange.URL.size() - 1) + 1));
    else if (!exchange.Sent.empty())  // else the line was opened
      told.emplace_back(exchange.Sent.begin(), exchange.Sent.end());
  }
  ASSERT_TRUE(Camera->Log().WaitForRequests(told.size()));
  for (const auto& request : Camera->Log().Requests())
    logged.push_back(request.Method.empty() ? request.Raw : request.Target);
  std::ranges::sort(told);
  std::ranges::sort(logged);
  EXPECT_EQ(told, logged);
}

TEST_P(EveryMake, DoesWhatItsDataSays) {
  const auto& its = GetParam().Its;
  const auto& data = *Class->Data;
  auto& device = *Driver.Device;
  const auto start = its.FromStart ? Now() : Pose{};
  const float tilt = its.EightWays ? 0 : -10;
  Pose saved;
  struct Row {
    const char* Name;
    MemberRule Rule;
    std::function<bool()> Do;
    std::function<void(Pose&)> Change;
    bool Offered = true;
    Messages Sent{};
  };
  const bool presets = *its.Preset != '\0';
  const Messages lens{2, 1};  // by hand, and which way
  const Row rows[] = {
      {"MoveTo", data.MoveTo, [&] { return device.MoveTo(40, tilt); },
       [&](Pose& p) { p.Pan = start.Pan + 40, p.Tilt = start.Tilt + tilt; }},
      {"Move", data.Move, [&] { return device.Move(DirectionUpRight, 7); },
       [](Pose& p) { p.Pan += 7, p.Tilt += 7; }},
      {"PresetSave", data.PresetSave, [&] { return device.PresetSave(2); }, [&](Pose& p) { saved = p; },
       presets},
      {"MoveBoth", data.MoveBoth, [&] { return device.MoveBoth(9, its.EightWays ? 9 : -14); },
       [&](Pose& p) { p.Pan += 9, p.Tilt += its.EightWays ? 9 : -14; }},
      {"Home", data.Home, [&] { return device.Home(); },
       [&](Pose& p) {
         p.Pan = p.Tilt = 0;
         if (its.ZoomsOutAtHome) p.Zoom = its.Widest;
       }},
      {"PresetGoto", data.PresetGoto, [&] { return device.PresetGoto(2); }, [&](Pose& p) { p = saved; },
       presets},
      {"Zoom", data.Zoom, [&] { return device.Zoom(ZoomIn); },
       [&](Pose& p) { p.Zoom = (its.ReadsZoom ? p.Zoom : its.Widest) + its.ZoomStep; }},
      {"Iris", data.Iris, [&] { return device.Iris(IrisOpen); }, [&](Pose& p) { p.Iris += its.IrisStep; },
       true, lens},
      {"Focus", data.Focus, [&] { return device.Focus(FocusFar); },
       [&](Pose& p) { p.Focus += its.FocusStep; }, true, lens},
  };
  for (const auto& [name, rule, call, change, offered, messages] : rows) {
    if (rule == MemberRule::Nothing || !offered) {
      Camera->Log().Clear();
      EXPECT_FALSE(call()) << name;
      EXPECT_TRUE(Camera->Log().Requests().empty()) << name;
      RecordProperty(name, "nothing");
      continue;
    }
    bool answer = false;
    auto wanted = Now();
    change(wanted);
    Try(
        name, [&, call = call] { answer = call(); }, wanted, messages);
    EXPECT_EQ(answer, rule != MemberRule::Fails && rule != MemberRule::FailsIfConnected) << name;
    if (!std::string_view(name).starts_with("Move") || data.MisreadsBelowHorizon) continue;
    EXPECT_NEAR(device.Pan(), Now().Pan - start.Pan, its.PanWithin) << "what it says after " << name;
    EXPECT_NEAR(device.Tilt(), Now().Tilt - start.Tilt, its.TiltWithin) << "what it says after " << name;
  }
  EXPECT_EQ(device.PresetCount() > 0, presets);
  if (presets) {
    EXPECT_TRUE(Lists(Camera->State(), its.Preset)) << Camera->State();
  }
}

TEST_P(EveryMake, DoesWhatItsOtherInterfacesOffer) {
  const auto& make = GetParam();
  const auto& its = make.Its;
  if (auto* device2 = Driver.Device2) {
    const auto start = its.FromStart ? Now() : Pose{};
    const double widest = its.FromStart ? start.Zoom : its.Widest;
    // In a direction of the eight both axes turn, and the zoom runs, for the same time: by the sum over 1.5.
    const float tilt = its.EightWays ? -24 : -9, zoom = its.EightWays ? 32 : 1.5F;
    Pose wanted{start.Pan + 24, start.Tilt + tilt, widest + 4 * its.ZoomStep * zoom, Now().Iris, Now().Focus};
    Try("MoveTo with zoom", [&] { device2->MoveTo(24, tilt, zoom); }, wanted, {2, 2});  // head and zoom
    wanted.Pan += its.TurnsDownOnly ? 0 : 6;
    wanted.Tilt -= 6;
    Try(
        "Move without answer", [&] { device2->Move(DirectionDownRight, 6); }, wanted);
    wanted.Pan += -11, wanted.Tilt += its.EightWays ? 11 : 5;
    Try(
        "MoveBoth without answer", [&] { device2->MoveBoth(-11, its.EightWays ? 11 : 5); }, wanted);
    wanted.Zoom -= 2 * its.ZoomStep;
    Try(
        "Zoom by an amount", [&] { device2->Zoom(ZoomOut, 0.5F); }, wanted);
    wanted.Zoom = widest + 3 * its.ZoomStep;
    Try(
        "ZoomTo", [&] { device2->ZoomTo(0.75F); }, wanted);
  }
  if (auto* continuous = Driver.Continuous) {
    const auto offers = [&](ptzd::Capabilities capability) {
      return (Driver.Device->Capabilities() & capability) != 0;
    };
    if (offers(CapabilityContinuousMove)) {
      TryRunning(
          "ContinuousMove", [&] { continuous->ContinuousMove(-12, 9); }, -1, 1, 0);
      if (offers(CapabilityContinuousZoom)) {
        const bool stops = make.Class == std::string("Pelco");  // a frame is for all drives at once
        TryRunning(
            "ContinuousZoom", [&] { continuous->ContinuousZoom(5); }, stops ? 0 : -1, stops ? 0 : 1, 1);
      }
      if (make.Class == std::string("Sony")) {  // sends nothing for it, on purpose
        Camera->Log().Clear();
        continuous->StopContinuous();
        continuous->ContinuousMove(0, 0);
        EXPECT_TRUE(Camera->Log().WaitForRequests(1));
        EXPECT_EQ(Camera->Log().Requests().size(), 1U);
        RecordProperty("StopContinuous", "nothing");
      } else {
        Send([&] { continuous->StopContinuous(); }, {.First = 2});
        const auto after = Camera->State();
        Settle();
        EXPECT_EQ(Camera->State(), after) << "it has not stopped";
        if (make.Class != std::string("Bosch")) {  // is not sent the same twice
          Camera->Log().Clear();
          continuous->StopContinuous();
          EXPECT_TRUE(Camera->Log().WaitForRequests(offers(CapabilityContinuousZoom) ? 2 : 1))
              << "a stop again";
        }
        RecordProperty("StopContinuous", "moved");
      }
    }
  }
  if (auto* presets = Driver.NamedPresets) {
    Settle();
    const auto list = presets->GetNamedPresets();
    ASSERT_FALSE(list.empty());
    EXPECT_EQ(list[0].Name(), "Main gate");
    RecordProperty("GetNamedPresets", "sent");
    Try(
        "GotoNamedPreset", [&] { presets->GotoNamedPreset(list[0].ID()); }, its.MainGate);
  }
}

INSTANTIATE_TEST_SUITE_P(Catalogue, EveryMake, testing::ValuesIn(Makes), [](const auto& make) {
  return std::string(make.param.Class) + make.param.Its.Variant;
});

}  // namespace
}  // namespace ptzd
