#include "drivers/Axis.h"
#include "support/DriverTest.h"

namespace ptzd::test {
namespace {

constexpr const char* FullHead =
    "root.PTZ.Limit.L1.MaxZoom=9999\nroot.PTZ.Limit.L1.MinFieldAngle=2\nroot.PTZ.Limit.L1.MaxFieldAngle=50\n"
    "root.PTZ.Support.S1.AbsolutePan=true\nroot.PTZ.Support.S1.AbsoluteTilt=true\n"
    "root.PTZ.Support.S1.AbsoluteZoom=true\nroot.PTZ.Support.S1.RelativeFocus=true\n"
    "root.PTZ.Support.S1.AutoFocus=true\nroot.PTZ.Support.S1.RelativeIris=true\n"
    "root.PTZ.Support.S1.AutoIris=false\nroot.PTZ.Support.S1.ContinuousPan=true\n"
    "root.PTZ.Support.S1.ContinuousZoom=true\nroot.PTZ.Support.S1.ServerPreset=true\n";
constexpr const char* Position = "pan=20.5\r\ntilt=-3.5\r\nzoom=364.6\r\nautofocus=on\r\n";

class AxisTest : public DriverTest<Axis> {
 protected:
  void Connect(const std::string& parameters, const OptionValues& options = {},
               const std::string& position = Position) {
    Net.Replies = {FakeReply{parameters}, FakeReply{position}};
    ASSERT_TRUE(Camera.Connect(CameraOptions(options)));
    Net.Replies.clear();
    Net.Sent.clear();
  }

