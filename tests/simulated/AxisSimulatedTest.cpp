// The Axis driver over real sockets against a camera written from the protocol.

#include "simulators/Axis.h"

#include <cmath>

#include "support/Errors.h"
#include "support/Script.h"
#include "support/SimulatedCamera.h"
#include "support/Wine.h"

namespace ptzd {
namespace {

using ptzsim::AxisHead;

class AxisSimulated : public test::SimulatedCamera<ptzsim::Axis> {
 protected:
  void Connect(std::vector<AxisHead> heads, const test::OptionValues& options = {}) {
    Start({.Heads = std::move(heads)});
    SimulatedCamera::Connect("QVPTZ.Axis", options);
  }
};

TEST_F(AxisSimulated, ATypicalRequestByteForByte) {
  if (test::UnderWine()) GTEST_SKIP() << "Wine orders the headers otherwise and leaves two of them away";
  Connect({AxisHead::None, AxisHead::Mechanical}, {{"Port", 2}});
  const auto before = Camera->Head(2);
  Camera->Log().Clear();
  EXPECT_TRUE(Driver->Move(DirectionUpLeft, 5));
  const auto pan = std::to_string(std::lrint(before.Pan) - 5),
             tilt = std::to_string(std::lrint(before.Tilt) + 5);
  ASSERT_EQ(Camera->Log().Requests().size(), 1U);
  EXPECT_EQ(Camera->Log().Requests()[0].Raw, "GET /axis-cgi/com/ptz.cgi?camera=2&pan=" + pan + "&tilt=" +
                                                 tilt + " HTTP/1.1\r\nHost: " + Camera->Addresses()[0] +
                                                 "\r\nUser-Agent: Qelto HTTP Client Object\r\nConnection: "
                                                 "Keep-Alive\r\nCache-Control: no-cache\r\n\r\n");
}

TEST_F(AxisSimulated, AnAbsoluteHeadIsSent) {
  Connect({AxisHead::Mechanical}, {{"Reset", true}});
  Driver->Move(DirectionUpLeft, 5);
  Driver->MoveTo(-180, 0);
  Driver->MoveTo(180, -200);
  Driver->MoveTo(190, -5);
  Driver->MoveTo(9.4F, -5);
  // A zoom of 1 is 9999 / (623 / 22) / 1.1 of the camera's units, which count from 1.
  Device2().MoveTo(9, 0, 1);
  Driver->Zoom(ZoomOut);
  Device2().Zoom(ZoomIn, 0.5F);
  Device2().ZoomTo(-1);
  Driver->MoveBoth(-20, 7);
  for (const auto iris : {IrisOpen, IrisClose, IrisAuto}) Driver->Iris(iris);
  for (const auto focus : {FocusNear, FocusFar, FocusAuto}) Driver->Focus(focus);
  EXPECT_FALSE(Driver->PresetSave(1) || Driver->PresetGoto(1) || Driver->Home());
  Continuous().ContinuousMove(12.5F, -3.25F);
  Continuous().ContinuousZoom(3);
  Continuous().ContinuousZoom(-2);
  Continuous().StopContinuous();
  Driver->Tilt();
  Continuous().ContinuousZoom(10);
  Camera->Time().Advance(std::chrono::minutes(1));
  Driver->Zoom(ZoomOut);  // from 31.25, where the lens ends
  ExpectSent(
      "/axis-cgi/com/ptz.cgi?",
      "/axis-cgi/view/param.cgi?action=list&group=root.PTZ.Limit.L1,root.PTZ.Support.S1 query=position "
      "pan=0&tilt=0&zoom=1 pan=-5&tilt=5 pan=-180&tilt=0 pan=180&tilt=-180 pan=-170&tilt=-5 pan=9 "
      "tilt=0&zoom=321 zoom=241 zoom=402 zoom=1 pan=-11&tilt=7 "
      "autoiris=off&riris=1000 autoiris=off&riris=-1000 autoiris=on "
      "autofocus=off&rfocus=-1000 autofocus=off&rfocus=1000 autofocus=on "
      "continuouspantiltmove=25,-7 continuouszoommove=9 continuouszoommove=-4 "
      "continuouspantiltmove=0,0 continuouszoommove=0 query=position "
      "continuouszoommove=100 query=position zoom=9951");
}

TEST_F(AxisSimulated, ARelativeHeadIsSent) {
  Connect({AxisHead::None, AxisHead::Relative}, {{"Port", 2}, {"ZoomStep", 300}});
  Device2().MoveTo(10, -5, 0.5F);
  Driver->Zoom(ZoomOut);
  Driver->MoveBoth(3, 4);
  Driver->Move(DirectionDownLeft, 6);
  Driver->PresetSave(5);
  Driver->PresetGoto(5);
  Camera->Faults().Set("refuse");
  EXPECT_FALSE(Driver->MoveBoth(8, 0));
  EXPECT_EQ(Driver->Pan(), 7) << "a move that was not taken is not counted";
  const std::string control = "GET /axis-cgi/com/ptz.cgi?camera=2&",
                    preset = "presetname=Quor-vane%20Preset%205\n";
  EXPECT_EQ(test::Script(Camera->Log()),
            "GET /axis-cgi/view/param.cgi?action=list&group=root.PTZ.Limit.L2,root.PTZ.Support.S2\n" +
                control + "gotodevicepresetno=1\n" + control + "rpan=10&rtilt=-5&rzoom=151\n" + control +
                "rzoom=-74\n" + control + "rpan=3&rtilt=4\n" + control + "rpan=-6&rtilt=-6\n" +
                "GET /axis-cgi/com/ptzconfig.cgi?camera=2&setserver" + preset + control + "gotoserver" +
                preset);
}

}  // namespace
}  // namespace ptzd
