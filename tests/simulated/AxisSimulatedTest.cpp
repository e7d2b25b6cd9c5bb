// The Axis driver over real sockets against a camera written from the protocol.

#include "simulators/Axis.h"

#include <cmath>

#include "support/Errors.h"
#include "support/SimulatedCamera.h"
#include "support/Wine.h"

namespace ptzd {
namespace {

using namespace std::chrono_literals;
using ptzsim::AxisHead;

class AxisSimulated : public test::SimulatedCamera<ptzsim::Axis> {
 protected:
  void Connect(std::vector<AxisHead> heads, const test::OptionValues& options = {}) {
    Start({.Heads = std::move(heads)});
    SimulatedCamera::Connect("QVPTZ.Axis", options);
  }
};

TEST_F(AxisSimulated, ATypicalRequestByteForByte) {
  if (test::UnderWine()) GTEST_SKIP() << "Wine orders the headers otherwise and leaves two of them away";
  Connect({AxisHead::None, AxisHead::Mechanical}, {{"Port", 2}});
  const auto before = Camera->Head(2);
  Camera->Log().Clear();
  EXPECT_TRUE(Driver->Move(DirectionUpLeft, 5));
  const auto pan = std::to_string(std::lrint(before.Pan) - 5),
             tilt = std::to_string(std::lrint(before.Tilt) + 5);
  ASSERT_EQ(Camera->Log().Requests().size(), 1U);
  EXPECT_EQ(Camera->Log().Requests()[0].Raw, "GET /axis-cgi/com/ptz.cgi?camera=2&pan=" + pan + "&tilt=" +
                                                 tilt + " HTTP/1.1\r\nHost: " + Camera->Addresses()[0] +
                                                 "\r\nUser-Agent: Qelto HTTP Client Object\r\nConnection: "
                                                 "Keep-Alive\r\nCache-Control: no-cache\r\n\r\n");
}

TEST_F(AxisSimulated, AMechanicalHeadGoesWhereItIsSent) {
  Connect({AxisHead::Mechanical});
  EXPECT_EQ(Driver->Capabilities() & (CapabilityFullZoom | CapabilityIris | CapabilityRelativeControl),
            CapabilityFullZoom | CapabilityIris);
  for (const int pan : {-170, -90, -1, 0, 1, 45, 169, 170})
    for (const int tilt : {-20, 0, 33, 90}) {
      Driver->MoveTo(static_cast<float>(pan), static_cast<float>(tilt));
      Settle();
      EXPECT_EQ(Camera->Head().Pan, pan);
      EXPECT_EQ(Camera->Head().Tilt, tilt);
      EXPECT_EQ(Driver->Pan(), pan);
      EXPECT_EQ(Driver->Tilt(), tilt);
    }
  Driver->MoveTo(-175, 0);
  Settle();
  EXPECT_EQ(Driver->Pan(), -170) << "the camera stops at its own limit and says so";

  for (const float zoom : {0.0F, 0.25F, 1.0F, 7.75F, 20.0F}) {
    Device2().ZoomTo(zoom);
    Settle();
    EXPECT_EQ(Device2().ZoomLevel(), zoom);
  }
  EXPECT_TRUE(Driver->Iris(IrisClose));
  EXPECT_FALSE(Camera->Head().AutoIris);
  EXPECT_TRUE(Driver->Focus(FocusAuto));
  EXPECT_TRUE(Camera->Head().AutoFocus);
}

TEST_F(AxisSimulated, AListWithForeignLineEndsDescribesNoHead) {
  Start({.ParameterLineEnd = "\r\n"});
  Driver = CreateDriver("QVPTZ.Axis");
  const auto options = test::CameraOptions({}, Camera->Addresses().at(0));
  EXPECT_EQ(test::NumberOf([&] { return Driver->Connect(options); }), PTZErrorPTZIncapable);
}

TEST_F(AxisSimulated, ContinuousMotionRunsUntilStopped) {
  Connect({AxisHead::Digital});
  Driver->MoveTo(0, 0);
  Settle();
  Continuous().ContinuousMove(10, -5);
  Camera->Time().Advance(500ms);
  EXPECT_GT(Camera->Head().Pan, 0);
  EXPECT_LT(Camera->Head().Tilt, 0);
  Continuous().StopContinuous();
  EXPECT_FALSE(Camera->Head().Moving);
  EXPECT_EQ(Driver->Pan(), std::lrint(Camera->Head().Pan)) << "asks where the motion ended";
}

}  // namespace
}  // namespace ptzd
