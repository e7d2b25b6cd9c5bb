// The i-Pro driver over real sockets against cameras of each way to count, and an encoder.

#include "simulators/PanasoniciPro.h"

#include "support/SimulatedCamera.h"

namespace ptzd {
namespace {

class PanasoniciProSimulated : public test::SimulatedCamera<ptzsim::PanasoniciPro> {
 protected:
  void Connect(const std::string& model, int channels = 1, int port = 0) {
    Start({.Model = model, .Channels = channels});
    SimulatedCamera::Connect("QVPTZ.PanasoniciPro", {{"Port", port}, {"Reset", true}});
  }
};

TEST_F(PanasoniciProSimulated, EveryModelGoesToItsEnds) {
  for (const auto& model : ptzsim::PanasoniciPro::Models()) {
    SCOPED_TRACE(model);
    Connect(model);
    for (const float way : {-1.0F, 1.0F}) {
      Driver->MoveTo(190 * way, 99 * way);
      Settle();
      const auto head = Camera->Head();
      const auto end = [&](const ptzsim::Motion::Range& ends) { return way < 0 ? ends.Min : ends.Max; };
      EXPECT_EQ(head.Pan, head.PanEnds.Max == 180 ? -170 * way : end(head.PanEnds));
      EXPECT_EQ(head.Tilt, end(head.TiltEnds));
    }
  }
}

TEST_F(PanasoniciProSimulated, SaysItInTheseBytesToAChannelOfAnEncoder) {
  Connect("WV-SC385", 3, 2);  // at 21.2 and -15.9, 2.7 times
  const auto first = Camera->Head(1);
  EXPECT_TRUE(Driver->Zoom(ZoomIn)) << "from 1.75";
  Driver->MoveTo(-20.5F, 7);
  Device2().ZoomTo(1);
  Device2().MoveTo(-20.5F, 7, 2.5F);
  Settle();
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
  ExpectSent("/cgi-bin/absctrl?ch=2&",
             "/cgi-bin/getinfo?ch=2&FILE=1 /cgi-bin/absget?ch=2& pan=1750&tilt=0 zoom=30 pan=1545&tilt=-70 "
             "zoom=20 zoom=35 /cgi-bin/absget?ch=2& pan=1577.5&tilt=-102.5 pan=1527.5&tilt=-52.5 zoom=32.5 "
             "zoom=37.5 pan=1750&tilt=150&zoom=10 pan=0&tilt=-300 /cgi-bin/absget?ch=2& pan=1745&tilt=-70");
}

}  // namespace
}  // namespace ptzd