  PTZDevice2& Device2 = Camera;
};

TEST_F(AxisTest, ConnectFailures) {
  struct Row {
    const char* address;
    FakeReply reply;
    const char* error;
  };
  const Row rows[] = {
      {"camera1:99999", {}, "17001 Unable to connect to the device"},
      {"camera1", {}, "17002 This device does not support PTZ."},
      {"camera1", {"root.PTZ.Support.S1.AbsolutePan=true\r\n"}, "17002 This device does not support PTZ."},
      {"camera1", {"root.PTZ.Support.S1.AbsolutePan=True\n"}, "17002 This device does not support PTZ."},
      {"camera1", {"root.PTZ.Support.S1.AutoFocus=true\n"}, "17002 This device does not support PTZ."},
      {"camera1", {std::string(FullHead) + "MaxZoom=many\n"}, "13 Type mismatch"},
  };
  for (const auto& row : rows) {
    Net.Replies = {row.reply};
    EXPECT_EQ(ErrorOf([&] { return Camera.Connect(CameraOptions({}, row.address)); }), row.error);
    EXPECT_FALSE(Camera.Connected());
  }
  EXPECT_EQ(NumberOf([&] { return Camera.Connect(CameraOptions({{"Port", std::string("two")}})); }), 13);
  EXPECT_EQ(Device.Pan(), 0) << "a refused camera may be asked all the same";
}

TEST_F(AxisTest, Positions) {
  Connect(FullHead);
  EXPECT_EQ(Device.Pan(), 20) << "20.5 is a tie";
  EXPECT_EQ(Device.Tilt(), -4) << "-3.5 is a tie";
  EXPECT_EQ(Device2.ZoomLevel(), 1) << "snapped to a quarter";
  Sent();
  Time.Advance(4999);
  EXPECT_TRUE(Device.MoveBoth(0, 2) && Device.MoveBoth(0, -2));
  Sent();
  Time.Advance(4999);
  EXPECT_EQ(Device.Pan(), 20);
  EXPECT_EQ(Sent(), "") << "a move says where the camera is";

  Time.Advance(1);
  Net.Replies = {FakeReply{"pan=1\ntilt=99999999999\n"}};
  EXPECT_EQ(NumberOf([&] { Device.Pan(); }), 6);
  Net.Replies = {FakeReply{.Answers = false}};
  EXPECT_EQ(Device.Pan(), 20) << "an overflow keeps the position";
}

TEST_F(AxisTest, WhatIsNotGivenIsTakenFromTheCamera) {
  struct Row {
    std::function<void(PTZDevice&, PTZDevice2&)> move;
    const char* sent;
  };
  const Row rows[] = {
      {[](auto&, auto& d) { d.ZoomTo(2); }, "zoom=728"},
      {[](auto&, auto& d) { d.Zoom(ZoomIn); }, "zoom=364"},
      {[](auto& d, auto&) { d.MoveTo(5, 6); }, "pan=5&tilt=6"},
  };
  for (const auto& [move, sent] : rows) {
    Connect(FullHead);
    Camera.StopContinuous();  // something turned the head and zoomed out
    Sent();
    Net.Replies = {FakeReply{"pan=90\ntilt=10\nzoom=273.7\n"}};
    move(Camera, Camera);
    EXPECT_EQ(Sent(), std::string("/axis-cgi/com/ptz.cgi?query=position\n/axis-cgi/com/ptz.cgi?") + sent);
  }
}

TEST_F(AxisTest, ZoomCountsFromOne) {
  Connect(FullHead, {{"ZoomStep", 4}}, "zoom=4\n");
  EXPECT_EQ(Device2.ZoomLevel(), 0.75F);
}

TEST_F(AxisTest, AFailedConnectLeavesTheNewOptionsInPlace) {
  Connect(FullHead);
  Net.Replies = {FakeReply{.Answers = false}};
  EXPECT_EQ(NumberOf([&] { return Camera.Connect(CameraOptions({}, "camera2")); }), 17001);
  EXPECT_TRUE(Device.MoveBoth(1, 1));
  EXPECT_EQ(Net.Sent.back().Host, "camera2");
  EXPECT_EQ(NumberOf([&] { return Camera.Connect(Bytes{1, 2}); }), 5);
  EXPECT_FALSE(Device.MoveBoth(1, 1)) << "options that cannot be read hold no address";
}

TEST_F(AxisTest, AbsoluteMoves) {
  struct Row {
    std::function<void(PTZDevice&, PTZDevice2&)> move;
    const char* sent;
    const char* fault;
  };
  const Row rows[] = {
      {[](auto& d, auto&) { EXPECT_TRUE(d.Move(DirectionRight, 0.5F)); }, "",
       "20.5 rounds to even: no move, True"},
      {[](auto& d, auto&) { EXPECT_TRUE(d.Move(DirectionRight, 1.5F)); }, "pan=22", "21.5 rounds to even"},
      {[](auto& d, auto&) { EXPECT_FALSE(d.MoveTo(-541, 200)); }, "pan=-181&tilt=180",
       "wraps only once; clamps"},
  };
  for (const auto& row : rows) {
    Connect(FullHead);
    row.move(Camera, Camera);
    EXPECT_EQ(Sent(), *row.sent ? "/axis-cgi/com/ptz.cgi?" + std::string(row.sent) : "") << row.fault;
  }
}

TEST_F(AxisTest, AMoveThatFailsKeepsThePosition) {
  Connect(FullHead);
  Net.Replies = {FakeReply{.Answers = false}};
  EXPECT_FALSE(Device.Move(DirectionLeft, 5));
  EXPECT_EQ(Device.Pan(), 20);
  EXPECT_EQ(NumberOf([&] { Device2.ZoomTo(3e38F); }), 6);
  Device2.ZoomTo(-0.0F);
  EXPECT_FALSE(std::signbit(Device2.ZoomLevel())) << "never a negative zero";
  Device.Disconnect();
  Sent();
  Device2.ZoomTo(2);
  EXPECT_EQ(Sent(), "");
  EXPECT_TRUE(Device.MoveBoth(1, 0)) << "is not gated";
}

TEST_F(AxisTest, ZoomStepComesFromTheFieldAngles) {
  struct Row {
    const char* limits;
    float zoom;
    const char* sent;
  };
  const std::string support = "S1.AbsolutePan=true\nS1.AbsoluteTilt=true\nS1.AbsoluteZoom=true\n";
  for (const auto& [limits, zoom, sent] : {
           Row{"MaxZoom=9999\nMinFieldAngle=2\nMaxFieldAngle=50\n", 10, "zoom=3637"},
           Row{"MaxZoom=9999\nMinFieldAngle=0\nMaxFieldAngle=50\n", 10, "zoom=4001"},
           Row{"MaxZoom=9999\n", 10, "zoom=4001"},
           Row{"MaxZoom=1042\nMinFieldAngle=2\nMaxFieldAngle=50\n", 41.25F,
               "zoom=1564"},  // a single before 1.1
       }) {
    Connect(support + limits);
    Sent();
    Device2.ZoomTo(zoom);
    EXPECT_EQ(Sent(), std::string("/axis-cgi/com/ptz.cgi?") + sent) << limits;
  }
}

TEST_F(AxisTest, ARelativeHeadIsAtItsReferenceAgainAfterAReconnect) {
  for (int round = 0; round < 2; ++round) {
    Connect("S1.RelativePan=true\n");
    Device2.MoveTo(5, 6, 1);
    EXPECT_EQ(Sent(), "/axis-cgi/com/ptz.cgi?rpan=5&rtilt=6&rzoom=401");
  }
}

TEST_F(AxisTest, ContinuousControlRepeatsOnlyStops) {
  Connect(FullHead);
  Camera.ContinuousMove(10, -0.3F);
  Camera.ContinuousMove(10, -0.3F);
  Camera.ContinuousMove(0, 0.4F);
  Camera.ContinuousMove(0, 0);
  Camera.ContinuousZoom(1.1F);
  Camera.ContinuousZoom(1.1F);
  Camera.ContinuousZoom(-3);
  Camera.StopContinuous();
  Camera.StopContinuous();
  EXPECT_EQ(Sent(),
            "/axis-cgi/com/ptz.cgi?continuouspantiltmove=20,-1\n"
            "/axis-cgi/com/ptz.cgi?continuouspantiltmove=0,0\n"
            "/axis-cgi/com/ptz.cgi?continuouspantiltmove=0,0\n"
            "/axis-cgi/com/ptz.cgi?continuouszoommove=1.21\n"
            "/axis-cgi/com/ptz.cgi?continuouszoommove=-9\n"
            "/axis-cgi/com/ptz.cgi?continuouspantiltmove=0,0\n/axis-cgi/com/ptz.cgi?continuouszoommove=0\n"
            "/axis-cgi/com/ptz.cgi?continuouspantiltmove=0,0\n/axis-cgi/com/ptz.cgi?continuouszoommove=0");
  Device.Pan();
  EXPECT_EQ(Sent(), "/axis-cgi/com/ptz.cgi?query=position") << "motion makes the position stale";
  for (const float speed : {3e38F, NAN}) {
    EXPECT_EQ(NumberOf([&] { Camera.ContinuousZoom(speed); }), 6);
    EXPECT_EQ(NumberOf([&] { Camera.ContinuousMove(speed, 0); }), 6);
  }
  Sent();
  Camera.ContinuousMove(5e6F, 0);
  EXPECT_EQ(Sent(), "/axis-cgi/com/ptz.cgi?continuouspantiltmove=1E+07,0") << "is the text of a single";
}

}  // namespace
}  // namespace ptzd::test
