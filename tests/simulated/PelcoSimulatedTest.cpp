// The Pelco driver over a pseudo-terminal against receivers written from the two protocols.

#include <gtest/gtest.h>

#include <ptzd/DriverFactory.h>
#include <ptzd/PTZContinuousControl.h>
#include <ptzd/PropertyBag.h>
#include <ptzd/SerialPortPool.h>
#include "simulators/Pelco.h"
#include "support/Errors.h"
#include "support/FakeClock.h"
#include "support/Script.h"

namespace ptzd {
namespace {

using ptzsim::PelcoProtocol;
using test::NumberOf;

/// Lets the receivers' time pass where a driver waits, once the line has carried all that was sent.
class LineClock final : public test::FakeClock {
 public:
  explicit LineClock(ptzsim::Pelco& line) : Line_(line) {}
  void SleepUntil(TimePoint deadline) override {
    Line_.Log().WaitForRequests(++Frames);
    Line_.Time().Advance(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Now()));
    FakeClock::SleepUntil(deadline);
    ++Frames;  // the stop that follows
  }
  std::size_t Frames = 0;

 private:
  ptzsim::Pelco& Line_;
};

class PelcoLine : public testing::TestWithParam<int> {
 protected:
  PelcoLine() {
    auto ports = std::make_shared<SharedSerialPorts>();
    ports->MapDevice(1, Line.Addresses()[0]);
    UseSerialPortPool(ports);
  }

  static Bytes Options(int address, int baud = 4800, int moveSpeed = 40, bool reset = false) {
    PropertyBag options;
    options.WriteProperty("COMPort", 1);
    options.WriteProperty("Port", address);
    options.WriteProperty("Baud", baud);
    options.WriteProperty("Protocol", GetParam());
    options.WriteProperty("MoveSpeed", moveSpeed);
    options.WriteProperty("Reset", reset);
    return options.Contents();
  }
  std::unique_ptr<PTZDevice> Connect(int address, int baud = 4800) {
    auto driver = CreateDriver("QVPTZ.Pelco", {.Clock = &Clock});
    EXPECT_TRUE(driver->Connect(Options(address, baud)));
    return driver;
  }
  void TearDown() override {
    UseSerialPortPool(nullptr);
    EXPECT_EQ(Line.Log().Violations(), std::vector<std::string>{});
  }

