// The i-Pro driver over real sockets against cameras of each way to count, and an encoder.

#include "simulators/PanasoniciPro.h"

#include <algorithm>
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
        const auto head = Camera->Head();
        const bool endless = head.PanEnds.Max == 180;
        const double across = endless ? pan : std::clamp<double>(pan, head.PanEnds.Min, head.PanEnds.Max);
        EXPECT_NEAR(std::remainder(head.Pan - across, 360), 0, 0.01);
        EXPECT_NEAR(head.Tilt, std::clamp<double>(tilt, head.TiltEnds.Min, head.TiltEnds.Max), 0.01);
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

TEST_F(PanasoniciProSimulated, SaysItInTheseBytesToAChannelOfAnEncoder) {
  Connect("WV-SC385", 3, 2);  // at 21.2 and -15.9, 2.7 times
  const auto first = Camera->Head(1);
  EXPECT_TRUE(Driver->Zoom(ZoomIn)) << "from 1.75";
  Driver->MoveTo(-20.5F, 7);
  Device2().ZoomTo(1);
  Device2().MoveTo(-20.5F, 7, 2.5F);
  SimulatedCamera::Settle();
  EXPECT_EQ(Camera->Head(1).Pan, first.Pan);
  EXPECT_TRUE(Driver->Move(DirectionUpRight, 3.25F));
  Camera->Faults().Set("next=1,status=503 Busy");
  EXPECT_FALSE(Driver->Move(DirectionDownLeft, 5));
  EXPECT_EQ(Driver->Tilt(), 10.25F) << "a refused move is not counted";
  EXPECT_TRUE(Driver->Zoom(ZoomOut));
  Device2().Zoom(ZoomIn, 0.5F);
  Device2().MoveTo(0, -15, 0);
  EXPECT_TRUE(Driver->MoveBoth(-300, 99));
  Device2().ZoomTo(-1);
  Driver->SetPanTilt(1, 2);
  EXPECT_TRUE(Driver->MoveBoth(20, 0)) << "from where the head is in its turn";
  ExpectSent({
      "/cgi-bin/getinfo?ch=2&FILE=1",
      "/cgi-bin/absget?ch=2&",
      "/cgi-bin/absctrl?ch=2&zoom=30",
      "/cgi-bin/absctrl?ch=2&pan=1545&tilt=-70",
      "/cgi-bin/absctrl?ch=2&zoom=20",
      "/cgi-bin/absctrl?ch=2&zoom=35",
      "/cgi-bin/absget?ch=2&",
      "/cgi-bin/absctrl?ch=2&pan=1577.5&tilt=-102.5",
      "/cgi-bin/absctrl?ch=2&pan=1527.5&tilt=-52.5",
      "/cgi-bin/absctrl?ch=2&zoom=32.5",
      "/cgi-bin/absctrl?ch=2&zoom=37.5",
      "/cgi-bin/absctrl?ch=2&pan=1750&tilt=150&zoom=10",
      "/cgi-bin/absctrl?ch=2&pan=0&tilt=-300",
      "/cgi-bin/absget?ch=2&",
      "/cgi-bin/absctrl?ch=2&pan=1745&tilt=-70",
  });
}

TEST_F(PanasoniciProSimulated, SaysItInTheseBytesWithAnglesOfEitherKind) {
  struct Row {
    const char* Model;
    float Pan;
    std::vector<std::string> Sent;
  };
  const Row rows[] = {
      {"BL-VT164", -10, {"/cgi-bin/absctrl?pan=0&tilt=0", "/cgi-bin/absctrl?pan=-100&tilt=50"}},
      {"WV-NS950", 190, {"/cgi-bin/absctrl?pan=1800&tilt=0", "/cgi-bin/absctrl?pan=100&tilt=-50"}},
  };
  for (const auto& [model, pan, sent] : rows) {
    Start({.Model = model});
    SimulatedCamera::Connect("QVPTZ.PanasoniciPro", {{"Reset", true}});
    Driver->MoveTo(pan, 5);
    std::vector<std::string> all = {"/cgi-bin/getinfo?FILE=1", "/cgi-bin/absget?"};
    all.insert(all.end(), sent.begin(), sent.end());
    ExpectSent(all);
  }
}

}  // namespace
}  // namespace ptzd
