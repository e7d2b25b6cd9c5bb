// The Secubest driver over TCP against a unit that checks every frame.

#include "simulators/Secubest.h"

#include <gtest/gtest.h>

#include <ptzd/DriverFactory.h>
#include <ptzd/PTZContinuousControl.h>
#include <ptzd/PTZDevice2.h>
#include "support/Errors.h"
#include "support/FakeClock.h"
#include "support/Options.h"
#include "support/Script.h"

namespace ptzd {
namespace {

using test::ErrorOf;

/// Lets the unit's time pass where the driver waits, once the frames before have arrived.
class UnitClock final : public test::FakeClock {
 public:
  explicit UnitClock(ptzsim::Secubest& unit) : Unit_(unit) {}
  void SleepUntil(TimePoint deadline) override {
    Unit_.Log().WaitForRequests(FramesBefore);
    Unit_.Time().Advance(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Now()));
    FakeClock::SleepUntil(deadline);
  }
  std::size_t FramesBefore = 0;

 private:
  ptzsim::Secubest& Unit_;
};

class SecubestSimulated : public testing::Test {
 protected:
  bool Connect(const test::OptionValues& options = {}) {
    return Driver->Connect(test::CameraOptions(options, Unit.Addresses()[0]));
  }
  PTZContinuousControl& Continuous() { return dynamic_cast<PTZContinuousControl&>(*Driver); }
  void TearDown() override { EXPECT_EQ(Unit.Log().Violations(), std::vector<std::string>{}); }

  ptzsim::Secubest Unit{{.Clock = ptzsim::ClockKind::Manual}};
  UnitClock Clock{Unit};
  std::unique_ptr<PTZDevice> Driver = CreateDriver("QVPTZ.Secubest", {.Clock = &Clock});
};

TEST_F(SecubestSimulated, ABrokenConnectionLosesCommandsSilently) {
  ASSERT_TRUE(Connect());
  ASSERT_TRUE(Unit.Log().WaitForConnections(1));
  Unit.CloseConnections(true);
  ASSERT_TRUE(Unit.Log().WaitForClosed(1));
  for (int i = 0; i < 5; ++i) Continuous().StopContinuous();
  EXPECT_TRUE(Connect());
  EXPECT_TRUE(Connect()) << "an open connection is closed first";
  Continuous().StopContinuous();
  EXPECT_TRUE(Unit.Log().WaitForRequests(2));
  dynamic_cast<PTZDevice2&>(*Driver).Disconnect();
  EXPECT_FALSE(Driver->Connected());
  Continuous().ContinuousMove(2, 0);
  EXPECT_TRUE(Unit.Log().WaitForRequests(3)) << "the connection is still there";
  EXPECT_EQ(Unit.Log().ConnectionsClosed(), 2) << "only PTZDevice closes the connection";
  Driver->Disconnect();
  EXPECT_TRUE(Unit.Log().WaitForClosed(3));
  Unit.Faults().Set("refuse");
  EXPECT_TRUE(ErrorOf([&] { Connect(); }).starts_with("17001 Unable to connect to the server: "));
}

TEST_F(SecubestSimulated, AUnitIsSent) {
  ASSERT_TRUE(Connect({{"MoveInterval", 100}}));
  const auto began = Clock.TickCount();
  const auto there = [&](float pan, float tilt) {
    Clock.FramesBefore = Unit.Log().Requests().size() + 1;
    Driver->MoveTo(pan, tilt);
    ASSERT_TRUE(Unit.Log().WaitForRequests(Clock.FramesBefore + 1));
  };
  there(10, 0), there(10, 5), there(0, 5), there(0, 0);
  there(9, 9), there(18, 0), there(9, -9), there(0, 0);
  EXPECT_EQ(Clock.TickCount() - began, 20 * (2 * 10 + 2 * 5 + 4 * 12)) << "18 over 1.5 on a diagonal";
  auto& device2 = dynamic_cast<PTZDevice2&>(*Driver);
  Clock.FramesBefore = 18;
  device2.MoveTo(0, -5, 2);
  ASSERT_TRUE(Unit.Log().WaitForRequests(20));
  Clock.FramesBefore = 21;
  EXPECT_TRUE(Driver->Zoom(ZoomOut));
  for (const float speed : {10.0F, 10.0F, 12.0F}) Continuous().ContinuousMove(speed, 0);
  Continuous().ContinuousMove(-6, 6);
  Continuous().ContinuousZoom(30);
  Continuous().ContinuousZoom(-7);
  Continuous().StopContinuous();
  // The code and the speed: low byte first for pan and tilt and in a timed move, high byte first for zoom.
  const char* const frames[] = {"17 C8 00", "29 00 00", "14 C8 00", "29 00 00", "16 C8 00", "29 00 00",
                                "15 C8 00", "29 00 00", "21 C8 00", "29 00 00", "22 C8 00", "29 00 00",
                                "23 C8 00", "29 00 00", "24 C8 00", "29 00 00", "15 C8 00", "18 C8 00",
                                "29 00 00", "2D 00 00", "19 C8 00", "2D 00 00", "17 FA 00", "17 2C 01",
                                "24 C8 00", "18 00 1E", "19 00 07", "29 00 00", "2D 00 00"};
  ASSERT_TRUE(Unit.Log().WaitForRequests(std::size(frames)));
  std::string wanted;
  for (const std::string frame : frames)  // "STRT" 0 "007" 0 "PTZ" 0 ... "_END" 0
    wanted += "53 54 52 54 00 30 30 37 00 50 54 5A 00 " + frame + " 5F 45 4E 44 00\n";
  EXPECT_EQ(test::Script(Unit.Log()), wanted);
}

}  // namespace
}  // namespace ptzd
