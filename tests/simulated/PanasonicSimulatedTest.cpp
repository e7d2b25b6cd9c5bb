// The Panasonic driver over real sockets against cameras that take angles and cameras that take clicks.

#include "simulators/Panasonic.h"

#include <cmath>

#include "support/SimulatedCamera.h"

namespace ptzd {
namespace {

using namespace std::chrono_literals;
using Mount = ptzsim::Panasonic::Mount;

class PanasonicSimulated : public test::SimulatedCamera<ptzsim::Panasonic> {
 protected:
  void Connect(const std::string& model, const char* firmware = "2.32", Mount mounted = Mount::NotTold) {
    Start({.Model = model, .Firmware = firmware, .Mounted = mounted});
    SimulatedCamera::Connect("QVPTZ.Panasonic");
  }
  /// The driver's degrees are whole, and a click keeps what reading the first position rounded away.
  void Settle() {
    Camera->Time().Advance(60s);
    EXPECT_NEAR(Camera->Head().Pan, Driver->Pan(), 0.5);
    EXPECT_NEAR(Camera->Head().Tilt, Driver->Tilt(), 0.5);
  }
};

TEST_F(PanasonicSimulated, EveryModelGoesWhereItIsSent) {
  for (const auto& model : ptzsim::Panasonic::Models())
    for (const char* firmware : {"2.32", "1.22"}) {
      SCOPED_TRACE(model + " " + firmware);
      Connect(model, firmware);
      Settle();
      for (const float pan : {-999.0F, -37.0F, 0.0F, 1.0F, 38.0F, 999.0F})
        for (const float tilt : {-999.0F, -8.0F, 0.0F, 3.0F, 999.0F}) {
          EXPECT_TRUE(Driver->MoveTo(pan, tilt));
          Settle();
          EXPECT_TRUE(Driver->Pan() == pan || std::abs(pan) == 999);
        }
      EXPECT_TRUE(Driver->Move(DirectionDownLeft, 7));
      Settle();
      EXPECT_TRUE(Driver->MoveBoth(2.4F, -1));
      Settle();
    }
}

TEST_F(PanasonicSimulated, TheMountingMovesALimit) {
  Connect("BL-C131E", "2.32", Mount::Ceiling);
  EXPECT_TRUE(Driver->MoveTo(0, 999));
  Settle();
  EXPECT_EQ(Camera->Head().Tilt, 90);
  Connect("BB-HCM715", "1.1", Mount::Desk);
  EXPECT_TRUE(Driver->MoveTo(0, -999));
  Settle();
  EXPECT_EQ(Camera->Head().Tilt, -120);
}

}  // namespace
}  // namespace ptzd
