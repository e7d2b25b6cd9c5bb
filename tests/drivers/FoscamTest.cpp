// Both generations of Foscam cameras; what they share is tested on the older one.

#include "common/Numbers.h"
#include "drivers/Foscam.h"
#include "drivers/FoscamHD.h"
#include "support/DriverTest.h"

namespace ptzd::test {
namespace {

template <class Driver>
class FoscamFixture : public DriverTest<Driver> {
 protected:
  void Connect(const char* option, const Variant& value, const std::string& address = "camera1") {
    ASSERT_TRUE(this->Camera.Connect(CameraOptions({{option, value}}, address)));
    EXPECT_EQ(Sent(), "") << "nothing is asked";
  }
  /// The commands since the last call.
  std::string Sent() {
    auto sent = this->Net.TakeSent();
    for (const std::string path : {"/decoder_control.cgi?command=", "/cgi-bin/CGIProxy.fcgi?cmd="})
      for (std::size_t at = 0; (at = sent.find(path, at)) != std::string::npos;) sent.erase(at, path.size());
    return sent;
  }
};

class FoscamTest : public FoscamFixture<Foscam> {
 protected:
  void Connect(const Variant& invertPan = false) { FoscamFixture::Connect("InvertPan", invertPan); }
};

class FoscamHDTest : public FoscamFixture<FoscamHD> {
 protected:
  void Connect(const Variant& moveInterval = 50, const std::string& address = "camera1") {
    FoscamFixture::Connect("MoveInterval", moveInterval, address);
  }
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
      Renew();
      Connect(invert);
      EXPECT_TRUE(Camera.MoveTo(pan, tilt)) << fault;
      EXPECT_EQ(Sent(), invert ? inverted : sent) << fault;
      EXPECT_TRUE(Camera.Pan() == pan && Camera.Tilt() == tilt) << "the position knows no inversion";
    }
  }
}

TEST_F(FoscamTest, StepsGoFromThePositionAndOppositesCancel) {
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
    EXPECT_TRUE(Camera.Move(static_cast<Directions>(direction), 3));
    EXPECT_EQ(Sent(), sent) << direction;
  }
  EXPECT_TRUE(Camera.MoveBoth(1, -4));
  Camera.SetPanTilt(9, 9);
  Net.Replies = {FakeReply{.Answers = false}, FakeReply{"", "HTTP/1.1 404 Not Found"}};
  EXPECT_FALSE(Camera.MoveTo(50, 0));
  EXPECT_TRUE(Camera.Pan() == 1 && Camera.Tilt() == -1);
  EXPECT_TRUE(Camera.MoveTo(50, 0)) << "a status is not looked at";
  Sent();
  Connect();
  EXPECT_EQ(Camera.Pan(), 50) << "connecting keeps the position";
}

TEST_F(FoscamTest, NothingIsSentForWhatIsNoNumber) {
  Connect();
  Camera.MoveTo(-3e38F, 5);
  Sent();
  const std::function<void()> calls[] = {
      [&] { Camera.MoveTo(3e38F, 5); },       [&] { Camera.MoveBoth(-3e38F, 0); },
      [&] { Camera.MoveTo(3e37F, 3e38F); },   [&] { Camera.ContinuousMove(std::nanf(""), 1); },
      [&] { Camera.PresetSave(1073741809); }, [&] { Camera.PresetGoto(1073741809); },
  };
  for (const auto& call : calls) EXPECT_EQ(NumberOf(call), 6) << &call - calls;
  EXPECT_EQ(Sent(), "");
  EXPECT_EQ(Camera.Pan(), -3e38F);
  EXPECT_TRUE(Camera.PresetSave(3) && Camera.PresetGoto(3) && Camera.PresetGoto(1073741808));
  EXPECT_EQ(Sent(), "36\n37\n2147483647");
}

