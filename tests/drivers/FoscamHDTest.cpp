#include "drivers/FoscamHD.h"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>

#include "common/Logging.h"
#include "support/Errors.h"
#include "support/FakeClock.h"
#include "support/FakeInternet.h"

namespace ptzd {
namespace {

using test::ErrorOf;
using test::FakeReply;
using test::NumberOf;

class FoscamHDTest : public testing::Test {
 protected:
  void Connect(const Variant& moveInterval = 50, const std::string& address = "camera1") {
    PropertyBag options;
    options.WriteProperty("Address", address);
    options.WriteProperty("MoveInterval", moveInterval);
    ASSERT_TRUE(Camera->Connect(options.Contents()));
    EXPECT_EQ(Sent(), "") << "nothing is asked";
  }
  /// The commands since the last call.
  std::string Sent() {
    const std::string path = "/cgi-bin/CGIProxy.fcgi?cmd=";
    auto sent = Net.TakeSent();
    for (std::size_t at = 0; (at = sent.find(path, at)) != std::string::npos;) sent.erase(at, path.size());
    return sent;
  }
  /// Milliseconds that a move takes, which answers False.
  std::int64_t TimeToMove(float pan, float tilt) {
    const auto begin = Time.Now();
    EXPECT_FALSE(Camera->MoveTo(pan, tilt));
    return std::chrono::duration_cast<std::chrono::milliseconds>(Time.Now() - begin).count();
  }
  void Renew() { Camera.emplace(Platform{.internet = &Net, .clock = &Time}); }

