// The two Foscam drivers over real sockets against a camera of their generation.

#include "simulators/Foscam.h"

#include <utility>

#include "support/Script.h"
#include "support/SimulatedCamera.h"

namespace ptzd {
namespace {

class FoscamSimulated : public test::SimulatedCamera<ptzsim::Foscam> {
 protected:
  void Connect(const char* progID, ptzsim::Foscam::Options settings, const std::string& login = "") {
    Start(std::move(settings));
    SimulatedCamera::Connect(progID, {}, login);
    EXPECT_EQ(Camera->Log().ConnectionsOpened(), 0) << "connecting sends nothing";
  }
};

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
  SimulatedCamera::Connect("QVPTZ.Foscam", {{"InvertPan", true}});
  EXPECT_TRUE(Driver->MoveBoth(10, 0));
  Continuous().ContinuousMove(4, 6);
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
  for (const char* code :
       {"6", "2", "4", "0", "91", "90", "93", "92", "5", "36", "37", "4&onestep=1&degree=10", "90"})
    wanted += command + code + "\n";
  EXPECT_EQ(test::Script(Camera->Log()), wanted + command + "0" + by + "28.5\n");
}

TEST_F(FoscamSimulated, AnHDCameraIsSent) {
  Connect("QVPTZ.FoscamHD", {.Generation = ptzsim::Foscam::Kind::HD}, "si%40te:a%26b@");
  for (const auto& [pan, tilt] : Steps) Driver->MoveBoth(pan, tilt);
  SimulatedCamera::Connect("QVPTZ.FoscamHD", {{"MoveInterval", 20}}, "si%40te:a%26b@");
  const auto began = Clock.TickCount();
  Driver->MoveBoth(10, 0);
  EXPECT_EQ(Clock.TickCount() - began, 40) << "4 ms a degree";
  Continuous().ContinuousMove(9, 0);
  Continuous().ContinuousMove(-30, 0);
  Continuous().StopContinuous();
  Driver->PresetSave(9);
  Driver->PresetGoto(9);
  Driver->Home();
  std::string wanted;
  const auto add = [&](const std::string& command) {
    wanted += "GET /cgi-bin/CGIProxy.fcgi?cmd=" + command + "&usr=si%40te&pwd=a%26b\n";
  };
  add("setPTZSpeed&speed=1");
  for (const char* way : {"Right", "Down", "Left", "Up", "TopRight", "TopLeft", "BottomRight", "BottomLeft"})
    add(std::string("ptzMove") + way), add("ptzStopRun");
  for (const char* command : {"setPTZSpeed&speed=1", "ptzMoveRight", "ptzStopRun", "setPTZSpeed&speed=3",
                              "ptzMoveRight", "setPTZSpeed&speed=0", "ptzMoveLeft", "setPTZSpeed&speed=4",
                              "ptzStopRun", "ptzAddPresetPoint&name=Quorvane%20preset%2010",
                              "ptzGotoPresetPoint&name=Quorvane%20preset%2010", "ptzReset"})
    add(command);
  EXPECT_EQ(test::Script(Camera->Log()), wanted);
}

}  // namespace
}  // namespace ptzd
