// The Merit Lilin driver over real sockets against a video server with two domes.

#include "simulators/MeritLilin.h"

#include "support/SimulatedCamera.h"

namespace ptzd {
namespace {

using namespace std::chrono_literals;

class MeritLilinSimulated : public test::SimulatedCamera<ptzsim::MeritLilin> {
 protected:
  void SetUp() override { Start(); }
  void Connect(int port) { SimulatedCamera::Connect("QVPTZ.MeritLilin", {{"Port", port}}); }
};

TEST_F(MeritLilinSimulated, SaysItInTheseBytes) {
  Connect(1);
  Connect(2);  // at 56 and -11, zoom 5.75
  EXPECT_TRUE(Driver->MoveTo(-190, 10));
  Device2().MoveTo(180, 0, 2.5F);
  EXPECT_TRUE(Driver->Move(DirectionUpRight, 10.5F));
  EXPECT_TRUE(Driver->Move(DirectionDownLeft, 30));
  EXPECT_TRUE(Driver->MoveBoth(9.75F, -1));
  EXPECT_TRUE(Driver->Zoom(ZoomIn));
  WhileAway([&] { EXPECT_FALSE(Driver->MoveBoth(1, 2)) << "and is not counted"; });
  Device2().Zoom(ZoomOut, 0.5F);
  Device2().ZoomTo(-1);
  Settle();
  EXPECT_TRUE(Driver->Zoom(ZoomIn)) << "from where the head is";
  for (const auto& [pan, tilt] : {std::pair{10.0F, 0.0F}, {10, 0}, {-1, 20}})
    Continuous().ContinuousMove(pan, tilt);
  for (const float speed : {3.0F, -3.0F}) Continuous().ContinuousZoom(speed);
  Camera->Time().Advance(100ms);
  Continuous().StopContinuous();
  EXPECT_TRUE(Driver->Move(DirectionRight, 1)) << "and where a motion ended";
  Camera->Time().Advance(60s);
  Continuous().ContinuousMove(10, 0);
  Camera->Time().Advance(100ms);
  Continuous().ContinuousMove(0, 0);
  Device2().ZoomTo(1);
  EXPECT_TRUE(Driver->PresetSave(0) && Driver->PresetGoto(7));
  for (const auto iris : {IrisAuto, IrisOpen, IrisClose}) EXPECT_TRUE(Driver->Iris(iris));
  for (const auto focus : {FocusAuto, FocusNear, FocusFar}) EXPECT_TRUE(Driver->Focus(focus));
  ExpectSent("/control?camid=2&",
             "/ /control?camid=1&cmd=getallposdegree / cmd=getallposdegree "
             "panposdegree=350&tiltposdegree=-10&zoomposdegree=5.75 "
             "panposdegree=0&tiltposdegree=0&zoomposdegree=11 "
             "panposdegree=10&tiltposdegree=-10&zoomposdegree=11 "
             "panposdegree=340&tiltposdegree=20&zoomposdegree=11 "
             "panposdegree=350&tiltposdegree=21&zoomposdegree=11 "
             "panposdegree=350&tiltposdegree=21&zoomposdegree=12 "
             "panposdegree=350&tiltposdegree=21&zoomposdegree=10 "
             "panposdegree=350&tiltposdegree=21&zoomposdegree=1 "
             "cmd=getallposdegree panposdegree=350&tiltposdegree=21&zoomposdegree=2 "
             "rpan=4&rtilt=0 rpan=-1&rtilt=8 rzoom=-1 rzoom=2 stop=1 zoom_stop=1 "
             "cmd=getallposdegree panposdegree=350&tiltposdegree=13&zoomposdegree=1 "
             "rpan=4&rtilt=0 stop=1 "
             "cmd=getallposdegree panposdegree=354&tiltposdegree=13&zoomposdegree=5 "
             "/ptzpreset?camid=2&set_preset=0 /ptzpreset?camid=2&goto_preset=7 "
             "/camera?camid=2&autoiris=1 /camera?camid=2&iris=1 /camera?camid=2&iris=-1 "
             "/camera?camid=2&autofocus=1 /camera?camid=2&focus=-1 /camera?camid=2&focus=1");
}

}  // namespace
}  // namespace ptzd
