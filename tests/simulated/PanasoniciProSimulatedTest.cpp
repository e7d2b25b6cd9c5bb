// The i-Pro driver over real sockets against cameras of each way to count, and an encoder.

#include "simulators/PanasoniciPro.h"

#include <cmath>

#include "support/SimulatedCamera.h"

namespace ptzd {
namespace {

using namespace std::chrono_literals;

class PanasoniciProSimulated : public test::SimulatedCamera<ptzsim::PanasoniciPro> {
 protected:
  void Connect(const std::string& model, int channels = 1, int port = 0) {
    Start({.Model = model, .Channels = channels});
    Channel = port == 0 ? 1 : port;
    SimulatedCamera::Connect("QVPTZ.PanasoniciPro", {{"Port", port}});
  }
  void Settle() {
    Camera->Time().Advance(60s);
    Agree();
  }
  /// Within half a unit of the camera, full turns aside.
  void Agree() {
    const auto head = Camera->Head(Channel);
    EXPECT_NEAR(std::remainder(head.Pan - Driver->Pan(), 360), 0, 0.051);
    EXPECT_NEAR(head.Tilt, Driver->Tilt(), 0.051);
    EXPECT_NEAR(head.Zoom - 1, Device2().ZoomLevel(), 0.126) << "is read in quarters";
  }

  int Channel = 1;
};

TEST_F(PanasoniciProSimulated, EveryModelGoesWhereItIsSentAndIsReadThere) {
  for (const auto& model : ptzsim::PanasoniciPro::Models()) {
    SCOPED_TRACE(model);
    Connect(model);
    Agree();
    for (const float pan : {-400.0F, -180.0F, -40.96F, -0.04F, 0.0F, 33.3F, 180.0F, 359.9F})
      for (const float tilt : {-99.0F, -31.7F, 0.0F, 4.25F, 99.0F}) {
        EXPECT_FALSE(Driver->MoveTo(pan, tilt)) << "never True, though the camera moves";
        Settle();
        Driver->SetPanTilt(0, 0);
        EXPECT_TRUE(Driver->MoveBoth(0, 0)) << "asks the camera again";
        Agree();
      }
    for (const float zoom : {0.0F, 0.25F, 1.0F, 2.75F}) {
      Device2().ZoomTo(zoom);
      Settle();
      EXPECT_NEAR(Camera->Head().Zoom, zoom + 1, 1e-6);
    }
    EXPECT_TRUE(Driver->Move(DirectionDownLeft, 3) && Driver->Zoom(ZoomOut) && Driver->Zoom(ZoomIn));
    Settle();
  }
}

TEST_F(PanasoniciProSimulated, TheShortWayAroundTheEnd) {
  Connect("WV-NS950");
  Driver->MoveTo(170, 0);
  Settle();
  EXPECT_TRUE(Driver->Move(DirectionRight, 20));
  EXPECT_EQ(Driver->Pan(), -170);
  Camera->Time().Advance(1s);
  Agree();
}

TEST_F(PanasoniciProSimulated, AChannelOfAnEncoder) {
  Connect("WV-SC385", 3, 2);
  Agree();
  const auto first = Camera->Head(1);
  Device2().MoveTo(-20.5F, 7, 1.5F);
  Settle();
  EXPECT_NEAR(Camera->Head(2).Pan, -20.5, 1e-6);
  EXPECT_NEAR(Camera->Head(2).Zoom, 2.5, 1e-6);
  EXPECT_EQ(Camera->Head(1).Pan, first.Pan);
  Camera->Faults().Set("next=1,status=503 Busy");
  EXPECT_FALSE(Driver->Move(DirectionUp, 5));
  EXPECT_EQ(Driver->Tilt(), 7) << "a refused move is not counted";
}

}  // namespace
}  // namespace ptzd
