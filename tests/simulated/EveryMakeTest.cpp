// Every operation of every driver, done by a simulated camera of its make. What came of each stands in the
// test's properties; the support matrix is made from them.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "contract/PropertyBag.h"
#include "contract/SerialPortPool.h"
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
#include "support/FakeClock.h"

namespace ptzd {

namespace {

using namespace std::chrono_literals;
using ptzsim::ClockKind;

/// A camera that a driver is tried on.
struct Make {
  const char* Class;
  std::unique_ptr<ptzsim::Simulator> (*Camera)();
  bool Answers = true;       ///< else a command is sent and not waited for
  const char* Variant = "";  ///< where a driver is tried on several

  std::string ProgID() const { return std::string("QVPTZ.") + Class; }
};
void PrintTo(const Make& make, std::ostream* out) { *out << make.Class << make.Variant; }

template <class Camera>
std::unique_ptr<ptzsim::Simulator> New(typename Camera::Options options) {
  options.Clock = ClockKind::Manual;
  return std::make_unique<Camera>(std::move(options));
}

constexpr Make Makes[] = {
    {"Axis", [] { return New<ptzsim::Axis>({}); }},
    {"Axis", [] { return New<ptzsim::Axis>({.Heads = {ptzsim::AxisHead::Relative}}); }, true, "Relative"},
    {"Bosch", [] { return New<ptzsim::Bosch>({}); }},
    {"Elmo", [] { return New<ptzsim::Elmo>({.Model = "200"}); }},
    {"Elmo4", [] { return New<ptzsim::Elmo>({.Model = "400"}); }},
    {"Elmo402", [] { return New<ptzsim::Elmo>({.Model = "PTC-402C"}); }},
    {"Foscam", [] { return New<ptzsim::Foscam>({}); }},
    {"FoscamHD", [] { return New<ptzsim::Foscam>({.Generation = ptzsim::Foscam::Kind::HD}); }},
    {"Grandeye", [] { return New<ptzsim::Grandeye>({}); }},
    {"MeritLilin", [] { return New<ptzsim::MeritLilin>({}); }},
    {"Panasonic", [] { return New<ptzsim::Panasonic>({}); }},
    {"PanasoniciPro", [] { return New<ptzsim::PanasoniciPro>({}); }},
    {"Panogenics", [] { return New<ptzsim::Panogenics>({}); }},
#ifndef _WIN32  // has no pseudo-terminals
    {"Pelco", [] { return New<ptzsim::Pelco>({.Line = {.Baud = 2400, .Raw = false}}); }, false},
#endif
    {"Quorvane", [] { return New<ptzsim::Quorvane>({}); }},
    {"Sanyo", [] { return New<ptzsim::Sanyo>({.Session = 24h}); }},
    {"Secubest", [] { return New<ptzsim::Secubest>({}); }, false},
    {"Sony", [] { return New<ptzsim::Sony>({}); }, false},
    {"Toshiba", [] { return New<ptzsim::Toshiba>({.Model = "IK-WB01"}); }},
    {"Toshiba2", [] { return New<ptzsim::Toshiba>({.Model = "IK-WB15"}); }},
    {"Vivotek", [] { return New<ptzsim::Vivotek>({}); }},
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
    Driver = test::CreateSubject(*Class, {.clock = &Clock});
    ASSERT_NE(Driver.Device, nullptr);
    ASSERT_TRUE(Driver.Device->Connect(options.Contents()));
    Settle();
  }
  void TearDown() override {
    if (Driver.Device != nullptr) Driver.Device->Disconnect();
    Driver = {};
    UseSerialPortPool(nullptr);
    if (Camera) Violations();
  }

  void Settle() { Camera->Time().Advance(60s); }

  /// Does an operation: "moved" where the camera's state shows it, "sent" where the camera took it without
  /// showing it, "nothing" where nothing came. A motion that goes on is given `time`. A camera that does not
  /// answer gets so many messages, and as many again where a timed move ends.
  template <class Do>
  std::string Try(const Do& operation, std::chrono::milliseconds time = 60s, std::size_t messages = 1) {
    Driver.Device->Pan();  // what is read first is none of it
    Camera->Log().Clear();
    Clock.Messages = messages;
    Clock.Slept = false;
    const auto before = Camera->State();
    operation();
    if (!GetParam().Answers) {
      EXPECT_TRUE(Camera->Log().WaitForRequests(Clock.Slept ? 2 * messages : messages));
    }
    Violations();
    Camera->Time().Advance(time);
    if (Camera->State() != before) return "moved";
    return Camera->Log().Requests().empty() ? "nothing" : "sent";
  }
  void Violations() { EXPECT_EQ(Camera->Log().Violations(), std::vector<std::string>{}); }