  test::FakeInternet Net;
  test::FakeClock Time;
  std::optional<FoscamHD> Camera{std::in_place, Platform{.internet = &Net, .clock = &Time}};
};

TEST_F(FoscamHDTest, ConnectReadsItsOptions) {
  EXPECT_EQ(ErrorOf([&] { Camera->Connect(PropertyBag().Contents()); }), "17003 No address specified");
  for (const auto& [interval, number] : {std::pair<Variant, int>{70000, 6}, {std::string("slow"), 13}}) {
    PropertyBag options;
    options.WriteProperty("Address", std::string("camera1"));
    options.WriteProperty("MoveInterval", interval);
    EXPECT_EQ(NumberOf([&] { Camera->Connect(options.Contents()); }), number);
    EXPECT_FALSE(Camera->Connected());
  }
  EXPECT_EQ(Camera->Capabilities(), 2490467);
  EXPECT_EQ(Camera->PresetCount(), 16);
  EXPECT_EQ(Camera->Count(), 1);
  const auto option = Camera->Item(0).value();
  EXPECT_EQ(option.Name() + ": " + option.Description(), "MoveInterval: Move interval");
  EXPECT_TRUE(option.OType() == 2 && option.Values().empty() && option.Default() == Variant(50));
}

TEST_F(FoscamHDTest, CredentialsOfTheAddressGoIntoEveryQuery) {
  struct Row {
    const char *address, *credentials, *logged;
  };
  const Row rows[] = {
      {"camera1", "", "camera1"},
      {"us:pa@camera1:88", "&usr=us&pwd=pa", "***@camera1:88"},
      {"us@camera1", "&usr=us&pwd=", "***@camera1"},
      {":pa@camera1", "&usr=&pwd=pa", "***@camera1"},
      {"us%40hq:pa%3Ab%2540%25%26@camera1", "&usr=us%40hq&pwd=pa%3Ab%2540%25%26", "***@camera1"},
      {"us:pa%E9%20+@camera1", "&usr=us&pwd=pa%E9+%2B", "***@camera1"},
  };
  for (const auto& [address, credentials, logged] : rows) {
    Connect(50, address);
    std::string log;
    SetLogSink([&](std::string_view line) { (log += line) += '|'; });
    Net.Replies = {FakeReply{"<CGI_Result/>"}};
    EXPECT_TRUE(Camera->Home() && Camera->PresetGoto(6));
    SetLogSink({});
    const std::string sent = credentials;
    EXPECT_EQ(Sent(), "ptzReset" + sent + "\nptzGotoPresetPoint&name=Quorvane%20preset%207" + sent);
    EXPECT_TRUE(log.starts_with("Sending: http://" + std::string(logged) + "/cgi-bin/CGIProxy.fcgi?cmd=" +
                                "ptzReset" + (sent.empty() ? "|" : "&usr=***&pwd=***|")))
        << log;
    EXPECT_NE(log.find("|Received: <CGI_Result/>|"), std::string::npos);
    for (const char* secret : {"us:", "us@", "us%", "=us", ":pa", "=pa"})
      EXPECT_EQ(log.find(secret), std::string::npos) << secret << " in " << log;
  }
  Connect(50, "us:pa@camera1:99999");
  EXPECT_FALSE(Camera->Home());
}

TEST_F(FoscamHDTest, MovesRunForATimeAndAnswerFalse) {
  struct Row {
    Variant interval;
    float pan, tilt;
    const char* sent;
    std::int64_t wait;
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
    EXPECT_EQ(TimeToMove(pan, tilt), wait) << sent;
    EXPECT_EQ(Sent(), "setPTZSpeed&speed=1\n" + std::string(sent) + "\nptzStopRun");
    EXPECT_EQ(Camera->Pan(), pan);
    EXPECT_EQ(Camera->Tilt(), tilt);
    Connect(interval);
    Camera->MoveTo(pan, tilt);
    EXPECT_EQ(Sent(), "setPTZSpeed&speed=1") << "anew with each connection, also with no way to go";
  }
}

TEST_F(FoscamHDTest, WhatFailsOnTheWay) {
  struct Row {
    const char* refused;
    const char* sent;
    std::int64_t wait;
    float pan;
    const char* next;
  };
  const char* all = "setPTZSpeed&speed=1\nptzMoveRight\nptzStopRun";
  const Row rows[] = {
      {"setPTZSpeed", all, 100, 10, "setPTZSpeed&speed=1\nptzMoveUp\nptzStopRun"},
      {"ptzMoveRight", "setPTZSpeed&speed=1\nptzMoveRight", 0, 0, "ptzMoveUp\nptzStopRun"},
      {"ptzStopRun", all, 100, 10, "ptzMoveUp\nptzStopRun"},
      {"nothing", all, 100, 10, "ptzMoveUp\nptzStopRun"},
  };
  for (const auto& [refused, sent, wait, pan, next] : rows) {
    Renew();
    Connect();
    Net.Answer = [word = refused](const test::SentRequest& request) {
      return FakeReply{.StatusLine = "HTTP/1.1 500 Broken",
                       .Answers = request.Object.find(word) == std::string::npos};
    };
    EXPECT_EQ(TimeToMove(10, 0), wait) << refused;
    EXPECT_EQ(Sent(), sent) << refused;
    EXPECT_EQ(Camera->Pan(), pan) << refused;
    EXPECT_FALSE(Camera->Move(DirectionUp, 1));
    EXPECT_EQ(Sent(), next) << refused;
  }
}

TEST_F(FoscamHDTest, GatesAndWhatIsNoNumber) {
  Connect();
  for (const float angle : {std::nanf(""), INFINITY, 3e8F})
    EXPECT_EQ(NumberOf([&] { Camera->MoveTo(angle, 0); }), 6) << angle;
  EXPECT_EQ(NumberOf([&] { Camera->ContinuousMove(0, std::nanf("")); }), 6);
  EXPECT_EQ(NumberOf([&] { Camera->PresetSave(2147483647); }), 6);
  EXPECT_EQ(Camera->Pan(), 0);
  EXPECT_EQ(Camera->Disconnect(), Variant(true));
  EXPECT_FALSE(Camera->MoveTo(1, 1));
  EXPECT_EQ(Sent(), "");
  EXPECT_FALSE(Camera->MoveBoth(-2, 0));
  EXPECT_TRUE(Camera->PresetSave(0));
  EXPECT_EQ(Sent(),
            "setPTZSpeed&speed=1\nptzMoveLeft\nptzStopRun\nptzAddPresetPoint&name=Quorvane%20preset%201");
  Net.Replies = {FakeReply{.Answers = false}, FakeReply{"<CGI_Result><result>-2</result></CGI_Result>"}};
  EXPECT_FALSE(Camera->Home());
  EXPECT_TRUE(Camera->Home()) << "the result is not looked at";
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
    Camera->ContinuousMove(pan, tilt);
    EXPECT_EQ(Sent(), sent) << fault;
  }
  Net.Replies = {FakeReply{.Answers = false}, FakeReply{.Answers = false}};
  Camera->ContinuousMove(7, 0);
  Camera->ContinuousMove(7, 0);
  EXPECT_EQ(Sent(), "setPTZSpeed&speed=3\nptzMoveRight\nsetPTZSpeed&speed=3")
      << "a direction that failed counts as sent, a speed does not";
  Camera->Move(DirectionRight, 1);
  Camera->StopContinuous();
  EXPECT_EQ(Sent(), "setPTZSpeed&speed=1\nptzMoveRight\nptzStopRun\nsetPTZSpeed&speed=4\nptzStopRun");
}

}  // namespace
}  // namespace ptzd