  ptzsim::Pelco Line{{.Addresses = {1, 2},
                      .Protocol = GetParam() == 0 ? PelcoProtocol::D : PelcoProtocol::P,
                      .Line = {.Baud = 4800, .Raw = false},
                      .Clock = ptzsim::ClockKind::Manual}};
  LineClock Clock{Line};
};

TEST_P(PelcoLine, DriversShareThePortUntilTheLastLeaves) {
  const auto first = Connect(1);
  const auto second = Connect(2, 9600);  // the line keeps the first one's speed
  EXPECT_TRUE(first->PresetSave(3) && second->PresetSave(3));
  first->Disconnect();
  EXPECT_TRUE(second->PresetGoto(3));
  ASSERT_TRUE(Line.Log().WaitForRequests(3));
  EXPECT_TRUE(Line.Line().Port().has_value());
  second->Disconnect();
  EXPECT_TRUE(Line.Log().WaitForClosed(1));
  EXPECT_EQ(Line.Log().ConnectionsOpened(), 1);
  EXPECT_EQ(NumberOf([&] { second->Disconnect(); }), 91);
  const auto third = Connect(2);  // a line that is set up already
  EXPECT_TRUE(third->PresetGoto(3));
  EXPECT_TRUE(Line.Log().WaitForRequests(4));
}

TEST_P(PelcoLine, ALineThatVanishesFailsTheCallAndComesBack) {
  const auto driver = Connect(1);
  EXPECT_TRUE(driver->PresetSave(1));
  ASSERT_TRUE(Line.Log().WaitForRequests(1));
  Line.Faults().Set("refuse");
  EXPECT_NE(NumberOf([&] { driver->PresetGoto(1); }), 0);
  EXPECT_NE(NumberOf([&] { driver->PresetGoto(1); }), 0);
  Line.Faults().Clear();
  EXPECT_TRUE(driver->Connect(Options(1)));
  EXPECT_TRUE(driver->PresetGoto(1));
  EXPECT_TRUE(Line.Log().WaitForRequests(2));
}

TEST_P(PelcoLine, UnreadInputNeverBlocksTheLine) {
  const auto driver = Connect(1);
  for (std::size_t frames = 1; frames <= 64; ++frames) {
    Line.Line().Push(std::string(1 << 14, 'x'));
    EXPECT_TRUE(driver->PresetSave(static_cast<std::int32_t>(frames)));
    ASSERT_TRUE(Line.Log().WaitForRequests(frames));
  }
}

TEST_P(PelcoLine, AReceiverIsSent) {
  const auto driver = Connect(2);
  auto& continuous = dynamic_cast<PTZContinuousControl&>(*driver);
  driver->MoveTo(370, 0);
  EXPECT_EQ(driver->Pan(), 10);
  driver->MoveTo(-5, 12);
  driver->MoveBoth(0, -3);
  driver->Move(DirectionDownRight, 1);
  driver->Zoom(ZoomIn);
  driver->Zoom(ZoomOut);
  for (const auto iris : {IrisOpen, IrisClose, IrisAuto}) driver->Iris(iris);
  for (const auto focus : {FocusNear, FocusFar, FocusAuto}) driver->Focus(focus);
  driver->PresetSave(6);
  driver->PresetGoto(6);
  continuous.ContinuousMove(64, -20);
  continuous.ContinuousZoom(3);
  continuous.ContinuousZoom(-1);
  continuous.StopContinuous();
  // From the tables of the two protocols: FF, address, two command bytes, two data bytes and their sum; A0,
  // the address from 0, the same four, AF and all of it exclusive-or'ed.
  struct Frame {
    const char *D, *P;
  };
  constexpr Frame stop{"FF 02 00 00 00 00 02", "A0 01 00 00 00 00 AF 0E"};
  constexpr Frame irisByHand{"FF 02 00 2D 00 02 31", "A0 01 00 2D 00 02 AF 21"};
  constexpr Frame irisAuto{"FF 02 00 2D 00 00 2F", "A0 01 00 2D 00 00 AF 23"};
  constexpr Frame focusByHand{"FF 02 00 2B 00 02 2F", "A0 01 00 2B 00 02 AF 27"};
  constexpr Frame focusAuto{"FF 02 00 2B 00 00 2D", "A0 01 00 2B 00 00 AF 25"};
  constexpr Frame tele{"FF 02 00 20 00 00 22", "A0 01 00 20 00 00 AF 2E"};
  constexpr Frame wide{"FF 02 00 40 00 00 42", "A0 01 00 40 00 00 AF 4E"};
  const Frame frames[] = {
      {"FF 02 00 02 28 28 54", "A0 01 00 02 28 28 AF 0C"},
      stop,  // right
      {"FF 02 00 0C 28 28 5E", "A0 01 00 0C 28 28 AF 02"},
      stop,  // left and up
      {"FF 02 00 10 28 28 62", "A0 01 00 10 28 28 AF 1E"},
      stop,  // down
      {"FF 02 00 12 28 28 64", "A0 01 00 12 28 28 AF 1C"},
      stop,  // right and down
      tele,
      stop,
      wide,
      stop,
      irisByHand,
      {"FF 02 02 00 00 00 04", "A0 01 04 00 00 00 AF 0A"},
      stop,  // opens
      irisByHand,
      {"FF 02 04 00 00 00 06", "A0 01 08 00 00 00 AF 06"},
      stop,  // closes
      irisAuto,
      irisAuto,
      stop,
      focusByHand,
      {"FF 02 01 00 00 00 03", "A0 01 02 00 00 00 AF 0C"},
      stop,  // near
      focusByHand,
      {"FF 02 00 80 00 00 82", "A0 01 01 00 00 00 AF 0F"},
      stop,  // far
      focusAuto,
      focusAuto,
      stop,
      {"FF 02 00 03 00 07 0C", "A0 01 00 03 00 07 AF 0A"},  // sets preset 7
      {"FF 02 00 07 00 07 10", "A0 01 00 07 00 07 AF 0E"},  // goes there
      {"FF 02 00 12 40 14 68", "A0 01 00 12 40 14 AF 48"},  // turbo to the right, down
      tele,
      wide,
      stop,
      stop,
      {"FF 02 00 12 40 3F 93", "A0 01 00 12 40 3F AF 63"},  // back from -4, 8, at full speed
      stop,
  };
  ASSERT_TRUE(Line.Log().WaitForRequests(std::size(frames) - 2));
  EXPECT_TRUE(driver->Connect(Options(2, 4800, 64, true)));
  std::string wanted;
  for (const auto& frame : frames) wanted += std::string(GetParam() == 0 ? frame.D : frame.P) + "\n";
  ASSERT_TRUE(Line.Log().WaitForRequests(std::size(frames)));
  EXPECT_EQ(test::Script(Line.Log()), wanted);
}

INSTANTIATE_TEST_SUITE_P(Protocols, PelcoLine, testing::Values(0, 1),
                         [](const auto& protocol) { return protocol.param == 0 ? "PelcoD" : "PelcoP"; });

}  // namespace
}  // namespace ptzd
