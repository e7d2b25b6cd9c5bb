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
#include <ptzd/SerialPortPool.h>
#include "contract/Subject.h"
#include "simulated/EveryMake.h"
#include "support/AsyncSends.h"
#include "support/Exchanges.h"

namespace ptzd {

namespace {

using namespace std::chrono_literals;
using test::CameraClock;
using test::Make;
using test::Makes;
using test::Pose;

TEST(Makes, EveryDriverHasOne) {
  for (const auto& driver : DriverClasses()) {
#ifdef _WIN32
    if (driver.ProgID == "QVPTZ.Pelco") continue;
#endif
    EXPECT_TRUE(std::ranges::any_of(Makes, [&](const Make& make) { return make.ProgID() == driver.ProgID; }))
        << driver.ProgID << " is tried on no camera";
  }
}

/// What a camera that does not answer is sent, and again where a timed move ends.
struct Messages {
  std::size_t First = 1, Last = 1;
};

class EveryMake : public testing::TestWithParam<Make> {
 protected:
  void SetUp() override {
    const auto& make = GetParam();
    Class = FindDriverClass(make.ProgID());
    ASSERT_NE(Class, nullptr) << "no driver";
    Camera = make.Camera();
    Clock.Camera = Camera.get();
    Driver = test::CreateSubject(*Class, {.Clock = &Clock, .Exchanges = Told});
    ASSERT_NE(Driver.Device, nullptr);
    const auto before = Now();
    ASSERT_TRUE(Driver.Device->Connect(OptionsFor(make, *Camera)));
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
