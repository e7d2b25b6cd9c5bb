// The two Foscam drivers over real sockets against a camera of their generation.

#include "simulators/Foscam.h"

#include "support/SimulatedCamera.h"

namespace ptzd {
namespace {

using namespace std::chrono_literals;

class FoscamSimulated : public test::SimulatedCamera<ptzsim::Foscam> {
 protected:
  void Connect(const char* progID, ptzsim::Foscam::Options settings, const std::string& login = "") {
    Start(settings);
    SimulatedCamera::Connect(progID, {}, login);
    EXPECT_EQ(Camera->Log().ConnectionsOpened(), 0) << "connecting sends nothing";
  }
  void ExpectHead(double pan, double tilt) {
    Camera->Time().Advance(60s);
    EXPECT_NEAR(Camera->Head().Pan, pan, 1e-3);
    EXPECT_NEAR(Camera->Head().Tilt, tilt, 1e-3);
  }
  /// Whether the camera moves as it is told, with stops in between.
  void ExpectContinuousMotion() {
    for (const auto& [pan, tilt] : {std::pair{1, 0}, {-1, 1}, {0, -1}, {1, -1}}) {
      const auto before = Camera->Head();
      Continuous().ContinuousMove(static_cast<float>(pan), static_cast<float>(tilt));
      Camera->Time().Advance(500ms);
      const auto after = Camera->Head();
      EXPECT_EQ((after.Pan > before.Pan) - (after.Pan < before.Pan), pan);
      EXPECT_EQ((after.Tilt > before.Tilt) - (after.Tilt < before.Tilt), tilt);
      Continuous().StopContinuous();
      EXPECT_FALSE(Camera->Head().Moving);
    }
  }
};

// The driver begins at 0, 0, wherever the camera looks then.
constexpr double StartPan = 21.5, StartTilt = -8.25;

TEST_F(FoscamSimulated, OlderCamerasStep) {
  Connect("QVPTZ.Foscam", {});
  for (const auto& [pan, tilt] :
       {std::pair{-128.5F, 0.0F}, {-128.5F, 98.25F}, {77, 98.25F}, {77, 0}, {0, 0}}) {
    EXPECT_TRUE(Driver->MoveTo(pan, tilt));
    ExpectHead(StartPan + pan, StartTilt + tilt);
  }
  EXPECT_TRUE(Driver->MoveBoth(10, 6));
  ExpectHead(StartPan + 8, StartTilt + 8);
  EXPECT_TRUE(Driver->Move(DirectionDownRight, 5)) << "asks for no degree";
  EXPECT_TRUE(Driver->Move(DirectionDownLeft, 5)) << "asks for less than none";
  ExpectHead(StartPan + 8, StartTilt + 8);
  EXPECT_TRUE(Driver->PresetSave(15) && Driver->PresetGoto(4));
  ExpectHead(-72.5, 18.75);
  ExpectContinuousMotion();
  EXPECT_TRUE(Driver->PresetGoto(15));
  ExpectHead(StartPan + 8, StartTilt + 8);
}

TEST_F(FoscamSimulated, HDCamerasRunForTheTimeThatAMoveNeeds) {
  Connect("QVPTZ.FoscamHD",
          {.Generation = ptzsim::Foscam::Kind::HD, .User = "site@hq", .Password = "a:b%40&c d"},
          "site%40hq:a%3Ab%2540%26c%20d@");
  EXPECT_TRUE(Driver->PresetSave(0));
  EXPECT_TRUE(Camera->Head().Presets.contains("Quorvane preset 1"));
  EXPECT_TRUE(Driver->PresetGoto(9)) << "the camera's result is not looked at";
  EXPECT_TRUE(Driver->Home());
  ExpectHead(0, 0);
  for (const auto& [pan, tilt] :
       {std::pair{0.0F, 90.0F}, {0, -60}, {150, -60}, {-150, -60}, {-120, -30}, {-90, -60}, {-90, 12.5F}}) {
    EXPECT_FALSE(Driver->MoveTo(pan, tilt)) << "never True, though the camera moves";
    EXPECT_FALSE(Camera->Head().Moving);
    ExpectHead(pan, tilt);
  }
  ExpectContinuousMotion();
  EXPECT_TRUE(Driver->PresetGoto(0));
  ExpectHead(StartPan, StartTilt);
}

}  // namespace
}  // namespace ptzd
