#include "drivers/Foscam.h"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>

#include "support/Errors.h"
#include "support/FakeInternet.h"

namespace ptzd {
namespace {

using test::ErrorOf;
using test::FakeReply;
using test::NumberOf;

class FoscamTest : public testing::Test {
 protected:
  void Connect(const Variant& invertPan = false) {
    PropertyBag options;
    options.WriteProperty("Address", std::string("camera1"));
    options.WriteProperty("InvertPan", invertPan);
    ASSERT_TRUE(Camera->Connect(options.Contents()));
    EXPECT_EQ(Sent(), "") << "nothing is asked";
  }
  /// The commands since the last call.
  std::string Sent() {
    const std::string path = "/decoder_control.cgi?command=";
    auto sent = Net.TakeSent();
    for (std::size_t at = 0; (at = sent.find(path, at)) != std::string::npos;) sent.erase(at, path.size());
    return sent;
  }

  test::FakeInternet Net;
  std::optional<Foscam> Camera{std::in_place, Platform{.internet = &Net}};
};

TEST_F(FoscamTest, MovesAreStepsInOneOfEightDirections) {
  struct Row {
    float pan, tilt;
    const char *sent, *inverted;
    const char* fault;
  };
  const Row rows[] = {
      {0, 0.5F, "0&onestep=1&degree=0.5", "0&onestep=1&degree=0.5", "up; the leading zero"},
      {0, -7, "2&onestep=1&degree=7", "2&onestep=1&degree=7", "down by a positive degree"},
      {-7, 0, "4&onestep=1&degree=7", "6&onestep=1&degree=7", "left"},
      {10, 0, "6&onestep=1&degree=10", "4&onestep=1&degree=10", "right"},
      {-10, 6, "90&onestep=1&degree=-2", "91&onestep=1&degree=8", "the mean has a sign"},
      {10, 6, "91&onestep=1&degree=8", "90&onestep=1&degree=-2", "and inversion changes it"},
      {-10, -6, "92&onestep=1&degree=-8", "93&onestep=1&degree=2", "down to the left"},
      {6, -6, "93&onestep=1&degree=0", "92&onestep=1&degree=-6", "0, without a minus"},
      {10, 4, "6&onestep=1&degree=10", "4&onestep=1&degree=10", "nearer to one axis: the other is left out"},
      {-0.1F, 0.2F, "90&onestep=1&degree=0.05", "91&onestep=1&degree=0.15", "is the text of a single"},
      {0, 0, "", "", "no way to go is no failure"},
  };
  for (const bool invert : {false, true}) {
    for (const auto& [pan, tilt, sent, inverted, fault] : rows) {
      Camera.emplace(Platform{.internet = &Net});
      Connect(invert);
      EXPECT_TRUE(Camera->MoveTo(pan, tilt)) << fault;
      EXPECT_EQ(Sent(), invert ? inverted : sent) << fault;
      EXPECT_EQ(Camera->Pan(), pan) << fault << ": the position knows no inversion";
      EXPECT_EQ(Camera->Tilt(), tilt) << fault;
    }
  }
}

TEST_F(FoscamTest, StepsGoFromThePositionAndOppositesCancel) {
  EXPECT_EQ(ErrorOf([&] { Camera->Connect(PropertyBag().Contents()); }), "17003 No device address specified");
  Connect();
  const std::pair<int, const char*> rows[] = {
      {DirectionUp, "0&onestep=1&degree=3"},
      {DirectionDownRight, "93&onestep=1&degree=0"},
      {15, ""},
      {DirectionLeft, "4&onestep=1&degree=3"},
      {13, "0&onestep=1&degree=3"},
      {16, ""},
  };
  for (const auto& [direction, sent] : rows) {
    EXPECT_TRUE(Camera->Move(static_cast<Directions>(direction), 3));
    EXPECT_EQ(Sent(), sent) << direction;
  }
  EXPECT_TRUE(Camera->MoveBoth(1, -4));
  Camera->SetPanTilt(9, 9);
  Net.Replies = {FakeReply{.Answers = false}, FakeReply{"", "HTTP/1.1 404 Not Found"}};
  EXPECT_FALSE(Camera->MoveTo(50, 0));
  EXPECT_EQ(Camera->Pan(), 1);
  EXPECT_EQ(Camera->Tilt(), -1);
  EXPECT_TRUE(Camera->MoveTo(50, 0)) << "a status is not looked at";
  EXPECT_EQ(Camera->Disconnect(), Variant(true));
  Sent();
  EXPECT_FALSE(Camera->MoveTo(1, 1));
  EXPECT_EQ(Sent(), "");
  EXPECT_TRUE(Camera->Move(DirectionRight, 2)) << "is not gated";
  Sent();
  Connect();
  EXPECT_EQ(Camera->Pan(), 52) << "connecting keeps the position";
}

TEST_F(FoscamTest, NothingIsSentForWhatIsNoNumber) {
  Connect();
  Camera->MoveTo(-3e38F, 5);
  Sent();
  const std::function<void()> calls[] = {
      [&] { Camera->MoveTo(3e38F, 5); },
      [&] { Camera->MoveTo(0, std::nanf("")); },
      [&] { Camera->MoveBoth(-3e38F, 0); },
      [&] { Camera->Move(DirectionUp, INFINITY); },
      [&] { Camera->MoveTo(3e37F, 3e38F); },
      [&] { Camera->ContinuousMove(std::nanf(""), 1); },
      [&] { Camera->ContinuousMove(0, -INFINITY); },
      [&] { Camera->PresetSave(1073741809); },
      [&] { Camera->PresetGoto(1073741809); },
  };
  for (const auto& call : calls) EXPECT_EQ(NumberOf(call), 6) << &call - calls;
  EXPECT_EQ(Sent(), "");
  EXPECT_EQ(Camera->Pan(), -3e38F);
}

TEST_F(FoscamTest, PresetsAreNumberedCommands) {
  Connect();
  EXPECT_EQ(Camera->PresetCount(), 16);
  EXPECT_TRUE(Camera->PresetSave(3) && Camera->PresetGoto(3) && Camera->PresetSave(0) &&
              Camera->PresetGoto(15) && Camera->PresetGoto(1073741808));
  Net.Replies = {FakeReply{.Answers = false}};
  EXPECT_FALSE(Camera->PresetGoto(0));
  EXPECT_EQ(Sent(), "36\n37\n30\n61\n2147483647\n31");
}

TEST_F(FoscamTest, ContinuousMotionRepeatsOnlyStops) {
  Connect();
  Net.Replies = {FakeReply{.Answers = false}};
  Camera->ContinuousMove(5, 0);  // fails, and counts as sent
  Camera->ContinuousMove(5, 0);
  Camera->ContinuousMove(50, 20);  // no other direction
  for (const auto& [pan, tilt] : {std::pair{-1, 1}, {0, 9}, {1, 1}, {-1, 0}, {-1, -1}, {0, -1}, {1, -1}})
    Camera->ContinuousMove(static_cast<float>(pan), static_cast<float>(tilt));
  EXPECT_EQ(Sent(), "6\n90\n0\n91\n4\n92\n2\n93");
  Camera->Disconnect();
  Camera->ContinuousMove(1, -1);
  EXPECT_EQ(Sent(), "") << "the last direction outlives a connection";
  Camera->StopContinuous();
  Camera->StopContinuous();
  Camera->ContinuousMove(1, -1);
  Camera->ContinuousZoom(1);
  EXPECT_EQ(Sent(), "5\n5\n93");

  Connect(std::string("True"));
  Camera->ContinuousMove(1, -1);
  EXPECT_EQ(Sent(), "92");
}

TEST_F(FoscamTest, InvertPanIsReadByTheMovements) {
  Connect(std::string("upside down"));
  EXPECT_EQ(NumberOf([&] { Camera->MoveTo(1, 0); }), 13);
  EXPECT_EQ(NumberOf([&] { Camera->StopContinuous(); }), 13);
  EXPECT_EQ(Sent(), "");
  EXPECT_EQ(Camera->Capabilities(), 1441827);
  EXPECT_EQ(Camera->Count(), 1);
  const auto option = Camera->Item(0).value();
  EXPECT_EQ(option.Name() + ": " + option.Description(), "InvertPan: Invert the pan controls");
  EXPECT_TRUE(option.OType() == 11 && option.Values().empty() && option.Default() == Variant(false));
}

}  // namespace
}  // namespace ptzd
