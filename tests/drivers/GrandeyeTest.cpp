#include "drivers/Grandeye.h"

#include <gtest/gtest.h>

#include <cmath>

#include "common/Logging.h"
#include "support/Errors.h"
#include "support/FakeClock.h"
#include "support/FakeInternet.h"

namespace ptzd {
namespace {

using test::FakeReply;
using test::NumberOf;

const std::string Query = "/getparam.cgi?vcamapan0&vcamatilt0&vcamazoom0";

class GrandeyeTest : public testing::Test {
 protected:
  void Connect(const std::string& position, const Variant& port = 0) {
    PropertyBag options;
    options.WriteProperty("Address", std::string("camera1"));
    options.WriteProperty("Port", port);
    Net.Replies = {FakeReply{position}};
    ASSERT_TRUE(Camera.Connect(options.Contents()));
    Net.Replies.clear();
    Sent();
  }
  std::string Sent() { return Net.TakeSent(); }

  test::FakeInternet Net;
  test::FakeClock Time;
  Grandeye Camera{{.internet = &Net, .clock = &Time}};
};

TEST_F(GrandeyeTest, ConnectRaisesNothingForTheCamera) {
  EXPECT_EQ(Camera.Capabilities(), 65543);
  EXPECT_FALSE(Camera.Connect(PropertyBag().Contents()));
  EXPECT_FALSE(Camera.Connected());
  EXPECT_EQ(Sent(), "");
  PropertyBag options;
  options.WriteProperty("Address", std::string("camera1"));
  std::string log;
  SetLogSink([&](std::string_view line) { (log += line) += '|'; });
  for (const auto& reply : {FakeReply{.Answers = false}, FakeReply{"Not found", "HTTP/1.1 404 Not Found"},
                            FakeReply{"vcamapan0=1e39"}, FakeReply{"vcamazoom0=1e999"}}) {
    Net.Replies = {reply};
    EXPECT_TRUE(Camera.Connect(options.Contents())) << reply.Body;
    EXPECT_TRUE(Camera.Connected());
    EXPECT_EQ(Sent(), Query);
    EXPECT_EQ(Camera.Disconnect(), Variant());
  }
  SetLogSink({});
  for (const char* text : {"Requesting /getparam.cgi?vcamapan0&vcamatilt0&vcamazoom0|",
                           "|Request failed. Failed to connect to the HTTP server.|",
                           "|Request complete. Reply: vcamapan0=1e39|Position not read. Overflow|"})
    EXPECT_NE(log.find(text), std::string::npos) << text;
  for (const auto& [port, number] : {std::pair<Variant, int>{std::string("one"), 13}, {-2147483647 - 1, 6}}) {
    options.WriteProperty("Port", port);
    EXPECT_EQ(NumberOf([&] { Camera.Connect(options.Contents()); }), number);
    EXPECT_FALSE(Camera.Connected());
  }
}

TEST_F(GrandeyeTest, CommandsCountViewsFromOneAndQueriesFromZero) {
  struct Row {
    Variant port;
    const char *query, *command;
  };
  for (const auto& [port, query, command] :
       {Row{0, Query.c_str(), "/com/ptz.cgi?rzoom=-250"},
        Row{1, Query.c_str(), "/com/ptz.cgi?camera=1&rzoom=-250"},
        Row{std::string("2"), "/getparam.cgi?vcamapan1&vcamatilt1&vcamazoom1",
            "/com/ptz.cgi?camera=2&rzoom=-250"}}) {
    Connect("vcamapan0=5\nvcamapan1=5\nvcamapan10=9\nvcamapan2=9\n", port);
    EXPECT_EQ(Camera.Pan(), -5) << "another view's rows are not its own";
    EXPECT_TRUE(Camera.Zoom(ZoomIn));
    Camera.Pan();
    EXPECT_EQ(Sent(), std::string(command) + "\n" + query);
  }
}

TEST_F(GrandeyeTest, PositionsAreToldInTheCamerasTerms) {
  struct Row {
    std::string reply;
    float pan, tilt;
    int error;
    const char* fault;
  };
  const Row rows[] = {
      {"vcamapan0=30\nvcamatilt0=0\nvcamazoom0=3447.5\n", -30, -45, 0, "pan runs left, level is 45"},
      {"vcamAPan0=-12.5\r\nVCAMATILT0= 67.25 up\r\n", 12.5F, 22.25F, 0, "case, line ends, what follows"},
      {"vcamatilt0=90\n", 3, 45, 0, "what is not told stays"},
      {"vcamapan0=east\nvcamatilt0\n", 0, -45, 0, "no number is 0"},
      {" vcamapan0=9\nvcamapan=9\n", 3, 4, 0, "not the names"},
      {"vcamapan0=170\nvcamapan0=181=9\n", -181, 4, 0, "the last counts; what is read is not wrapped"},
      {"vcamatilt0=3\nvcamapan0=1e39\n", 3, 4, 6, "nothing of a reply that does not fit"},
      {"vcamapan0=8\nvcamazoom0=-1e999\n", 3, 4, 6, "the zoom neither"},
  };
  const std::string good = "vcamapan0=-3\nvcamatilt0=49\n";
  for (const auto& [reply, pan, tilt, error, fault] : rows) {
    Connect(good);
    Time.Advance(5000);
    Net.Replies = {FakeReply{reply}, FakeReply{.Answers = false}, FakeReply{.Answers = false}};
    EXPECT_EQ(NumberOf([&] { Camera.Pan(); }), error) << fault;
    EXPECT_EQ(Camera.Pan(), pan) << fault;
    EXPECT_EQ(Camera.Tilt(), tilt) << fault;
  }
  for (std::size_t i = 0; i < good.size(); ++i) {
    auto flipped = good;
    flipped[i] = static_cast<char>(flipped[i] ^ 0x80);
    for (const auto& reply : {good.substr(0, i), flipped}) {
      Connect(good);
      Time.Advance(5000);
      Net.Replies = {FakeReply{reply}};
      EXPECT_TRUE(Camera.Pan() == 3 || Camera.Pan() == 0) << reply;
      EXPECT_TRUE(Camera.Tilt() == 4 || Camera.Tilt() == -41 || Camera.Tilt() == -45) << reply;
    }
  }
}

TEST_F(GrandeyeTest, PositionsAreReadAtMostEveryFiveSeconds) {
  struct Row {
    std::int64_t start;
    std::int64_t later;
    bool asks;
  };
  const std::int64_t beforeTheWrap = 0x7FFFFFFF - 999;
  for (const auto& [start, later, asks] : {Row{100000, 4999, false}, Row{100000, 5000, true},
                                           Row{beforeTheWrap, 4999, false}, Row{beforeTheWrap, 5000, true}}) {
    Time = test::FakeClock(start);
    Connect("vcamatilt0=45");
    Time.Advance(later);
    Camera.Pan();
    Camera.Tilt();
    EXPECT_EQ(Sent(), asks ? Query : "") << start << " " << later;
  }
  Connect("vcamatilt0=45");
  Time.Advance(4999);
  Camera.MoveTo(1, 0);
  Time.Advance(4999);
  Camera.Pan();
  EXPECT_EQ(Sent(), "/com/ptz.cgi?pan=-1") << "a move is as good as a reading";

  const std::function<void()> events[] = {[&] { Camera.SetPanTilt(9, 9); }, [&] { Camera.Zoom(ZoomIn); },
                                          [&] { Camera.Zoom(ZoomOut); },
                                          [&] { Camera.Zoom(static_cast<Zooms>(3)); }};
  for (const auto& event : events) {
    event();
    Sent();
    Net.Replies = {FakeReply{.Answers = false}};
    EXPECT_EQ(Camera.Pan(), 1) << "a failed reading keeps the position";
    Camera.Pan();
    EXPECT_EQ(Sent(), &event == &events[3] ? "" : Query) << "and is not tried again, stale no longer";
  }
  Time.Advance(5000);
  Net.Replies = {FakeReply{.Answers = false}, FakeReply{.Answers = false}};
  Camera.Pan();
  Camera.Pan();
  EXPECT_EQ(Sent(), Query + "\n" + Query) << "nor does it make an old position younger";
}

TEST_F(GrandeyeTest, MovesAreAbsoluteInWholeDegrees) {
  struct Row {
    std::function<void(Grandeye&)> move;
    const char* sent;
    float pan, tilt;
    const char* fault;
  };
  const Row rows[] = {
      {[](auto& c) { EXPECT_FALSE(c.MoveTo(10, 60)); }, "pan=-10&tilt=90", 10, 45, "tilt ends at 45"},
      {[](auto& c) { EXPECT_FALSE(c.MoveTo(-10.5F, -45.6F)); }, "pan=10&tilt=0", -10, -45, "ties go to even"},
      {[](auto& c) { EXPECT_FALSE(c.MoveTo(190, 0)); }, "pan=-190&tilt=45", -170, 0,
       "sent before it is wrapped"},
      {[](auto& c) { EXPECT_FALSE(c.MoveTo(-541, 0)); }, "pan=541&tilt=45", -181, 0, "which is done once"},
      {[](auto& c) { EXPECT_FALSE(c.MoveTo(-180, 0)); }, "pan=180&tilt=45", -180, 0, "an end is no turn"},
      {[](auto& c) { EXPECT_TRUE(c.Move(DirectionLeft, 5)); }, "pan=-16&tilt=42", 16, -3,
       "both axes to whole"},
      {[](auto& c) { EXPECT_TRUE(c.Move(DirectionUpRight, 1)); }, "pan=-22&tilt=43", 22, -2, "a diagonal"},
      {[](auto& c) { EXPECT_TRUE(c.Move(static_cast<Directions>(15), 10)); }, "pan=-10&tilt=52", 10, 7,
       "left before right and up before down"},
      {[](auto& c) { EXPECT_TRUE(c.MoveBoth(-20.5F, 3.25F)); }, "pan=0&tilt=45", 0, 0, "no minus before 0"},
      {[](auto& c) { EXPECT_TRUE(c.MoveBoth(0.49999999F, 0)); }, "pan=-21&tilt=42", 21, -3,
       "adds in single precision"},
      {[](auto& c) {
         EXPECT_TRUE(c.Move(DirectionUp, 3));
         EXPECT_TRUE(c.MoveBoth(-0.4F, 0.4F));
       },
       "pan=-20&tilt=45", 20, 0, "nothing where it is already"},
  };
  for (const auto& [move, sent, pan, tilt, fault] : rows) {
    Connect("vcamapan0=-20.5\nvcamatilt0=41.75\n");
    move(Camera);
    EXPECT_EQ(Sent(), "/com/ptz.cgi?" + std::string(sent)) << fault;
    EXPECT_EQ(Camera.Pan(), pan) << fault;
    EXPECT_EQ(Camera.Tilt(), tilt) << fault;
  }
}

TEST_F(GrandeyeTest, MovesThatFailKeepThePosition) {
  Connect("vcamatilt0=45");
  Net.Replies = {FakeReply{.Answers = false}, FakeReply{.Answers = false}};
  EXPECT_FALSE(Camera.MoveBoth(10, 10));
  for (const float angle : {std::nanf(""), INFINITY, -2147483648.0F, 3e38F}) {
    EXPECT_EQ(NumberOf([&] { Camera.MoveBoth(angle, 0); }), 6) << angle;
    EXPECT_EQ(NumberOf([&] { Camera.MoveTo(angle, 0); }), 6) << angle;
  }
  EXPECT_EQ(NumberOf([&] { Camera.Move(DirectionUp, 3e9F); }), 6) << "before it is clamped";
  EXPECT_TRUE(Camera.Zoom(ZoomOut)) << "answers True all the same";
  EXPECT_TRUE(Camera.Zoom(static_cast<Zooms>(0)));
  EXPECT_EQ(Sent(), "/com/ptz.cgi?pan=-10&tilt=55\n/com/ptz.cgi?rzoom=250");
  Net.Replies = {FakeReply{.Answers = false}};
  EXPECT_EQ(Camera.Pan() + Camera.Tilt(), 0);
  Camera.Disconnect();
  Sent();
  Camera.SetPanTilt(9, 9);
  EXPECT_FALSE(Camera.Move(DirectionUp, 5) || Camera.MoveBoth(5, 5) || Camera.MoveTo(5, 5) ||
               Camera.Zoom(ZoomIn) || Camera.PresetCount() != 0 || Camera.Pan() != 0);
  EXPECT_EQ(Sent(), "");
}

}  // namespace
}  // namespace ptzd
