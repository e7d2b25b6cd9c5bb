// The Panogenics driver over real sockets against a camera with eight views.

#include "simulators/Panogenics.h"

#include <cmath>

#include "support/SimulatedCamera.h"

namespace ptzd {
namespace {

using namespace std::chrono_literals;

class PanogenicsSimulated : public test::SimulatedCamera<ptzsim::Panogenics>,
                            public testing::WithParamInterface<bool> {
 protected:
  void Connect(int port, bool link = true) {
    Start({.Wrapped = GetParam()});
    SimulatedCamera::Connect("QVPTZ.Panogenics", {{"Port", port}, {"LinkViews", link}});
  }
};

INSTANTIATE_TEST_SUITE_P(Replies, PanogenicsSimulated, testing::Bool(),
                         [](const auto& row) { return row.param ? "Wrapped" : "Bare"; });

TEST_P(PanogenicsSimulated, EveryViewGoesWhereItIsSent) {
  for (int view = 1; view <= 8; ++view) {
    SCOPED_TRACE(view);
    Connect(view);
    const auto start = Camera->Head(view);
    EXPECT_EQ(Driver->Pan(), start.Pan);
    EXPECT_EQ(Driver->Tilt(), start.Tilt);
    EXPECT_FLOAT_EQ(Device2().ZoomLevel(), static_cast<float>(start.Zoom / 50));
    for (const float pan : {-180.0F, -179.75F, -90.0F, -0.5F, 0.0F, 45.25F, 179.0F, 180.0F})
      for (const float tilt : {-90.0F, -45.5F, 0.0F, 90.0F})
        for (const float zoom : {0.0F, 0.26F, 10.0F}) {
          Device2().MoveTo(pan, tilt, zoom);
          Settle();
          const auto head = Camera->Head(view);
          EXPECT_NEAR(std::remainder(head.Pan - pan, 360), 0, 0.5);
          EXPECT_NEAR(head.Tilt, tilt, 0.5);
          EXPECT_NEAR(head.Zoom, zoom * 50, 1e-5);
          EXPECT_EQ(Camera->Head(view <= 4 ? view + 4 : view).Pan, head.Pan) << "the twin comes along";
          EXPECT_TRUE(Driver->MoveBoth(0, 0));
          EXPECT_NEAR(std::remainder(Driver->Pan() - head.Pan, 360), 0, 1e-9) << "either side of the back";
          EXPECT_EQ(Driver->Tilt(), head.Tilt);
          EXPECT_NEAR(Device2().ZoomLevel(), zoom, 1e-5);
        }
  }
}

TEST_P(PanogenicsSimulated, StepsCrossTheBackAndStopAtTheEnds) {
  Connect(0, false);
  const auto twin = Camera->Head(5);
  EXPECT_TRUE(Driver->MoveTo(-185, 85));
  Settle();
  EXPECT_EQ(Camera->Head().Pan, 175);
  EXPECT_TRUE(Driver->Move(DirectionUpRight, 15));
  Settle();
  EXPECT_EQ(Camera->Head().Pan, -170);
  EXPECT_EQ(Driver->Tilt(), 100) << "as commanded";
  EXPECT_TRUE(Driver->MoveBoth(-20, 0));
  Settle();
  EXPECT_EQ(Camera->Head().Pan, 170);
  EXPECT_EQ(Driver->Tilt(), 90) << "as the camera says";
  Device2().ZoomTo(9.5F);
  Settle();
  EXPECT_TRUE(Driver->Zoom(ZoomIn));
  Device2().Zoom(ZoomIn, 3);
  EXPECT_TRUE(Driver->Zoom(ZoomOut));
  Settle();
  EXPECT_EQ(Camera->Head().Zoom, 488);
  EXPECT_EQ(Camera->Head(5).Pan, twin.Pan) << "is not linked";
}

TEST_P(PanogenicsSimulated, Presets) {
  Connect(3);
  Device2().MoveTo(33, -44, 5);
  Settle();
  for (const int preset : {0, 7}) EXPECT_TRUE(Driver->PresetSave(preset));
  EXPECT_EQ(Camera->Head(3).Presets.at(8).Name, "Quorvane preset 8");
  EXPECT_TRUE(Driver->PresetGoto(5));
  Settle();
  EXPECT_NE(Camera->Head(3).Pan, 33);
  EXPECT_TRUE(Driver->PresetGoto(0));
  Settle();
  EXPECT_EQ(Camera->Head(3).Pan, 33);
  EXPECT_EQ(Camera->Head(3).Tilt, -44);
  EXPECT_EQ(Camera->Head(3).Zoom, 250);
  EXPECT_TRUE(Driver->PresetGoto(3)) << "a preset nobody saved; the driver does not read the refusal";
  EXPECT_EQ(
      Camera->Log().Requests().back().Raw.find("GET /presets/gotopreset.cgi?view=3&index=4 HTTP/1.1\r\n"),
      0U);
}

TEST_P(PanogenicsSimulated, ARefusedTwinIsTold) {
  Connect(2);
  Camera->Faults().Set("next=1,at=view=6,empty-body");
  EXPECT_FALSE(Driver->MoveTo(5, 6));
}

}  // namespace
}  // namespace ptzd
