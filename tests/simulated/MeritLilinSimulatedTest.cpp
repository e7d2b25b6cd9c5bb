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

}  // namespace
}  // namespace ptzd
