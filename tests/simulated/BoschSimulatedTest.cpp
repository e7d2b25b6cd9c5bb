// The Bosch driver over real sockets against a dome written from the protocol.

#include "simulators/Bosch.h"

#include <cmath>

#include "support/SimulatedCamera.h"

namespace ptzd {
namespace {

using namespace std::chrono_literals;
using Support = ptzsim::Bosch::Support;

class BoschSimulated : public test::SimulatedCamera<ptzsim::Bosch> {
 protected:
  void SetUp() override {
    Start();
    Connect("QVPTZ.Bosch");
  }
  /// The driver asks again by a step that is none.
  void Settle() {
    SimulatedCamera::Settle();
    Driver->Move(DirectionUp, 0);
  }
  /// What the driver read is below the camera's by less than a tenth, more or less a camera unit.
  void ExpectRead(double read, double camera) {
    EXPECT_NEAR(std::remainder(camera - read, 360), 0.05, 0.056);
  }
};

TEST_F(BoschSimulated, GoesWhereItIsSentAndReadsWhereItIs) {
  const auto start = Camera->Head();
  ExpectRead(Driver->Pan(), start.Pan);
  EXPECT_EQ(Device2().ZoomLevel(), std::round(start.Zoom * 4) / 4);
  for (const float pan : {-180.0F, -179.9F, -90.0F, -0.3F, 0.0F, 1.0F, 45.5F, 179.0F, 180.0F})
    for (const float tilt : {-90.0F, -45.2F, -0.1F, 0.0F, 7.3F, 18.0F}) {
      const float zoom = (tilt + 90) / 4;
      Device2().MoveTo(pan, tilt, zoom);
      Settle();
      const auto head = Camera->Head();
      EXPECT_NEAR(std::remainder(head.Pan - pan, 360), 0, 0.004) << pan;
      EXPECT_NEAR(head.Tilt, tilt, 0.004);
      EXPECT_NEAR(head.Zoom, zoom, 0.125 + 0.5 / 45) << "not sent where it was read as that already";
      ExpectRead(Driver->Pan(), head.Pan);
      ExpectRead(Driver->Tilt(), head.Tilt < -0.003 ? head.Tilt + 65536 / 174.5328 : head.Tilt);
      EXPECT_NEAR(Device2().ZoomLevel(), head.Zoom, 0.125 + 0.5 / 45);
    }
  Device2().MoveTo(0, 60, 40);
  Settle();
  EXPECT_EQ(Driver->Tilt(), 18) << "the dome stops at its own end and says so";
  EXPECT_EQ(Device2().ZoomLevel(), 30);
}

TEST_F(BoschSimulated, StepsZoomAndContinuousMotion) {
  Driver->MoveTo(179, 5);
  Settle();
  EXPECT_FALSE(Driver->Move(DirectionUpRight, 2)) << "never True, though it is done";
  Settle();
  EXPECT_NEAR(Camera->Head().Pan, -179, 0.11) << "across the wrap";
  EXPECT_NEAR(Camera->Head().Tilt, 7, 0.11);
  Driver->MoveBoth(-3, 1);
  Settle();
  Device2().Move(DirectionUp, 6);
  Settle();
  EXPECT_NEAR(Camera->Head().Pan, 178, 0.21);
  EXPECT_NEAR(Camera->Head().Tilt, 2, 0.31) << "down";
  Device2().ZoomTo(2);
  Driver->Zoom(ZoomIn);
  Device2().Zoom(ZoomOut, 1);
  Settle();
  EXPECT_NEAR(Camera->Head().Zoom, 1.25, 0.5 / 45);

  Driver->MoveTo(0, 0);
  Settle();
  Continuous().ContinuousMove(-20, 5);
  Camera->Log().Clear();
  Continuous().ContinuousMove(-20, 5);
  EXPECT_TRUE(Camera->Log().Requests().empty()) << "a repeated motion is sent once";
  Camera->Time().Advance(1s);
  Continuous().StopContinuous();
  const auto head = Camera->Head();
  EXPECT_FALSE(head.Moving);
  EXPECT_NEAR(head.Pan, -15 * 8, 1) << "at the top speed";
  EXPECT_NEAR(head.Tilt, 4 * 5, 3) << "a quarter of it, to the end";
  Driver->Move(DirectionUp, 0);
  ExpectRead(Driver->Pan(), head.Pan);
}

TEST_F(BoschSimulated, RepliesOfEveryForm) {
  const std::pair<ptzsim::Bosch::Replies, float> rows[] = {
      {{.UpperCase = true}, 30},     {{.Padded = true}, -40},
      {{.Longer = true}, 50},        {{.UpperCase = true, .Padded = true, .Longer = true}, 60},
      {{.Of = Support::Silent}, 70}, {{.Of = Support::Refusing}, 80},
  };
  for (const auto& [replies, pan] : rows) {
    Camera->Reply(replies);
    const auto before = Camera->Head().Pan;
    EXPECT_FALSE(Driver->MoveTo(pan, 10));
    Settle();
    if (replies.Of == Support::Full) ExpectRead(Driver->Pan(), Camera->Head().Pan);
    EXPECT_NEAR(Camera->Head().Pan, replies.Of == Support::Full ? pan : before, 0.004);
    EXPECT_NEAR(Driver->Pan(), pan, 0.11) << "where nothing can be read the target stands";
  }
}

}  // namespace
}  // namespace ptzd
