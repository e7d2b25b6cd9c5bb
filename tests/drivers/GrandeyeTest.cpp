#include "drivers/Grandeye.h"
#include "support/DriverTest.h"

namespace ptzd::test {
namespace {

const std::string Query = "/getparam.cgi?vcamapan0&vcamatilt0&vcamazoom0";

class GrandeyeTest : public DriverTest<Grandeye> {
 protected:
  void Connect(const std::string& position, const Variant& port = 0) {
    Net.Replies = {FakeReply{position}};
    ASSERT_TRUE(Camera.Connect(CameraOptions({{"Port", port}})));
    Net.Replies.clear();
    Sent();
  }
};

TEST_F(GrandeyeTest, ConnectRaisesNothingForTheCamera) {
  const std::pair<FakeReply, const char*> rows[] = {
      {{.Answers = false}, "Request failed. Failed to connect to the HTTP server.|"},
      {{"vcamapan0=1e39"}, "Request complete. Reply: vcamapan0=1e39|Position not read. Overflow|"},
  };
  for (const auto& [reply, log] : rows) {
    Net.Replies = {reply};
    EXPECT_EQ(RequestLinesOf([&] { EXPECT_TRUE(Camera.Connect(CameraOptions())); }),
              "Requesting " + Query + "|" + log);
    EXPECT_TRUE(Camera.Connected());
  }
  Sent();
  EXPECT_FALSE(Camera.Connect(CameraOptions({}, "")));
  EXPECT_FALSE(Camera.Connected());
  for (const auto& [port, number] : {std::pair<Variant, int>{std::string("one"), 13}, {-2147483647 - 1, 6}}) {
    EXPECT_EQ(NumberOf([&, port = port] { Connect("", port); }), number);
    EXPECT_FALSE(Camera.Connected());
  }
  EXPECT_EQ(Sent(), "");
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
  for (const auto& [reply, pan, tilt, error, fault] : rows) {
    Connect("vcamapan0=-3\nvcamatilt0=49\n");
    Time.Advance(5000);
    Net.Replies = {FakeReply{reply}, FakeReply{.Answers = false}, FakeReply{.Answers = false}};
    EXPECT_EQ(NumberOf([&] { Camera.Pan(); }), error) << fault;
    EXPECT_EQ(Camera.Pan(), pan) << fault;
    EXPECT_EQ(Camera.Tilt(), tilt) << fault;
  }
}

TEST_F(GrandeyeTest, AMoveIsAsGoodAsAReading) {
  Connect("vcamatilt0=45");
  Time.Advance(4999);
  EXPECT_FALSE(Camera.MoveTo(1, 0));
  Time.Advance(4999);
  Camera.Pan();
  EXPECT_EQ(Sent(), "/com/ptz.cgi?pan=-1");
}

TEST_F(GrandeyeTest, MovesAreAbsoluteInWholeDegrees) {
  struct Row {
    std::function<bool(Grandeye&)> move;
    const char* sent;
    float pan, tilt;
    const char* fault;
  };
  const Row rows[] = {
      {[](auto& c) { return !c.MoveTo(-10.5F, -45.6F); }, "pan=10&tilt=0", -10, -45, "ties go to even"},
      {[](auto& c) { return !c.MoveTo(190, 0); }, "pan=-190&tilt=45", -170, 0, "sent before it is wrapped"},
      {[](auto& c) { return !c.MoveTo(-541, 0); }, "pan=541&tilt=45", -181, 0, "which is done once"},
      {[](auto& c) { return c.Move(DirectionLeft, 5); }, "pan=-16&tilt=42", 16, -3, "both axes to whole"},
      {[](auto& c) { return c.MoveBoth(-20.5F, 3.25F); }, "pan=0&tilt=45", 0, 0, "no minus before 0"},
      {[](auto& c) { return c.MoveBoth(0.9999999F, 0); }, "pan=-22&tilt=42", 22, -3,
       "adds in single precision"},
      {[](auto& c) { return c.Move(DirectionUp, 3) && c.MoveBoth(-0.4F, 0.4F); }, "pan=-20&tilt=45", 20, 0,
       "nothing where it is already"},
  };
  for (const auto& [move, sent, pan, tilt, fault] : rows) {
    Connect("vcamapan0=-20.5\nvcamatilt0=41.75\n");
    EXPECT_TRUE(move(Camera)) << fault;
    EXPECT_EQ(Sent(), "/com/ptz.cgi?" + std::string(sent)) << fault;
    EXPECT_EQ(Camera.Pan(), pan) << fault;
    EXPECT_EQ(Camera.Tilt(), tilt) << fault;
  }
}

TEST_F(GrandeyeTest, MovesThatFailKeepThePosition) {
  Connect("vcamatilt0=45");
  Net.Replies = {FakeReply{.Answers = false}, FakeReply{.Answers = false}};
  EXPECT_FALSE(Camera.MoveBoth(10, 10));
  EXPECT_TRUE(Camera.Zoom(ZoomOut)) << "answers True all the same";
  EXPECT_EQ(Sent(), "/com/ptz.cgi?pan=-10&tilt=55\n/com/ptz.cgi?rzoom=250");
  Net.Replies = {FakeReply{.Answers = false}};
  EXPECT_EQ(NumberOf([&] { Camera.MoveTo(std::nanf(""), 0); }), 6);
  EXPECT_EQ(Sent(), Query) << "the position is read first";
  EXPECT_EQ(NumberOf([&] { Camera.MoveTo(-2147483648.0F, 0); }), 6) << "turned around it does not fit";
  EXPECT_EQ(NumberOf([&] { Camera.Move(DirectionUp, 3e9F); }), 6) << "before it is clamped";
  EXPECT_EQ(Camera.Pan() + Camera.Tilt(), 0);
  Camera.Disconnect();
  Camera.SetPanTilt(9, 9);
  EXPECT_EQ(Camera.Pan(), 0);
  EXPECT_EQ(Sent(), "") << "nobody said that it is somewhere else";
}

}  // namespace
}  // namespace ptzd::test