TEST_F(FoscamTest, ContinuousMotionRepeatsOnlyStops) {
  Connect();
  Net.Replies = {FakeReply{.Answers = false}};
  Camera.ContinuousMove(5, 0);  // fails, and counts as sent
  Camera.ContinuousMove(5, 0);
  Camera.ContinuousMove(50, 20);  // no other direction
  Camera.ContinuousMove(-1, 1);
  EXPECT_EQ(Sent(), "6\n90");
  Camera.StopContinuous();
  Camera.StopContinuous();
  Camera.ContinuousMove(-1, 1);
  EXPECT_EQ(Sent(), "5\n5\n90");
  Connect(std::string("True"));
  Camera.ContinuousMove(-1, 1);
  EXPECT_EQ(Sent(), "91");
}

TEST_F(FoscamHDTest, ConnectReadsItsOptions) {
  EXPECT_EQ(NumberOf([&] { Connect(70000); }), 6);
  EXPECT_FALSE(Camera.Connected());
}

TEST_F(FoscamHDTest, NothingIsSentForWhatDoesNotFit) {
  Connect();
  EXPECT_EQ(NumberOf([&] { Camera.MoveTo(3e8F, 0); }), 6) << "for so long";
  EXPECT_EQ(NumberOf([&] { Camera.ContinuousMove(0, std::nanf("")); }), 6);
  EXPECT_EQ(NumberOf([&] { Camera.PresetSave(2147483647); }), 6);
  EXPECT_TRUE(Camera.PresetSave(0));
  EXPECT_EQ(Sent(), "ptzAddPresetPoint&name=Quorvane%20preset%201");
  EXPECT_EQ(Camera.Pan(), 0);
}

TEST_F(FoscamHDTest, CredentialsOfTheAddressGoIntoEveryQuery) {
  struct Row {
    const char *address, *credentials, *logged;
  };
  const Row rows[] = {
      {"camera1", "", "camera1/cgi-bin/CGIProxy.fcgi?cmd=ptzReset|"},
      {"u5er:s3cret@camera1:88", "&usr=u5er&pwd=s3cret",
       "***@camera1:88/cgi-bin/CGIProxy.fcgi?cmd=ptzReset&usr=***&pwd=***|"},
      {"u5er@camera1", "&usr=u5er&pwd=", "***@camera1/"},
      {":s3cret@camera1", "&usr=&pwd=s3cret", "***@camera1/"},
      {"u5er%40hq:%3As3cret%2540%26%E9%20+@camera1", "&usr=u5er%40hq&pwd=%3As3cret%2540%26%E9+%2B",
       "***@camera1/"},
  };
  for (const auto& [address, credentials, logged] : rows) {
    Connect(50, address);
    Net.Replies = {FakeReply{"<CGI_Result/>"}};
    const auto log = LogOf([&] { EXPECT_TRUE(Camera.Home() && Camera.PresetGoto(6)); });
    const std::string sent = credentials;
    EXPECT_EQ(Sent(), "ptzReset" + sent + "\nptzGotoPresetPoint&name=Quorvane%20preset%207" + sent);
    EXPECT_TRUE(log.starts_with("Sending: http://" + std::string(logged))) << log;
    EXPECT_NE(log.find("|Received: <CGI_Result/>|"), std::string::npos);
    for (const char* secret : {"u5er", "s3cret"}) EXPECT_EQ(log.find(secret), std::string::npos) << log;
  }
}

TEST_F(FoscamHDTest, MovesRunForATimeAndAnswerFalse) {
  struct Row {
    Variant interval;
    float pan, tilt;
    const char* sent;
    std::int64_t wait;  // milliseconds
  };
  const Row rows[] = {
      {50, 0, 30, "ptzMoveUp", 300},
      {50, 0, -0.25F, "ptzMoveDown", 2},  // ties go to even
      {50, -7, 1, "ptzMoveLeft", 70},
      {50, 0.75F, 0, "ptzMoveRight", 8},
      {50, -9, 6, "ptzMoveTopLeft", 100},
      {50, 9, 6, "ptzMoveTopRight", 100},
      {std::string("100"), -9, -6, "ptzMoveBottomLeft", 200},
      {3, 1, -1, "ptzMoveBottomRight", 1},
      {-50, 0, 5, "ptzMoveUp", 0},
  };
  for (const auto& [interval, pan, tilt, sent, wait] : rows) {
    Renew();
    Connect(interval);
    const auto begin = Time.Now();
    EXPECT_FALSE(Camera.MoveTo(pan, tilt));
    EXPECT_EQ(Time.Now() - begin, std::chrono::milliseconds(wait)) << sent;
    EXPECT_EQ(Sent(), "setPTZSpeed&speed=1\n" + std::string(sent) + "\nptzStopRun");
    EXPECT_TRUE(Camera.Pan() == pan && Camera.Tilt() == tilt) << sent;
    Connect(interval);
    Camera.MoveTo(pan, tilt);
    EXPECT_EQ(Sent(), "setPTZSpeed&speed=1") << "anew with each connection, also with no way to go";
  }
}

