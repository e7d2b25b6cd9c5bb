// The Vivotek driver over real sockets against cameras of both generations.

#include "simulators/Vivotek.h"

#include <ptzd/PTZNamedPresets.h>
#include "support/Errors.h"
#include "support/Script.h"
#include "support/SimulatedCamera.h"

namespace ptzd {
namespace {

using test::ErrorOf;

class VivotekSimulated : public test::SimulatedCamera<ptzsim::Vivotek> {
 protected:
  void Connect(const char* model) {
    Start({.Model = model});
    SimulatedCamera::Connect("QVPTZ.Vivotek");
    Settle();
    EXPECT_EQ(Camera->Head().Pan, 0) << "goes home";
    EXPECT_EQ(Camera->Head().Tilt, 0);
  }
  PTZNamedPresets& Presets() { return dynamic_cast<PTZNamedPresets&>(*Driver); }
};

TEST_F(VivotekSimulated, EveryModelGoesWhereItIsSent) {
  for (const auto& model : ptzsim::Vivotek::Models()) {
    SCOPED_TRACE(model);
    Connect(model.c_str());
    EXPECT_TRUE(Driver->MoveTo(20, -30));
    Settle();
    EXPECT_NEAR(Camera->Head().Pan, 20, 0.2);
    EXPECT_NEAR(Camera->Head().Tilt, -30, 0.2);
  }
}

TEST_F(VivotekSimulated, TheNewerGenerationIsSent) {
  Connect("PZ7132");
  Driver->MoveTo(10, -5);  // 704 by 576 pixels are 48 degrees both ways
  Driver->Move(DirectionDownLeft, 2);
  Camera->Faults().Set("at=x=,status=403 Forbidden");
  EXPECT_FALSE(Driver->MoveTo(49, 50));
  Camera->Faults().Clear();
  Driver->MoveBoth(-1, 4.03F);
  Driver->Zoom(ZoomIn);
  Driver->Zoom(ZoomOut);
  Driver->Home();
  Driver->PresetSave(3);
  Driver->PresetGoto(3);
  Presets().GetNamedPresets();
  Presets().GotoNamedPreset("Car park & ramp");
  Continuous().ContinuousMove(0.5F, -0.5F);
  Continuous().ContinuousZoom(-0.25F);
  Continuous().ContinuousZoom(0.35F);
  Continuous().StopContinuous();
  const std::string control = "GET /cgi-bin/viewer/camctrl.cgi?channel=0&",
                    size = "&resolution=704x576&videosize=704x576&stretch=0\n";
  EXPECT_EQ(test::Script(Camera->Log()),
            "GET /cgi-bin/sysinfo.cgi\n" + control + "move=home\n" +                                //
                control + "video=0&x=498&y=348" + size + control + "video=0&x=322&y=312" + size +   //
                control + "video=0&x=953&y=-396" + size + control + "video=0&x=337&y=239" + size +  //
                control + "zoom=tele\n" + control + "zoom=wide\n" + control + "move=home\n" +
                "GET /cgi-bin/operator/preset.cgi?channel=0&addpos=Quorvane%20preset%203\n"
                "GET /cgi-bin/viewer/recall.cgi?channel=0&recall=Quorvane%20preset%203\n"
                "GET /cgi-bin/sysinfo.cgi\n"
                "GET /cgi-bin/viewer/recall.cgi?channel=0&recall=Car+park+%26+ramp\n" +
                control + "vx=0.5&vy=-0.5&vs=6\n" + control + "zooming=wide&zs=3\n" + control +
                "zooming=tele&zs=4\n" + control + "vx=0&vy=0&vs=0\n" + control + "zooming=wide&zs=0\n");
}

TEST_F(VivotekSimulated, TheOlderGenerationIsSent) {
  Connect("PT31x");
  Driver->MoveTo(10, -5);  // 7.74 and 6 pixels a degree of 352 by 240
  Driver->Move(DirectionLeft, 1);
  EXPECT_TRUE(Presets().GetNamedPresets().empty());
  EXPECT_EQ(Driver->PresetCount(), 0);
  Driver->Zoom(ZoomOut);
  Continuous().ContinuousMove(-0.5F, 0);
  Continuous().ContinuousMove(-0.5F, 0);
  Continuous().ContinuousZoom(1);
  SimulatedCamera::Connect("QVPTZ.Vivotek");
  Driver->MoveTo(9, -5);  // its place is still that before, though it is sent home
  const std::string control = "GET /cgi-bin/camctrl.cgi?cam=1&",
                    connects = "GET /cgi-bin/sysinfo.cgi\n" + control + "move=home\n";
  EXPECT_EQ(test::Script(Camera->Log()), connects + control + "x=253&y=150\n" + control + "x=168&y=120\n" +
                                             control + "zoom=wide\n" + control + "vx=-0.5&vy=0&vs=3\n" +
                                             control + "zooming=tele&zs=11\n" + connects + control +
                                             "x=176&y=120\n");
}

}  // namespace
}  // namespace ptzd
