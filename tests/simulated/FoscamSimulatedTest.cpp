// The two Foscam drivers over real sockets against a camera of their generation.

#include "simulators/Foscam.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>

#include "catalogue/DriverFactory.h"
#include "contract/PTZContinuousControl.h"
#include "contract/PropertyBag.h"
#include "support/FakeClock.h"

namespace ptzd {
namespace {

using namespace std::chrono_literals;

/// While a driver sleeps its camera moves on.
class SharedClock : public test::FakeClock {
 public:
  explicit SharedClock(std::function<void(std::chrono::milliseconds)> onSleep)
      : OnSleep_(std::move(onSleep)) {}
  void SleepUntil(TimePoint deadline) override {
    if (deadline > Now()) OnSleep_(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Now()));
    FakeClock::SleepUntil(deadline);
  }

 private:
  std::function<void(std::chrono::milliseconds)> OnSleep_;
};

class FoscamSimulated : public testing::Test {
 protected:
  void Connect(const char* progID, ptzsim::Foscam::Options settings, const std::string& login = "",
               bool invertPan = false) {
    if (Camera) CheckLog();
    settings.Clock = ptzsim::ClockKind::Manual;
    Camera.emplace(settings);
    Driver = CreateDriver(progID, {.clock = &Clock});
    PropertyBag options;
    options.WriteProperty("Address", login + Camera->Addresses().at(0));
    options.WriteProperty("InvertPan", invertPan);
    ASSERT_TRUE(Driver->Connect(options.Contents()));
    EXPECT_EQ(Camera->Log().ConnectionsOpened(), 0) << "connecting sends nothing";
  }
  void ConnectOlder(bool invertPan = false) { Connect("QVPTZ.Foscam", {}, "", invertPan); }
  void ConnectHD() {
    Connect("QVPTZ.FoscamHD",
            {.Generation = ptzsim::Foscam::Kind::HD, .User = "site@hq", .Password = "a:b%40&c d"},
            "site%40hq:a%3Ab%2540%26c%20d@");
  }
  void Settle() { Camera->Time().Advance(60s); }
  void ExpectHead(double pan, double tilt) {
    EXPECT_NEAR(Camera->Head().Pan, pan, 1e-3);
    EXPECT_NEAR(Camera->Head().Tilt, tilt, 1e-3);
  }
  PTZContinuousControl& Continuous() { return dynamic_cast<PTZContinuousControl&>(*Driver); }
  void TearDown() override { CheckLog(); }
  void CheckLog() {
    EXPECT_EQ(Camera->Log().Violations(), std::vector<std::string>{});
    EXPECT_EQ(Camera->Log().ConnectionsOpened(), 1) << "one connection serves all commands";
  }