  const DriverClass* Class = nullptr;
  CameraClock Clock;
  std::unique_ptr<ptzsim::Simulator> Camera;
  test::Subject Driver;
};

TEST_P(EveryMake, DoesWhatItsDataSays) {
  const auto& data = *Class->Data;
  auto& device = *Driver.Device;
  struct Row {
    const char* Name;
    MemberRule Rule;
    std::function<bool()> Do;
  };
  const Row rows[] = {
      {"Move", data.Move, [&] { return device.Move(DirectionUpRight, 7); }},
      {"PresetSave", data.PresetSave, [&] { return device.PresetSave(2); }},
      {"MoveTo", data.MoveTo, [&] { return device.MoveTo(40, 10); }},
      {"MoveBoth", data.MoveBoth, [&] { return device.MoveBoth(8, 9); }},
      {"Home", data.Home, [&] { return device.Home(); }},
      {"PresetGoto", data.PresetGoto, [&] { return device.PresetGoto(2); }},
      {"Zoom", data.Zoom, [&] { return device.Zoom(ZoomIn); }},
      {"Iris", data.Iris, [&] { return device.Iris(IrisOpen); }},
      {"Focus", data.Focus, [&] { return device.Focus(FocusFar); }},
  };
  for (const auto& [name, rule, call] : rows) {
    if (rule == MemberRule::Nothing) {
      Camera->Log().Clear();
      EXPECT_FALSE(call()) << name;
      EXPECT_TRUE(Camera->Log().Requests().empty()) << name;
      RecordProperty(name, "nothing");
      continue;
    }
    bool answer = false;
    const auto came = Try([&, call = call] { answer = call(); });
    const bool alwaysFalse = rule == MemberRule::False || rule == MemberRule::FalseIfConnected;
    EXPECT_TRUE(came == "nothing" || answer != alwaysFalse) << name;
    RecordProperty(name, came);
  }
}

TEST_P(EveryMake, DoesWhatItsOtherInterfacesOffer) {
  const std::size_t messages = GetParam().Answers ? 1 : 2;  // one each for head and zoom
  if (auto* device2 = Driver.Device2) {
    RecordProperty("MoveTo with zoom", Try([&] { device2->MoveTo(23, -17, 1.5F); }, 60s, messages));
    RecordProperty("Move without answer", Try([&] { device2->Move(DirectionDownRight, 6); }));
    RecordProperty("MoveBoth without answer", Try([&] { device2->MoveBoth(-5, 11); }));
    RecordProperty("Zoom by an amount", Try([&] { device2->Zoom(ZoomIn, 0.5F); }));
    RecordProperty("ZoomTo", Try([&] { device2->ZoomTo(0.75F); }));
  }
  if (auto* continuous = Driver.Continuous) {
    const auto offers = [&](ptzd::Capabilities capability) {
      return (Driver.Device->Capabilities() & capability) != 0;
    };
    if (offers(CapabilityContinuousMove)) {
      RecordProperty("ContinuousMove", Try([&] { continuous->ContinuousMove(-12, 9); }, 200ms));
      if (offers(CapabilityContinuousZoom))
        RecordProperty("ContinuousZoom", Try([&] { continuous->ContinuousZoom(5); }, 200ms));
      if (GetParam().Class == std::string("Sony")) {  // sends nothing for it, on purpose
        Camera->Log().Clear();
        continuous->StopContinuous();
        continuous->ContinuousMove(0, 0);
        EXPECT_TRUE(Camera->Log().WaitForRequests(1));
        EXPECT_EQ(Camera->Log().Requests().size(), 1U);
        RecordProperty("StopContinuous", "nothing");
      } else {
        RecordProperty("StopContinuous", Try([&] { continuous->StopContinuous(); }, 0ms, 2));
        const auto after = Camera->State();
        Settle();
        EXPECT_EQ(Camera->State(), after) << "it has not stopped";
      }
    }
  }
  if (auto* presets = Driver.NamedPresets) {
    Settle();
    const auto list = presets->GetNamedPresets();
    ASSERT_FALSE(list.empty());
    RecordProperty("GetNamedPresets", "sent");
    RecordProperty("GotoNamedPreset", Try([&] { presets->GotoNamedPreset(list[0].ID()); }));
  }
}

INSTANTIATE_TEST_SUITE_P(Catalogue, EveryMake, testing::ValuesIn(Makes),
                         [](const auto& make) { return std::string(make.param.Class) + make.param.Variant; });

}  // namespace
}  // namespace ptzd
