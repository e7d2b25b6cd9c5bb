// The Grandeye driver over real sockets against a camera with three views.

#include "simulators/Grandeye.h"

#include "support/SimulatedCamera.h"

namespace ptzd {
namespace {

using namespace std::chrono_literals;

class GrandeyeSimulated : public test::SimulatedCamera<ptzsim::Grandeye> {
 protected:
  void SetUp() override { Start(); }
};

TEST_F(GrandeyeSimulated, SaysItInTheseBytes) {
  Connect("QVPTZ.Grandeye", {{"Port", 2}});  // at -31.5 and -13.75
  EXPECT_TRUE(Driver->Move(DirectionUpRight, 10));
  EXPECT_TRUE(Driver->Move(DirectionDownLeft, 3));
  EXPECT_FALSE(Driver->MoveTo(10, 60));
  EXPECT_FALSE(Driver->MoveTo(10, -60));
  EXPECT_TRUE(Driver->MoveBoth(-191.25F, 5.5F));
  WhileAway([&] { EXPECT_FALSE(Driver->MoveBoth(1, 1)); });
  EXPECT_EQ(Driver->Pan(), 179) << "a move that failed is not counted";
  EXPECT_TRUE(Driver->Zoom(ZoomIn));
  Settle();
  const auto turnHalfWayTo = [&](float pan) {
    Driver->MoveTo(pan, 0);
    Camera->Time().Advance(500ms);
    Driver->SetPanTilt(0, 0);
  };
  turnHalfWayTo(90);  // from 179, and 45 degrees in that time
  EXPECT_TRUE(Driver->Move(DirectionLeft, 5));
  turnHalfWayTo(0);
  EXPECT_TRUE(Driver->MoveBoth(-10, -5));
  EXPECT_TRUE(Driver->Zoom(ZoomOut));
  Driver->Tilt();
  ExpectSent({"/getparam.cgi?vcamapan1&vcamatilt1&vcamazoom1", "/com/ptz.cgi?camera=2&pan=22&tilt=41",
              "/com/ptz.cgi?camera=2&pan=25&tilt=38", "/com/ptz.cgi?camera=2&pan=-10&tilt=90",
              "/com/ptz.cgi?camera=2&tilt=0", "/com/ptz.cgi?camera=2&pan=181&tilt=5",
              "/com/ptz.cgi?camera=2&rzoom=-250", "/getparam.cgi?vcamapan1&vcamatilt1&vcamazoom1",
              "/com/ptz.cgi?camera=2&pan=-90&tilt=45", "/getparam.cgi?vcamapan1&vcamatilt1&vcamazoom1",
              "/com/ptz.cgi?camera=2&pan=-129", "/com/ptz.cgi?camera=2&pan=0",
              "/getparam.cgi?vcamapan1&vcamatilt1&vcamazoom1", "/com/ptz.cgi?camera=2&pan=-79&tilt=40",
              "/com/ptz.cgi?camera=2&rzoom=250", "/getparam.cgi?vcamapan1&vcamatilt1&vcamazoom1"});
}

}  // namespace
}  // namespace ptzd
