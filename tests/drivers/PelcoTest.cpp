#include "drivers/Pelco.h"

#include <limits>
#include <thread>

#include <ptzd/Error.h>
#include <ptzd/PropertyBag.h>
#include "support/DriverTest.h"
#include "support/FakeSerialPort.h"

namespace ptzd::test {
namespace {

// Frames are written out from the protocols' tables: FF address command1 command2 data1 data2 sum, and
// A0 address-1 command1 command2 data1 data2 AF exclusive-or.

using Values = std::vector<std::pair<const char*, Variant>>;

Bytes Options(const Values& values) {
  PropertyBag bag;
  bag.WriteProperty("COMPort", 1);
  for (const auto& [name, value] : values) bag.WriteProperty(name, value);
  return bag.Contents();
}

class PelcoTest : public testing::Test {
 protected:
  void Connect(const Values& values = {}) {
    ASSERT_TRUE(Camera.Connect(Options(values)));
    Sent();
  }
  std::string Sent() { return Ports.Line.Log.Take(); }

  FakeClock Time;
  FakeSerialPorts Ports{Time};
  Pelco Camera{{.Clock = &Time}};
};

using Call = std::function<void(Pelco&)>;

TEST_F(PelcoTest, CommandsOfBothProtocols) {
  struct Row {
    Call call;
    const char* pelcoD;
    const char* pelcoP;
  };
  const Row rows[] = {
      {[](auto& c) { c.ContinuousMove(64, 63); }, "FF01000A403F8A", "A000000A403FAF7A"},
      {[](auto& c) { c.ContinuousMove(-2.5F, 3.5F); }, "FF01000C020413", "A000000C0204AF05"},
      // A step of the lens: the motor runs for its time and is always stopped.
      {[](auto& c) { EXPECT_TRUE(c.Iris(IrisOpen)); }, "FF01002D000230 FF010200000003 250ms FF010000000001",
       "A000002D0002AF20 A00004000000AF0B 250ms A00000000000AF0F"},
      // The first preset and the last one that each count announces.
      {[](auto& c) { EXPECT_TRUE(c.PresetGoto(0)); }, "FF010007000109", "A00000070001AF09"},
      {[](auto& c) { EXPECT_TRUE(c.PresetSave(31)); }, "FF010003002024", "A00000030020AF2C"},
      {[](auto& c) { EXPECT_TRUE(c.PresetGoto(246)); }, "FF01000700F7FF", "A000000700F7AFFF"},
  };
  for (const std::int32_t protocol : {0, 1}) {
    Connect({{"Protocol", protocol}});
    EXPECT_EQ(Camera.PresetCount(), protocol == 0 ? 32 : 255);
    for (const auto& row : rows) {
      row.call(Camera);
      EXPECT_EQ(Sent(), protocol == 0 ? row.pelcoD : row.pelcoP) << "row " << &row - rows;
    }
  }
  EXPECT_TRUE(Camera.PresetGoto(254));
  EXPECT_EQ(Sent(), "A000000700FFAFF7") << "the last preset of Pelco-P, which has no sum to overflow";
  EXPECT_TRUE(Camera.Iris(static_cast<ptzd::Iris>(3)) && Camera.Focus(static_cast<ptzd::Focus>(-1)));
  EXPECT_EQ(Sent(), "");
}

TEST_F(PelcoTest, AddressOfEveryFrame) {
  struct Row {
    Variant port;
    std::int32_t protocol;
    const char* sent;  // of a zoom
    std::int32_t error;
  };
  const Row rows[] = {
      {0, 0, "FF010020000021", 0},  // 0 stands for 1
      {0, 1, "A00000200000AF2F", 0},
      {std::string("200"), 0, "FFC800200000E8", 0},  // texts come from settings pages
      {255, 1, "A0FE00200000AFD1", 0},
      {223, 0, "FFDF00200000FF", 0},  // a sum of 255
      {224, 0, "", 6},                // of 256
      {256, 1, "", 6},
      {-1, 1, "", 6},
      {std::string("one"), 1, "", 13},
      {1, 2, "empty", 0},  // an unknown protocol
  };
  for (const auto& row : rows) {
    Connect({{"Port", row.port}, {"Protocol", row.protocol}});
    EXPECT_EQ(NumberOf([&] { Camera.ContinuousZoom(1); }), row.error) << "row " << &row - rows;
    EXPECT_EQ(Sent(), row.sent) << "row " << &row - rows;
  }
}

TEST_F(PelcoTest, TimedMoves) {
  struct Row {
    Values options;
    Call move;
    const char* sent;
    float pan, tilt;
  };
  const Row rows[] = {
      {{}, [](auto& c) { c.MoveTo(90, 45); }, "FF01000A3F3F89 680ms FF010000000001", 90, 45},  // 67.5, a tie
      {{}, [](auto& c) { c.MoveTo(200, 0); }, "FF0100023F3F81 2000ms FF010000000001", -160, 0},
      {{}, [](auto& c) { c.MoveTo(-541, 0); }, "FF0100043F3F83 5410ms FF010000000001", 179, 0},
      {{}, [](auto& c) { c.MoveTo(180, -100); }, "FF0100123F3F91 1400ms FF010000000001", 180, -90},
      {{}, [](auto& c) { c.MoveTo(0, 0); }, "FF0100003F3F7F FF010000000001", 0, 0},
      {{}, [](auto& c) { c.Move(DirectionDown); }, "FF0100103F3F8F 50ms FF010000000001", 0, -5},
      {{}, [](auto& c) { EXPECT_TRUE(c.MoveBoth(0.25F, 0)); }, "FF0100023F3F81 FF010000000001", 0.25F, 0},
      {{{"MoveInterval", 12}}, [](auto& c) { c.MoveTo(0, 3); }, "FF0100083F3F87 7ms FF010000000001", 0, 3},
      {{{"MoveInterval", 0}}, [](auto& c) { c.MoveTo(0, 3); }, "FF0100083F3F87 FF010000000001", 0, 3},
      {{{"MoveInterval", -50}}, [](auto& c) { c.MoveTo(0, 3); }, "FF0100083F3F87 FF010000000001", 0, 3},
      {{{"MoveSpeed", 64}}, [](auto& c) { c.MoveTo(1, 1); }, "FF01000A403F8A 10ms FF010000000001", 1, 1},
      {{{"MoveSpeed", 5}, {"Protocol", 1}},
       [](auto& c) { c.MoveTo(1, 0); },
       "A00000020505AF0D 10ms A00000000000AF0F",
       1,
       0},
  };
  for (const auto& row : rows) {
    Connect(row.options);
    Camera.SetPanTilt(0, 0);
    row.move(Camera);
    EXPECT_EQ(Sent(), row.sent) << "row " << &row - rows;
    EXPECT_EQ(Camera.Pan(), row.pan) << "row " << &row - rows;
    EXPECT_EQ(Camera.Tilt(), row.tilt) << "row " << &row - rows;
  }

  Connect({{"ZoomInterval", std::string("333")}});
  Camera.Zoom(ZoomIn);
  EXPECT_EQ(Sent(), "FF010020000021 333ms FF010000000001");
}

TEST_F(PelcoTest, WhatDoesNotFitIsRefusedBeforeAnythingIsSent) {
  struct Row {
    Values options;
    Call call;
  };
  const Row rows[] = {
      {{}, [](auto& c) { c.PresetGoto(247); }},  // the sum of the frame is 256
      {{{"Protocol", 1}}, [](auto& c) { c.PresetGoto(255); }},
      {{{"Protocol", 1}}, [](auto& c) { c.PresetSave(-1); }},
      {{{"Protocol", 1}}, [](auto& c) { c.PresetSave(std::numeric_limits<std::int32_t>::max()); }},
      {{{"Protocol", 1}}, [](auto& c) { c.ContinuousMove(256, 0); }},
      {{{"Protocol", 1}}, [](auto& c) { c.ContinuousMove(0, std::nanf("")); }},
      {{{"MoveSpeed", 256}}, [](auto& c) { c.MoveTo(1, 0); }},
      {{{"Port", 200}}, [](auto& c) { c.MoveTo(1, 1); }},
      {{{"Port", 200}}, [](auto& c) { c.Focus(FocusFar); }},  // the frame before the motor's would fit
      {{}, [](auto& c) { c.MoveTo(1e9F, 0); }},               // a wait beyond 32 bits
      {{{"MoveInterval", 0}}, [](auto& c) { c.MoveTo(3e9F, 1); }},
  };
  for (const auto& row : rows) {
    Connect(row.options);
    Camera.SetPanTilt(3, 4);
    EXPECT_EQ(NumberOf([&] { row.call(Camera); }), 6) << "row " << &row - rows;
    EXPECT_EQ(Sent(), "") << "row " << &row - rows;
    EXPECT_EQ(Camera.Pan(), 3);
    EXPECT_EQ(Camera.Tilt(), 4);
  }
}

TEST_F(PelcoTest, LineGoneWhileDriving) {
  Connect();
  Ports.Line.FramesUntilUnplugged = 1;
  EXPECT_EQ(NumberOf([&] { Camera.MoveTo(10, 0); }), SerialErrorDevice);
  EXPECT_EQ(Sent(), "FF0100023F3F81 100ms unplugged") << "the stop was tried";
  EXPECT_EQ(Camera.Pan(), 0);

  Ports.Line.Plugged = true;
  Connect();
  Ports.Line.FramesUntilUnplugged = 1;
  EXPECT_EQ(NumberOf([&] { Camera.Iris(IrisOpen); }), SerialErrorDevice) << "not the stop's number";
  EXPECT_EQ(Sent(), "FF01002D000230 unplugged");
  EXPECT_EQ(NumberOf([&] { Camera.ContinuousZoom(1); }), SerialErrorNotOpen);
  EXPECT_FALSE(Camera.Connect(Options({}))) << "still unplugged";

  Ports.Line.Plugged = true;
  Ports.Line.FramesUntilUnplugged = -1;
  EXPECT_TRUE(Camera.Connect(Options({})));
  EXPECT_TRUE(Camera.Connected());
}

TEST_F(PelcoTest, StopFollowsAFailedStartOnAHostsPort) {
  class Moody final : public SerialPort {
   public:
    explicit Moody(FakeClock& time) : Time_(time) {}
    std::vector<std::size_t> Taken;
    int Calls = 0;
    std::int32_t CommPort() override { return 1; }
    void Settings(std::string_view) override {}
    bool PortOpen() override { return true; }
    void PortOpen(bool) override {}
    void Output(std::span<const std::uint8_t> frame) override {
      if (++Calls == 1) throw Error(SerialErrorDevice, "once");
      Taken.push_back(frame[3]);
      Time_.Advance(7);
    }

   private:
    FakeClock& Time_;
  };
  auto port = std::make_shared<Moody>(Time);
  class HostPool final : public SerialPortPool {
   public:
    explicit HostPool(std::shared_ptr<SerialPort> port) : Port_(std::move(port)) {}
    std::shared_ptr<SerialPort> Acquire(std::int32_t) override { return Port_; }
    bool Release(std::int32_t) override { return true; }

   private:
    std::shared_ptr<SerialPort> Port_;
  };
  UseSerialPortPool(std::make_shared<HostPool>(port));
  Connect();
  EXPECT_EQ(ErrorOf([&] { Camera.MoveTo(50, 0); }), "57 once");
  EXPECT_EQ(port->Taken, std::vector<std::size_t>{0}) << "the stop, and no wait before it";
  EXPECT_EQ(Time.TickCount(), 100007);
  Camera.MoveTo(50, 0);
  EXPECT_EQ(Time.TickCount(), 100007 + 7 + 500 + 7) << "the motor runs from when it was started";
}

TEST_F(PelcoTest, ConnectNeedsAPortAndKeepsIt) {
  EXPECT_FALSE(Camera.Connect(PropertyBag().Contents()));
  EXPECT_FALSE(Camera.Connect(Options({{"COMPort", 0}, {"Protocol", "no number"}})))
      << "nothing else is read";
  EXPECT_EQ(NumberOf([&] { Camera.Disconnect(); }), 91);

  EXPECT_FALSE(Camera.Connect(Options({{"COMPort", -1}})));
  EXPECT_EQ(NumberOf([&] { return Camera.Connect(Options({{"COMPort", -1}, {"Reset", true}})); }), 91);
  EXPECT_FALSE(Camera.Connect(Options({{"Baud", std::string("fast")}})));
  EXPECT_EQ(Camera.Disconnect(), Variant(true)) << "there was a port, though it did not open";
  EXPECT_EQ(Sent(), "");

  EXPECT_EQ(NumberOf([&] { return Camera.Connect(Options({{"MoveSpeed", std::string("fast")}})); }), 13);
  EXPECT_TRUE(Camera.Connected());
  EXPECT_EQ(Sent(), "open:2400,n,8,1");
  Camera.SetPanTilt(20, 0);
  EXPECT_TRUE(Camera.Connect(Options({{"Baud", 4800}, {"Reset", std::string("True")}})));
  EXPECT_EQ(Sent(), "close open:4800,n,8,1 FF0100043F3F83 200ms FF010000000001");
  EXPECT_EQ(Camera.Pan(), 0);
  EXPECT_EQ(Camera.Disconnect(), Variant(true));
  EXPECT_EQ(Sent(), "close");
  EXPECT_EQ(NumberOf([&] { Camera.Disconnect(); }), 91);
}

TEST_F(PelcoTest, OnePortForAllOfItsUsers) {
  auto second = std::make_unique<Pelco>(Platform{.Clock = &Time});
  EXPECT_TRUE(Camera.Connect(Options({{"Baud", 9600}})));
  EXPECT_TRUE(second->Connect(Options({{"Baud", 4800}, {"Port", 2}, {"Protocol", 1}})));
  const auto foreign = Ports.Pool->Acquire(1);
  EXPECT_TRUE(foreign->PortOpen());
  Camera.ContinuousZoom(1);
  foreign->Output(Bytes{0x55, 0xAA});
  second->ContinuousZoom(1);
  Camera.ContinuousZoom(0);
  EXPECT_EQ(Sent(), "open:9600,n,8,1 FF010020000021 55AA A00100200000AF2E FF010000000001");

  EXPECT_TRUE(Camera.Connect(Options({})));
  EXPECT_EQ(Camera.Disconnect(), Variant(true));
  EXPECT_EQ(Camera.Disconnect(), Variant(true)) << "no second release while others use the port";
  EXPECT_FALSE(Camera.Move(DirectionUp));
  second.reset();
  EXPECT_EQ(Sent(), "");
  EXPECT_TRUE(Ports.Pool->Release(1)) << "the foreign user was the last";
  EXPECT_FALSE(Ports.Pool->Release(1));
}

TEST_F(PelcoTest, FailedConnectLeavesNoUser) {
  Ports.Line.Plugged = false;
  EXPECT_FALSE(Camera.Connect(Options({})));
  Ports.Line.Plugged = true;
  Pelco second{{.Clock = &Time}};
  EXPECT_TRUE(second.Connect(Options({})));
  second.Disconnect();
  EXPECT_EQ(Sent(), "open:2400,n,8,1 close");
}

TEST(SharedSerialPorts, MapsNumbersToDevices) {
  std::string made;
  SharedSerialPorts pool([&](std::int32_t number, const std::string& device) {
    made += std::to_string(number) + "=" + device + " ";
    return std::unique_ptr<SerialPort>();
  });
  pool.MapDevice(2, "/dev/ttyUSB0");
  pool.Acquire(2);
  pool.MapDevice(2, "/dev/ttyUSB1");
  pool.Acquire(2);
  pool.Acquire(3);
  pool.Release(2);
  EXPECT_TRUE(pool.Release(2));
  pool.Acquire(2);
  EXPECT_EQ(made, "2=/dev/ttyUSB0 3=" + DefaultSerialDevice(3) + " 2=/dev/ttyUSB1 ");
  EXPECT_EQ(NumberOf([&] { pool.Acquire(0); }), SerialErrorNoPort);
  std::shared_ptr<SerialPortPool> others;
  std::thread([&] { others = ThreadSerialPortPool(); }).join();
  EXPECT_NE(ThreadSerialPortPool(), others) << "each thread has its own";
  EXPECT_EQ(ThreadSerialPortPool(), ThreadSerialPortPool());
}

}  // namespace
}  // namespace ptzd::test
