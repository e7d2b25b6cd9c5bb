// The two Foscam drivers over real sockets against a camera of their generation.

#include "simulators/Foscam.h"

#include "support/Script.h"
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
  EXPECT_TRUE(Driver->PresetGoto(15));
  ExpectHead(StartPan + 8, StartTilt + 8);
}

TEST_F(FoscamSimulated, HDCamerasRunForTheTimeThatAMoveNeeds) {
  Connect("QVPTZ.FoscamHD",
          {.Generation = ptzsim::Foscam::Kind::HD, .User = "site@hq", .Password = "a:b%40&c d"},
          "site%40hq:a%3Ab%2540%26c%20d@");
  EXPECT_TRUE(Driver->PresetSave(0));
  EXPECT_TRUE(Driver->PresetGoto(9)) << "the camera's result is not looked at";
  EXPECT_TRUE(Driver->Home());
  ExpectHead(0, 0);
  for (const auto& [pan, tilt] :
       {std::pair{0.0F, 90.0F}, {0, -60}, {150, -60}, {-150, -60}, {-120, -30}, {-90, -60}, {-90, 12.5F}}) {
    EXPECT_FALSE(Driver->MoveTo(pan, tilt)) << "never True, though the camera moves";
    EXPECT_FALSE(Camera->Head().Moving);
    ExpectHead(pan, tilt);
  }
  EXPECT_TRUE(Driver->PresetSave(0)) << "a name that is taken keeps its place";
  EXPECT_TRUE(Driver->PresetGoto(0));
  ExpectHead(StartPan, StartTilt);
}

struct Step {
  float Pan, Tilt;
};
// Right, down, left, up and the diagonals up-right, up-left, down-right, down-left.
constexpr Step Steps[] = {{10, 0}, {0, -5}, {-12, 0}, {0, 12.5F}, {4, 6}, {-4, 6}, {6, -4}, {-6, -4}};

TEST_F(FoscamSimulated, AnOlderCameraIsSent) {
  Connect("QVPTZ.Foscam", {});
  for (const auto& [pan, tilt] : Steps) EXPECT_TRUE(Driver->MoveBoth(pan, tilt));
  for (const auto& [pan, tilt] : Steps) Continuous().ContinuousMove(pan, tilt);
  Continuous().ContinuousMove(-1, -1);
  Continuous().StopContinuous();
  Driver->PresetSave(3);
  Driver->PresetGoto(3);
  Camera->Faults().Set("short-body");
  EXPECT_FALSE(Driver->MoveTo(-2, 40));
  EXPECT_EQ(Driver->Tilt(), 11.5F) << "a move that was not taken is not counted";
  const std::string command = "GET /decoder_control.cgi?command=", by = "&onestep=1&degree=";
  std::string wanted;
  // A diagonal goes by the mean of both angles with their signs, which is little or less than nothing but to
  // the upper right.
  for (const char* step : {"6 10", "2 5", "4 12", "0 12.5", "91 5", "90 1", "93 1", "92 -5"}) {
    const std::string text = step;
    wanted += command + text.substr(0, text.find(' ')) + by + text.substr(text.find(' ') + 1) + "\n";
  }
  for (const char* code : {"6", "2", "4", "0", "91", "90", "93", "92", "5", "36", "37"})
    wanted += command + code + "\n";
  EXPECT_EQ(test::Script(Camera->Log()), wanted + command + "0" + by + "28.5\n");
}

TEST_F(FoscamSimulated, AnHDCameraIsSent) {
  Connect("QVPTZ.FoscamHD", {.Generation = ptzsim::Foscam::Kind::HD}, "site:a%26b@");
  for (const auto& [pan, tilt] : Steps) Driver->MoveBoth(pan, tilt);
  Continuous().ContinuousMove(5, 0);
  Continuous().ContinuousMove(-30, 0);
  Continuous().StopContinuous();
  Driver->PresetSave(9);
  Driver->PresetGoto(9);
  Driver->Home();
  std::string wanted;
  const auto add = [&](const std::string& command) {
    wanted += "GET /cgi-bin/CGIProxy.fcgi?cmd=" + command + "&usr=site&pwd=a%26b\n";
  };
  add("setPTZSpeed&speed=1");
  for (const char* way : {"Right", "Down", "Left", "Up", "TopRight", "TopLeft", "BottomRight", "BottomLeft"})
    add(std::string("ptzMove") + way), add("ptzStopRun");
  for (const char* command :
       {"setPTZSpeed&speed=3", "ptzMoveRight", "setPTZSpeed&speed=0", "ptzMoveLeft", "setPTZSpeed&speed=4",
        "ptzStopRun", "ptzAddPresetPoint&name=Quorvane%20preset%2010",
        "ptzGotoPresetPoint&name=Quorvane%20preset%2010", "ptzReset"})
    add(command);
  EXPECT_EQ(test::Script(Camera->Log()), wanted);
}

}  // namespace
}  // namespace ptzd
