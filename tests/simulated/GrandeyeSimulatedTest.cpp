// The Grandeye driver over real sockets against a camera with three views.

#include "simulators/Grandeye.h"

#include <gtest/gtest.h>

#include <cmath>

#include "catalogue/DriverFactory.h"
#include "contract/PropertyBag.h"
#include "support/FakeClock.h"

namespace ptzd {
namespace {

using namespace std::chrono_literals;

class GrandeyeSimulated : public testing::Test {
 protected:
  void Connect(int port) {
    PropertyBag options;
    options.WriteProperty("Address", Camera.Addresses().at(0));
    options.WriteProperty("Port", port);
    ASSERT_TRUE(Driver->Connect(options.Contents()));
  }
  /// Long enough for any motion to end, and for the driver to ask again.
  void Settle() {
    Camera.Time().Advance(60s);
    Clock.Advance(5000);
  }
  void TearDown() override {
    EXPECT_EQ(Camera.Log().Violations(), std::vector<std::string>{});
    EXPECT_EQ(Camera.Log().ConnectionsOpened(), 1) << "one connection serves all commands";
  }

  test::FakeClock Clock;
  ptzsim::Grandeye Camera{{.Clock = ptzsim::ClockKind::Manual}};
  std::unique_ptr<PTZDevice> Driver = CreateDriver("QVPTZ.Grandeye", {.clock = &Clock});
};

TEST_F(GrandeyeSimulated, AViewLooksWhereItIsSent) {
  Connect(0);
  EXPECT_EQ(Driver->Pan(), -62.5F);
  EXPECT_EQ(Driver->Tilt(), -6.75F);
  const auto apart = [](double a, double b) { return std::fabs(std::remainder(a - b, 360)); };
  for (const float pan : {-180.0F, -179.0F, -90.0F, -1.0F, 0.0F, 45.0F, 179.0F, 180.0F, 185.0F, -200.0F})
    for (const float tilt : {-45.0F, -44.0F, 0.0F, 44.0F, 45.0F}) {
      EXPECT_FALSE(Driver->MoveTo(pan, tilt)) << "never True, though the view moves";
      EXPECT_LE(std::fabs(Driver->Pan()), 180);
      Settle();
      EXPECT_EQ(apart(Camera.Head().Pan, pan), 0) << pan;
      EXPECT_EQ(apart(Driver->Pan(), pan), 0) << pan;
      EXPECT_EQ(Camera.Head().Tilt, tilt);
      EXPECT_EQ(Driver->Tilt(), tilt);
    }
}

TEST_F(GrandeyeSimulated, StepsGoAroundAndZoomInNarrowsThePicture) {
  Connect(1);
  Driver->MoveTo(178, 0);
  EXPECT_TRUE(Driver->Move(DirectionUpRight, 5));
  EXPECT_EQ(Driver->Pan(), -177);
  Settle();
  EXPECT_EQ(Camera.Head().Pan, -177);
  EXPECT_EQ(Camera.Head().Tilt, 5);
  EXPECT_TRUE(Driver->MoveBoth(-10, -60));
  Settle();
  EXPECT_EQ(Camera.Head().Pan, 173);
  EXPECT_EQ(Camera.Head().Tilt, -45);

  const double zoom = Camera.Head().Zoom;
  EXPECT_TRUE(Driver->Zoom(ZoomIn));
  Settle();
  EXPECT_EQ(Camera.Head().Zoom, zoom - 250);
  EXPECT_TRUE(Driver->Zoom(ZoomOut));
  Settle();
  EXPECT_EQ(Camera.Head().Zoom, zoom);
}

TEST_F(GrandeyeSimulated, PortChoosesTheView) {
  for (const int port : {3, 2}) {
    const auto first = Camera.Head(1), before = Camera.Head(port);
    Connect(port);
    EXPECT_NEAR(Driver->Pan(), before.Pan, 0.01);
    EXPECT_NEAR(Driver->Tilt(), before.Tilt, 0.01);
    EXPECT_TRUE(Driver->MoveBoth(-20, 3));
    Settle();
    EXPECT_NEAR(Camera.Head(port).Pan, before.Pan - 20, 0.5);
    EXPECT_NEAR(Camera.Head(port).Tilt, before.Tilt + 3, 0.5);
    EXPECT_EQ(Camera.Head(1).Pan, first.Pan);
    EXPECT_EQ(Driver->Pan(), Camera.Head(port).Pan);
  }
}

}  // namespace
}  // namespace ptzd
