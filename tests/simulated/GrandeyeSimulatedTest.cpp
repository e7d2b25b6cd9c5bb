// The Grandeye driver over real sockets against a camera with three views.

#include "simulators/Grandeye.h"

#include <cmath>

#include "support/SimulatedCamera.h"

namespace ptzd {
namespace {

using namespace std::chrono_literals;

class GrandeyeSimulated : public test::SimulatedCamera<ptzsim::Grandeye> {
 protected:
  void SetUp() override { Start(); }
};

TEST_F(GrandeyeSimulated, PortChoosesTheViewThatMovesAndZooms) {
  const auto apart = [](double a, double b) { return std::fabs(std::remainder(a - b, 360)); };
  const auto first = Camera->Head(1);
  for (const int port : {3, 2}) {
    const auto before = Camera->Head(port);
    Connect("QVPTZ.Grandeye", {{"Port", port}});
    EXPECT_EQ(Driver->Pan(), before.Pan);
    EXPECT_EQ(Driver->Tilt(), before.Tilt);
    for (const auto& [pan, tilt] :
         {std::pair{-180.0F, -45.0F}, {-1, 45}, {0, 0}, {179, -44}, {180, 44}, {185, 1}, {-200, 2}}) {
      Driver->MoveTo(pan, tilt);
      EXPECT_LE(std::fabs(Driver->Pan()), 180);
      Settle();
      EXPECT_EQ(apart(Camera->Head(port).Pan, pan), 0) << pan;
      EXPECT_EQ(apart(Driver->Pan(), pan), 0) << pan;
      EXPECT_EQ(Camera->Head(port).Tilt, tilt);
      EXPECT_EQ(Driver->Tilt(), tilt);
    }
    EXPECT_TRUE(Driver->Zoom(ZoomIn));
    Settle();
    EXPECT_EQ(Camera->Head(port).Zoom, before.Zoom - 250) << "a narrower picture";
    EXPECT_EQ(Camera->Head(1).Pan, first.Pan);
  }
}

}  // namespace
}  // namespace ptzd
