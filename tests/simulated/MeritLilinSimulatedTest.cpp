// The Merit Lilin driver over real sockets against a video server with two domes.

#include "simulators/MeritLilin.h"

#include "support/SimulatedCamera.h"

namespace ptzd {
namespace {

using namespace std::chrono_literals;

class MeritLilinSimulated : public test::SimulatedCamera<ptzsim::MeritLilin> {
 protected:
  void SetUp() override { Start(); }
  void Connect(int port) {
    SimulatedCamera::Connect("QVPTZ.MeritLilin", {{"Port", port}});
    Dome = port == 0 ? 1 : port;
  }
  ptzsim::MeritLilin::HeadState Head() const { return Camera->Head(Dome); }
  /// What the driver reads, and then does not change.
  void Read() {
    Clock.Advance(5000);
    EXPECT_TRUE(Driver->MoveBoth(0, 0));
  }

  int Dome = 1;
};

TEST_F(MeritLilinSimulated, EveryDomeGoesWhereItIsSent) {
  for (const int port : {0, 1, 2}) {
    Connect(port);
    EXPECT_EQ(Driver->Pan(), Head().Pan);
    EXPECT_EQ(Driver->Tilt(), Head().Tilt);
    EXPECT_EQ(Device2().ZoomLevel(), (Head().Zoom - 1) / 4);
    for (const float pan : {-180.0F, -179.5F, -90.0F, -0.5F, 0.0F, 1.0F, 90.25F, 179.0F, 179.75F})
      for (const float tilt : {-90.0F, -45.5F, 0.0F, 29.5F, 30.0F})
        for (const float zoom : {0.0F, 2.5F, 8.75F}) {
          Device2().MoveTo(pan, tilt, zoom);
          Settle();
          EXPECT_NEAR(Head().Pan, pan - 0.5, 0.5) << "whole degrees, rounded down";
          EXPECT_NEAR(Head().Tilt, tilt - 0.5, 0.5);
          EXPECT_EQ(Head().Zoom, zoom * 4 + 1);
          Read();
          EXPECT_EQ(Driver->Pan(), Head().Pan);
          EXPECT_EQ(Driver->Tilt(), Head().Tilt);
          EXPECT_EQ(Device2().ZoomLevel(), zoom);
        }
  }
}

TEST_F(MeritLilinSimulated, StepsCrossTheBackAndStopAtTheEnds) {
  Connect(2);
  EXPECT_TRUE(Driver->MoveTo(-190, 25));
  Settle();
  EXPECT_EQ(Head().Pan, 170);
  EXPECT_TRUE(Driver->Move(DirectionUpRight, 15));
  Settle();
  EXPECT_EQ(Head().Pan, -175);
  EXPECT_EQ(Driver->Tilt(), 40) << "as commanded";
  EXPECT_TRUE(Driver->MoveBoth(-10, 0));
  Settle();
  EXPECT_EQ(Head().Pan, 175);
  EXPECT_EQ(Driver->Tilt(), 30) << "as the camera says";
  Device2().ZoomTo(8.5F);
  Settle();
  EXPECT_TRUE(Driver->Zoom(ZoomIn));
  Device2().Zoom(ZoomIn, 2);
  Settle();
  EXPECT_EQ(Head().Zoom, 36);
  EXPECT_TRUE(Driver->Zoom(ZoomOut));
  Settle();
  EXPECT_EQ(Head().Zoom, 35);
}

TEST_F(MeritLilinSimulated, ContinuousMotionRunsUntilStopped) {
  Connect(0);
  Device2().MoveTo(0, 0, 4);
  Settle();
  Continuous().ContinuousMove(10, -5);
  Continuous().ContinuousZoom(4);
  Camera->Time().Advance(500ms);
  EXPECT_GT(Head().Pan, 0);
  EXPECT_LT(Head().Tilt, 0);
  EXPECT_GT(Head().Zoom, 17) << "a positive speed zooms in";
  Continuous().ContinuousZoom(-10);
  Continuous().ContinuousMove(-20, 20);
  Camera->Time().Advance(1500ms);
  EXPECT_LT(Head().Pan, 0);
  EXPECT_GT(Head().Tilt, 0);
  EXPECT_LT(Head().Zoom, 17);
  Continuous().StopContinuous();
  EXPECT_FALSE(Head().Moving);
  EXPECT_TRUE(Driver->MoveBoth(0, 0));
  EXPECT_NEAR(Driver->Pan(), Head().Pan, 0.5) << "asks where the motion ended, at once";
  EXPECT_NEAR(Driver->Tilt(), Head().Tilt, 0.5);
}

TEST_F(MeritLilinSimulated, PresetsIrisAndFocus) {
  Connect(2);
  Device2().MoveTo(33, -44, 5);
  Settle();
  for (const int preset : {0, 127}) EXPECT_TRUE(Driver->PresetSave(preset));
  EXPECT_TRUE(Driver->PresetGoto(7));
  Settle();
  EXPECT_NE(Head().Pan, 33);
  EXPECT_TRUE(Driver->PresetGoto(127));
  Settle();
  EXPECT_EQ(Head().Pan, 33);
  EXPECT_EQ(Head().Tilt, -44);
  EXPECT_EQ(Head().Zoom, 21);

  const auto before = Head();
  EXPECT_TRUE(Driver->Iris(IrisOpen) && Driver->Iris(IrisOpen) && Driver->Focus(FocusFar));
  EXPECT_EQ(Head().Iris, before.Iris + 2);
  EXPECT_EQ(Head().Focus, before.Focus + 1);
  EXPECT_FALSE(Head().AutoIris || Head().AutoFocus);
  EXPECT_TRUE(Driver->Iris(IrisClose) && Driver->Focus(FocusNear) && Driver->Focus(FocusNear));
  EXPECT_EQ(Head().Iris, before.Iris + 1);
  EXPECT_EQ(Head().Focus, before.Focus - 1);
  EXPECT_TRUE(Driver->Iris(IrisAuto) && Driver->Focus(FocusAuto));
  EXPECT_TRUE(Head().AutoIris && Head().AutoFocus);
}

}  // namespace
}  // namespace ptzd