TEST_F(FoscamHDTest, WhatFailsOnTheWay) {
  struct Row {
    const char *refused, *sent;
    float pan;
    const char* next;
  };
  const char* all = "setPTZSpeed&speed=1\nptzMoveRight\nptzStopRun";
  const Row rows[] = {
      {"setPTZSpeed", all, 10, "setPTZSpeed&speed=1\nptzMoveUp\nptzStopRun"},
      {"ptzMoveRight", "setPTZSpeed&speed=1\nptzMoveRight", 0, "ptzMoveUp\nptzStopRun"},
      {"ptzStopRun", all, 10, "ptzMoveUp\nptzStopRun"},
  };
  for (const auto& [refused, sent, pan, next] : rows) {
    Renew();
    Connect();
    Net.Answer = [word = refused](const SentRequest& request) {
      return FakeReply{.StatusLine = "HTTP/1.1 500 Broken",
                       .Answers = request.Object.find(word) == std::string::npos};
    };
    EXPECT_FALSE(Camera.MoveTo(10, 0));
    EXPECT_EQ(Sent(), sent) << refused;
    EXPECT_EQ(Camera.Pan(), pan) << refused;
    EXPECT_FALSE(Camera.Move(DirectionUp, 1));
    EXPECT_EQ(Sent(), next) << refused;
  }
}

TEST_F(FoscamHDTest, ContinuousMotionSetsTheSpeedFirst) {
  struct Row {
    float pan, tilt;
    const char* sent;
    const char* fault;
  };
  const Row rows[] = {
      {4.99F, 0, "setPTZSpeed&speed=4\nptzMoveRight", "the slowest below 5"},
      {5, 0, "setPTZSpeed&speed=3", "the direction goes on"},
      {9.5F, 0, "", "neither changes"},
      {-10, 0, "setPTZSpeed&speed=2\nptzMoveLeft", "the other way"},
      {15, 10, "setPTZSpeed&speed=1\nptzMoveTopRight", "16.7 of a diagonal"},
      {0, 20, "setPTZSpeed&speed=0\nptzMoveUp", "the fastest from 20"},
      {0, 1e30F, "", "on"},
      {0, 0, "setPTZSpeed&speed=4\nptzStopRun", "a stop is slow too"},
      {0, 0, "ptzStopRun", "and always sent"},
      {0, -3, "ptzMoveDown", "after a stop"},
  };
  Connect();
  for (const auto& [pan, tilt, sent, fault] : rows) {
    Camera.ContinuousMove(pan, tilt);
    EXPECT_EQ(Sent(), sent) << fault;
  }
  Net.Replies = {FakeReply{.Answers = false}, FakeReply{.Answers = false}};
  Camera.ContinuousMove(7, 0);
  Camera.ContinuousMove(7, 0);
  EXPECT_EQ(Sent(), "setPTZSpeed&speed=3\nptzMoveRight\nsetPTZSpeed&speed=3")
      << "a direction that failed counts as sent, a speed does not";
  Camera.Move(DirectionRight, 1);
  Camera.StopContinuous();
  EXPECT_EQ(Sent(), "setPTZSpeed&speed=1\nptzMoveRight\nptzStopRun\nsetPTZSpeed&speed=4\nptzStopRun");
}

}  // namespace
}  // namespace ptzd::test
