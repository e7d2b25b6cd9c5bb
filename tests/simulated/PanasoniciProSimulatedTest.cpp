// The i-Pro driver over real sockets against cameras of each way to count, and an encoder.

#include "simulators/PanasoniciPro.h"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>

#include "catalogue/DriverFactory.h"
#include "contract/PTZDevice2.h"
#include "contract/PropertyBag.h"
#include "support/FakeClock.h"

namespace ptzd {
namespace {

using namespace std::chrono_literals;

class PanasoniciProSimulated : public testing::Test {
 protected:
  void Connect(const std::string& model, int channels = 1, int port = 0) {
    if (Camera) CheckLog();
    Camera.emplace(ptzsim::PanasoniciPro::Options{
        .Model = model, .Channels = channels, .Clock = ptzsim::ClockKind::Manual});
    Driver = CreateDriver("QVPTZ.PanasoniciPro", {.clock = &Clock});
    Channel = port == 0 ? 1 : port;
    PropertyBag options;
    options.WriteProperty("Address", Camera->Addresses().at(0));
    options.WriteProperty("Port", port);
    ASSERT_TRUE(Driver->Connect(options.Contents()));
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
  PTZDevice2& Device2() { return dynamic_cast<PTZDevice2&>(*Driver); }

  void TearDown() override { CheckLog(); }
  void CheckLog() {
    EXPECT_EQ(Camera->Log().Violations(), std::vector<std::string>{});
    EXPECT_EQ(Camera->Log().ConnectionsOpened(), 1) << "one connection serves all commands";
  }

  test::FakeClock Clock;
  std::optional<ptzsim::PanasoniciPro> Camera;
  std::unique_ptr<PTZDevice> Driver;
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
