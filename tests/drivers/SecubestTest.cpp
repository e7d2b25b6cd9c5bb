#include "drivers/Secubest.h"

#include "support/DriverTest.h"
#include "support/FakeSocket.h"

namespace ptzd::test {
namespace {

std::string DebugLines;

/// "STRT", NUL, "007", NUL, "PTZ", NUL, then the code and two bytes of speed, then "_END", NUL.
std::string Message(const std::string& codeAndSpeed) {
  return "53545254"
         "00"
         "303037"
         "00"
         "50545A"
         "00" +
         codeAndSpeed +
         "5F454E44"
         "00";
}

class SecubestTest : public testing::Test {
 protected:
  void SetUp() override { DebugLines.clear(); }

  static Bytes Options(const std::string& address, const Variant& moveInterval = 200) {
    return CameraOptions({{"MoveInterval", moveInterval}}, address);
  }
  void Connect(const Variant& moveInterval = 200) {
    ASSERT_TRUE(Device.Connect(Options("10.0.0.5", moveInterval)));
    Net.Log.Take();
  }
  /// What was sent and waited for, of the messages only code and speed.
  std::string Sent() {
    auto text = Net.Log.Take();
    const auto frame = Message("|"), head = frame.substr(0, frame.find('|')),
               tail = frame.substr(head.size() + 1);
    for (const auto& part : {head, tail})
      for (auto at = text.find(part); at != std::string::npos; at = text.find(part))
        text.erase(at, part.size());
    return text;
  }

