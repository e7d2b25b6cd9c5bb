#include "drivers/MeritLilin.h"

#include <array>
#include "support/DriverTest.h"

namespace ptzd::test {
namespace {

constexpr const char* AnglesReply =
    "autopan=0\npanposdegree=200\ntiltposdegree=7\nzoomposdegree=6.5\nfocuspos=67\n";

/// Pan, tilt and zoom as the driver tells them.
using Model = std::array<float, 3>;

class MeritLilinTest : public DriverTest<MeritLilin> {
 protected:
  void Connect(const OptionValues& options = {}) {
    Net.Replies = {FakeReply{"<html>"}, FakeReply{AnglesReply}};
    ASSERT_TRUE(Device2.Connect(CameraOptions(options)));
    EXPECT_EQ(Now(), (Model{20, -7, 1.375F}));
    Net.Sent.clear();
  }
  Model Now() { return {Device.Pan(), Device2.Tilt(), Device2.ZoomLevel()}; }
  static std::string Command(const char* pan, const char* tilt, const char* zoom) {
    return std::string("/control?panposdegree=") + pan + "&tiltposdegree=" + tilt + "&zoomposdegree=" + zoom;
  }

  PTZDevice2& Device2 = Camera;
};

TEST_F(MeritLilinTest, ConnectsAndFailsTo) {
  struct Row {
    Variant port;
    FakeReply probe;
    const char* error;
    const char* sent;
  };
  const Row rows[] = {
      {70000, {}, "6 Overflow", "/"},
      {std::string("two"), {}, "13 Type mismatch", "/"},
      {-2, {"", "HTTP/1.1 404 Not Found"}, "", "/\n/control?camid=-2&cmd=getallposdegree"},
  };
  EXPECT_FALSE(Device.MoveTo(1, 2)) << "there is no camera yet";
  EXPECT_EQ(Now(), (Model{0, 0, 0}));
  for (const auto& row : rows) {
    Net.Replies = {row.probe};
    const auto error = ErrorOf([&] { return Device.Connect(CameraOptions({{"Port", row.port}})); });
    EXPECT_EQ(error.substr(0, std::string(row.error).size()), row.error);
    EXPECT_EQ(error.empty(), *row.error == 0) << error;
    EXPECT_EQ(Device.Connected(), *row.error == 0) << row.error;
    EXPECT_EQ(Sent(), row.sent) << row.error;
  }
  Device.Disconnect();
  EXPECT_TRUE(Device.MoveTo(1, 2)) << "needs no connection";
}

TEST_F(MeritLilinTest, Targets) {
  struct Row {
    Model target;
    const char *pan, *tilt, *zoom;  // as sent
    float panAfter, zoomAfter;
    const char* fault;
  };
  const Row rows[] = {
      {{-540, 0.5F, 0.1F}, "0", "0", "1.4", -180, 0.1F, "never -0; the text of a single"},
      {{-180, -30, 0}, "0", "30", "1", -180, 0, "the lower end is in range"},
      {{179.5F, -0.5F, -1}, "359", "1", "1", 179.5F, 0, "rounds down on both axes; no negative zoom"},
      {{-0.25F, 0, 1e7F}, "179", "0", "4E+07", -0.25F, 1e7F, "zoom has no upper end"},
      {{720000192.0F, 0, 0}, "12", "0", "1", -168, 0, "two million turns"},
  };
  Connect();
  for (const auto& row : rows) {
    Device2.MoveTo(row.target[0], row.target[1], row.target[2]);
    EXPECT_EQ(Sent(), Command(row.pan, row.tilt, row.zoom)) << row.fault;
    EXPECT_EQ(Now(), (Model{row.panAfter, row.target[1], row.zoomAfter})) << row.fault;
  }
}

TEST_F(MeritLilinTest, Steps) {
  Connect();
  EXPECT_TRUE(Device.Move(DirectionUpLeft, 2.5F));
  EXPECT_TRUE(Device.Move(DirectionDownRight, 1)) << "from the fractions, not from what was sent";
  EXPECT_TRUE(Device.Move(static_cast<Directions>(15), 5)) << "opposites cancel, and are sent all the same";
  EXPECT_TRUE(Device.Zoom(static_cast<Zooms>(3))) << "so is no zoom";
  EXPECT_EQ(Sent(), Command("197", "5", "6.5") + "\n" + Command("198", "6", "6.5") + "\n" +
                        Command("198", "6", "6.5") + "\n" + Command("198", "6", "6.5"));
}

TEST_F(MeritLilinTest, AMoveThatFailsKeepsThePosition) {
  Connect();
  Net.Replies = {FakeReply{.Answers = false}};
  EXPECT_FALSE(Device.MoveTo(100, 20));
  EXPECT_EQ(Now(), (Model{20, -7, 1.375F}));
  Sent();
  EXPECT_EQ(NumberOf([&] { Device.MoveTo(-3e9F, 0); }), 6);
  EXPECT_EQ(NumberOf([&] { Device2.ZoomTo(3e38F); }), 6);
  EXPECT_EQ(Sent(), "");
  EXPECT_EQ(Now(), (Model{20, -7, 1.375F}));
}

TEST_F(MeritLilinTest, PositionReplies) {
  struct Row {
    const char* reply;
    Model after;
    const char* fault;
    std::int32_t error = 0;
  };
  const Row rows[] = {
      {"panposdegree=0\n", {-180, -7, 1.375F}, "rows that are not there keep theirs"},
      {"panposdegree=350\r\ntiltposdegree=-12\r\nzoomposdegree=21\r\n", {170, 12, 5}, "foreign line ends"},
      {"PanPosDegree=1\nxpanposdegree=2\npanposdegree =3\n panposdegree=4\n",
       {20, -7, 1.375F},
       "keys compare exactly"},
      {"panposdegree=20=30", {-160, -7, 1.375F}, "a second separator ends the value"},
      {"panposdegree", {-180, -7, 1.375F}, "no number is 0"},
      {"panposdegree=1\ntiltposdegree=1e39\n", {20, -7, 1.375F}, "an overflow keeps it all", 6},
      {"tiltposdegree=1\nzoomposdegree=1e400\n", {20, -7, 1.375F}, "also of a double", 6},
  };
  for (const auto& row : rows) {
    Connect();
    Time.Advance(5000);
    Net.Replies = {FakeReply{row.reply}};
    EXPECT_EQ(NumberOf([&] { Device.MoveBoth(0, 0); }), row.error) << row.fault;
    EXPECT_EQ(Net.Sent.size(), row.error ? 1U : 2U) << "nothing moves on a 6";
    EXPECT_EQ(Now(), row.after) << row.reply;
  }
}

TEST_F(MeritLilinTest, ContinuousControlRepeatsOnlyStops) {
  struct Row {
    std::function<void(PTZContinuousControl&)> move;
    const char* sent;
    const char* fault;
  };
  const Row rows[] = {
      {[](auto& c) { c.ContinuousMove(10, 0); }, "/control?rpan=4&rtilt=0", ""},
      {[](auto& c) { c.ContinuousMove(10.5F, 0); }, "", "4.2 is the same 4"},
      {[](auto& c) { c.ContinuousZoom(3); }, "/control?rzoom=-1", "in is negative"},
      {[](auto& c) { c.ContinuousMove(10, 0); }, "", "a zoom between is another motion"},
      {[](auto& c) { c.ContinuousMove(-1, 0.4F); }, "/control?rpan=-1&rtilt=0", "towards minus infinity"},
      {[](auto& c) { c.ContinuousMove(2.5e7F, 0); }, "/control?rpan=1E+07&rtilt=0", "the text of a single"},
      {[](auto& c) { c.ContinuousZoom(-3); }, "/control?rzoom=2", "rounded before the sign is turned"},
      {[](auto& c) { c.ContinuousZoom(1); }, "/control?rzoom=0", "never -0"},
      {[](auto& c) { c.StopContinuous(); }, "/control?stop=1\n/control?zoom_stop=1", "stops are repeated"},
      {[](auto& c) { EXPECT_EQ(NumberOf([&] { c.ContinuousMove(0, NAN); }), 6); }, "", ""},
      {[](auto& c) { EXPECT_EQ(NumberOf([&] { c.ContinuousZoom(INFINITY); }), 6); }, "", ""},
  };
  EXPECT_EQ(NumberOf([&] { return Device.Connect(CameraOptions({{"Port", 70000}}, "")); }), 17003);
  EXPECT_EQ(NumberOf([&] { Camera.ContinuousMove(10, 0); }), 6) << "then it is not the last one";
  Connect();
  for (const auto& row : rows) {
    row.move(Camera);
    EXPECT_EQ(Sent(), row.sent) << row.fault;
  }
}

TEST_F(MeritLilinTest, Logs) {
  Connect();
  Net.Replies = {FakeReply{"OK"}, FakeReply{.Answers = false}};
  const auto log = LogOf([&] { EXPECT_TRUE(Device.Iris(IrisAuto) && !Device.Iris(IrisOpen)); });
  EXPECT_EQ(log.find("Sending: http://camera1/camera?autoiris=1|Getting request handles|"), 0U);
  EXPECT_NE(log.find("0  content length|Wanted 2 and got 2|Got data (0)|Got all data|Received: OK|Sending: "
                     "http://camera1/camera?iris=1|"),
            std::string::npos);
  EXPECT_TRUE(log.ends_with("Request error 13104, Failed to connect to the HTTP server.|"));
}

}  // namespace
}  // namespace ptzd::test