  std::optional<ptzsim::Foscam> Camera;
  SharedClock Clock{[this](auto time) { Camera->Time().Advance(time); }};
  std::unique_ptr<PTZDevice> Driver;
};

// The driver begins at 0, 0, wherever the camera looks then.
constexpr double StartPan = 21.5, StartTilt = -8.25;

TEST_F(FoscamSimulated, OlderCamerasStepAlongTheAxes) {
  for (const bool invert : {false, true}) {
    ConnectOlder(invert);
    float tilt = 0;
    for (const float pan : {-128.5F, -100.0F, 0.25F, 77.0F, 128.5F}) {
      EXPECT_TRUE(Driver->MoveTo(pan, tilt));
      Settle();
      ExpectHead(StartPan + (invert ? -pan : pan), StartTilt + tilt);
      tilt = tilt == 0 ? 98.25F : tilt > 0 ? -51.75F : 0;
      EXPECT_TRUE(Driver->MoveTo(pan, tilt));
      Settle();
      ExpectHead(StartPan + (invert ? -pan : pan), StartTilt + tilt);
      EXPECT_EQ(Driver->Pan(), pan);
      EXPECT_EQ(Driver->Tilt(), tilt);
    }
  }
}

TEST_F(FoscamSimulated, OlderCamerasMissMostDiagonals) {
  ConnectOlder();
  EXPECT_TRUE(Driver->MoveBoth(10, 6));
  Settle();
  ExpectHead(StartPan + 8, StartTilt + 8);
  EXPECT_TRUE(Driver->Move(DirectionDownRight, 5)) << "asks for no degree";
  EXPECT_TRUE(Driver->Move(DirectionDownLeft, 5)) << "asks for less than none";
  EXPECT_TRUE(Driver->MoveBoth(-4, 9));
  Settle();
  ExpectHead(StartPan + 8 - 2.5, StartTilt + 8 + 2.5);
}

TEST_F(FoscamSimulated, OlderCamerasPresetsAndContinuousMotion) {
  ConnectOlder();
  EXPECT_TRUE(Driver->PresetGoto(4));
  Settle();
  ExpectHead(-72.5, 18.75);
  EXPECT_TRUE(Driver->PresetSave(0) && Driver->PresetSave(15));
  for (const auto& [pan, tilt] : {std::pair{1, 0}, {-1, 1}, {0, -1}, {0, 0}}) {
    const auto before = Camera->Head();
    Continuous().ContinuousMove(static_cast<float>(pan), static_cast<float>(tilt));
    Camera->Time().Advance(1s);
    ExpectHead(before.Pan + 25 * pan * (tilt == 0 ? 1 : 0.75),
               before.Tilt + 25 * tilt * (pan == 0 ? 1 : 0.75));
  }
  Continuous().ContinuousMove(1, -1);
  Continuous().StopContinuous();
  EXPECT_FALSE(Camera->Head().Moving);
  EXPECT_TRUE(Driver->PresetGoto(15));
  Settle();
  ExpectHead(-72.5, 18.75);
}

TEST_F(FoscamSimulated, HDCamerasRunForTheTimeThatAMoveNeeds) {
  ConnectHD();
  EXPECT_TRUE(Driver->Home());
  Settle();
  for (const auto& [pan, tilt] : {std::pair{0.0F, 90.0F},
                                  {0, -60},
                                  {0, 0},
                                  {150, 0},
                                  {-150, 0},
                                  {0, 0},
                                  {-30, 30},
                                  {0, 0},
                                  {30, 30},
                                  {0, 0},
                                  {0, 0.1F},
                                  {33, 0.1F}}) {
    EXPECT_FALSE(Driver->MoveTo(pan, tilt)) << "never True, though the camera moves";
    EXPECT_FALSE(Camera->Head().Moving);
    ExpectHead(pan, tilt);
    EXPECT_EQ(Driver->Pan(), pan);
    EXPECT_EQ(Driver->Tilt(), tilt);
  }
  EXPECT_FALSE(Driver->Move(DirectionLeft, 3));
  ExpectHead(30, 0.1);
}

TEST_F(FoscamSimulated, HDCamerasPresetsAndContinuousMotion) {
  ConnectHD();
  EXPECT_TRUE(Driver->PresetSave(0));
  EXPECT_TRUE(Camera->Head().Presets.contains("Quorvane preset 1"));
  EXPECT_TRUE(Driver->PresetGoto(9)) << "the camera's result is not looked at";
  for (const auto& [pan, tilt, speed] : {std::tuple{25, 0, 0}, {-12, 0, 2}, {0, 7, 3}, {0, -1, 4}}) {
    const auto before = Camera->Head();
    Continuous().ContinuousMove(static_cast<float>(pan), static_cast<float>(tilt));
    EXPECT_EQ(Camera->Head().Speed, speed);
    Camera->Time().Advance(500ms);
    EXPECT_EQ(Camera->Head().Pan > before.Pan, pan > 0);
    EXPECT_EQ(Camera->Head().Pan < before.Pan, pan < 0);
    EXPECT_EQ(Camera->Head().Tilt > before.Tilt, tilt > 0);
  }
  Continuous().StopContinuous();
  EXPECT_FALSE(Camera->Head().Moving);
  EXPECT_TRUE(Driver->PresetGoto(0));
  Settle();
  ExpectHead(StartPan, StartTilt);
}

}  // namespace
}  // namespace ptzd