  FakeClock Time;
  FakeInternet Web;
  FakeSockets Net{Time};
  Secubest Camera{
      {.Internet = &Web, .Clock = &Time, .Sockets = &Net, .DebugOutput = [](std::string_view line) {
         DebugLines.append(line).append("\n");
       }}};
  PTZDevice& Device = Camera;
  PTZDevice2& Device2 = Camera;
};

TEST_F(SecubestTest, ConnectsByDottedDecimal) {
  EXPECT_TRUE(Device2.Connect(Options("10.0.0.5")));
  EXPECT_TRUE(Device.Connect(Options("10.0.0.5:9000")));
  EXPECT_EQ(Net.Alive, 1) << "a second Connect closes the socket before it opens another";
  EXPECT_EQ(Net.Connects,
            (std::vector<std::string>{"10.0.0.5:7777 within 21000", "10.0.0.5:9000 within 21000"}));

  Net.ConnectError = 111;
  EXPECT_EQ(ErrorOf([&] { return Device.Connect(Options("10.0.0.5")); }),
            "17001 Unable to connect to the server: 111.");
  EXPECT_FALSE(Device.Connected());
  Net.OpenError = 24;
  EXPECT_EQ(ErrorOf([&] { return Device.Connect(Options("10.0.0.5")); }),
            "17001 Failed to open a TCP port: 24");
  EXPECT_EQ(NumberOf([&] { return Device.Connect(Options("10.0.0.5", std::string("slow"))); }), 13);
  EXPECT_EQ(Net.Alive, 0);
}

TEST_F(SecubestTest, TheTwoDisconnectsDiffer) {
  Connect();
  Device2.Disconnect();
  EXPECT_FALSE(Device.Connected());
  EXPECT_EQ(Net.Alive, 1);
  Camera.ContinuousZoom(2);
  EXPECT_EQ(Sent(), "180002") << "continuous motion needs the socket alone";
  EXPECT_EQ(Device.Disconnect(), Variant(true));
  EXPECT_EQ(Net.Alive, 0);
  EXPECT_EQ(Device.Disconnect(), Variant(true));
  Camera.StopContinuous();
  EXPECT_EQ(Sent(), "");
}

TEST_F(SecubestTest, ContinuousMotion) {
  struct Row {
    std::function<void(Secubest&)> call;
    const char* sent;
    const char* fault;
  };
  const Row rows[] = {
      {[](auto& c) { c.ContinuousMove(0.4F, 0); }, "170A00", "pan speeds have the low byte first"},
      {[](auto& c) { c.ContinuousMove(0.4F, 0); }, "", "sent once"},
      {[](auto& c) { c.ContinuousMove(0.41F, 0); }, "", "the same speed once rounded"},
      {[](auto& c) { c.ContinuousMove(0.5F, 0); }, "170C00", "12.5 is a tie"},
      {[](auto& c) { c.ContinuousMove(0, 0); }, "290000", ""},
      {[](auto& c) { c.ContinuousMove(0, 0); }, "290000", "a stop is always sent"},
      {[](auto& c) { c.ContinuousMove(-20, 0); }, "16F401", ""},
      {[](auto& c) { c.ContinuousMove(-3, 3); }, "246400", ""},
      {[](auto& c) { c.ContinuousZoom(10); }, "18000A", "zoom speeds have the high byte first"},
      {[](auto& c) { c.ContinuousZoom(10.5F); }, "", "sent once"},
      {[](auto& c) { c.ContinuousZoom(-300); }, "19012C", ""},
      {[](auto& c) { c.StopContinuous(); }, "290000 2D0000", ""},
      {[](auto& c) { c.StopContinuous(); }, "290000 2D0000", "stops are always sent"},
  };
  Connect();
  for (const auto& row : rows) {
    row.call(Camera);
    EXPECT_EQ(Sent(), row.sent) << "row " << &row - rows << " " << row.fault;
  }
  EXPECT_TRUE(DebugLines.starts_with("JS: 0.4x0, 0.4 Command: 23, 10\nJS: 0.5x0, 0.5 Command: 23, 12\n"))
      << DebugLines;
  Camera.ContinuousMove(0, 0);
  EXPECT_EQ(Net.Log.Take(),
            "535452540030303700"
            "50545A00"
            "290000"
            "5F454E4400")
      << "21 bytes";
  EXPECT_EQ(Net.SendTimeouts.back(), 5000);

  EXPECT_EQ(NumberOf([&] { Camera.ContinuousMove(1311, 0); }), 6);
  EXPECT_EQ(NumberOf([&] { Camera.ContinuousMove(std::nanf(""), 0); }), 6);
  EXPECT_EQ(NumberOf([&] { Camera.ContinuousZoom(std::nanf("")); }), 6);
  EXPECT_EQ(Sent(), "");
}

TEST_F(SecubestTest, TimedMoves) {
  struct Row {
    std::function<void(PTZDevice&, PTZDevice2&)> move;
    const char* sent;
    float pan, tilt, zoom;
  };
  const Row rows[] = {
      {[](auto& d, auto&) { EXPECT_TRUE(d.MoveTo(30, 0)); }, "17C800 1200ms 290000", 30, 0, 0},
      {[](auto& d, auto&) { EXPECT_TRUE(d.MoveTo(10, 10)); }, "21C800 533ms 290000", 10, 10,
       0},  // 13.33 each
      {[](auto& d, auto&) { EXPECT_TRUE(d.Move(DirectionDownLeft, 5)); }, "23C800 267ms 290000", -5, -5, 0},
      {[](auto& d, auto&) { EXPECT_TRUE(d.MoveBoth(0, 0.0375F)); }, "14C800 2ms 290000", 0, 0.0375F,
       0},  // 1.5
      {[](auto& d, auto&) { EXPECT_TRUE(d.Zoom(ZoomIn)); }, "18C800 10ms 2D0000", 0, 0, 0.25F},
      {[](auto&, auto& d) { d.Zoom(ZoomOut, 2); }, "19C800 80ms 2D0000", 0, 0, -2},
      {[](auto&, auto& d) { d.ZoomTo(1.5F); }, "18C800 60ms 2D0000", 0, 0, 1.5F},
      {[](auto&, auto& d) { d.MoveTo(2, 0, 4); }, "17C800 18C800 160ms 290000 2D0000", 2, 0, 4},
      {[](auto&, auto& d) { d.MoveTo(-9, 0, -4); }, "16C800 19C800 360ms 290000 2D0000", -9, 0, -4},
      {[](auto& d, auto&) { EXPECT_TRUE(d.MoveTo(0, 0)); }, "", 0, 0, 0},
  };
  Connect();
  for (const auto& row : rows) {
    Device2.MoveTo(0, 0, 0);
    Sent();
    row.move(Device, Device2);
    EXPECT_EQ(Sent(), row.sent) << "row " << &row - rows;
    EXPECT_EQ(Device.Pan(), row.pan) << "row " << &row - rows;
    EXPECT_EQ(Device.Tilt(), row.tilt) << "row " << &row - rows;
    EXPECT_EQ(Device2.ZoomLevel(), row.zoom) << "row " << &row - rows;
  }

  Device.MoveTo(7, 0);
  Sent();
  EXPECT_EQ(NumberOf([&] { Device.MoveTo(1e9F, 0); }), 6) << "a wait beyond 32 bits";
  EXPECT_EQ(NumberOf([&] { Device.MoveTo(std::nanf(""), 0); }), 6);
  EXPECT_EQ(Sent(), "");
  Connect(0);
  EXPECT_EQ(Device.Pan(), 7) << "the estimate survives reconnecting";
  Device.MoveTo(8, 0);
  EXPECT_EQ(Sent(), "17C800 290000");
}

TEST_F(SecubestTest, LostCommandsAndMissingConnections) {
  Connect();
  Net.SendError = 32;
  EXPECT_TRUE(Device.MoveTo(5, 0)) << "a loss is not noticed";
  EXPECT_EQ(Net.SendTimeouts.size(), 2U) << "the stop is tried";
  EXPECT_EQ(Time.TickCount(), 100200);

  Device.Disconnect();
  Device.MoveTo(50, 0);
  EXPECT_EQ(Time.TickCount(), 100200) << "no wait for a motor that does not run";
  EXPECT_EQ(Device.Pan(), 5);
}

}  // namespace
}  // namespace ptzd::test
