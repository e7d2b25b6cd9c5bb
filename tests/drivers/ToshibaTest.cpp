#include "drivers/Toshiba.h"
#include "support/DriverTest.h"

namespace ptzd::test {
namespace {

constexpr const char* AtPoint11And6 = "PTPOINT 2051\r\n";  // 8 and 3 from 0 on

class ToshibaTest : public DriverTest<Toshiba> {
 protected:
  bool Connect(const FakeReply& reply) {
    Net.Replies = {reply};
    return Camera.Connect(CameraOptions());
  }
};

TEST_F(ToshibaTest, ReadsItsPointOnConnecting) {
  struct Row {
    FakeReply Reply;
    double Pan, Tilt;
    const char* Fault;
  };
  const double pan11 = -0.0168, tilt6 = -11.1987;
  const Row rows[] = {
      {{AtPoint11And6}, pan11, tilt6, "the offset that commands have"},
      {{"PTPOINT 0"}, -56, 5, "the first point"},
      {{"PTPOINT 4106 0\r\n"}, 55.9664, -48.9957, "the last point, with a third word"},
      {{"PTPOINT 133123\r\nOK\r\n"}, pan11, tilt6, "a number of more than 16 bits, and a second line"},
      {{"PTPOINT 65535"}, 1728.4646, -1371.8898, "points beyond the grid are not clamped"},
      {{"PTPOINT 20"}, -56, -102.9914, "a cut number is the one that is there"},
      {{AtPoint11And6, "HTTP/1.1 500 Error"}, pan11, tilt6, "any status"},
  };
  for (const auto& [reply, pan, tilt, fault] : rows) {
    EXPECT_TRUE(Connect(reply)) << fault;
    EXPECT_EQ(Sent(), "/getcurrentptpointapi.htm");
    EXPECT_NEAR(Camera.Pan(), pan, 0.0001) << fault;
    EXPECT_NEAR(Camera.Tilt(), tilt, 0.0001) << fault;
  }
  for (const char* body : {"", "2051", "PTPOINT", "PTPOINT ", "PTPOINT  2051", "PTPOINT 2O51",
                           "PTPOINT 2051;", "PTPOINT 99999999999", "PTPOINT 1E999", "unanswered"}) {
    ASSERT_TRUE(Connect({AtPoint11And6}));
    EXPECT_TRUE(Connect({.Body = body, .Answers = body != std::string("unanswered")})) << body;
    EXPECT_NEAR(Camera.Pan(), pan11, 0.0001) << body;
    EXPECT_NEAR(Camera.Tilt(), tilt6, 0.0001) << body;
  }
  for (const auto& reply : Garbled(AtPoint11And6)) EXPECT_TRUE(Connect({reply})) << reply;

  EXPECT_EQ(RequestLinesOf([this] { Connect({"PTPOINT 0"}), Connect({.Answers = false}); }),
            "Requesting /getcurrentptpointapi.htm|Request complete. Reply: PTPOINT 0|"
            "Requesting /getcurrentptpointapi.htm|Request failed.|");
  Sent();
  EXPECT_FALSE(Camera.Connect(CameraOptions({}, ""))) << "without an address";
  EXPECT_FALSE(Camera.Connected());
  EXPECT_EQ(Sent(), "");
}

TEST_F(ToshibaTest, MovesGoToPointsOfTheGrid) {
  struct Row {
    std::function<bool(Toshiba&)> Move;
    const char* Point;
    const char* Fault;
  };
  const Row rows[] = {
      {[](auto& c) { return c.MoveTo(200, -200); }, "4877", "right and lower edge"},
      {[](auto& c) { return c.MoveTo(0, -13.5F); }, "", "nearest to where it is"},
      {[](auto& c) { return c.Move(DirectionLeft, 3); }, "", "less than half a point"},
  };
  for (const auto& [move, point, fault] : rows) {
    ASSERT_TRUE(Connect({AtPoint11And6}));
    Net.Replies = {FakeReply{.Answers = false}};
    EXPECT_EQ(move(Camera), !*point) << fault << ", unanswered";
    EXPECT_NEAR(Camera.Tilt(), -11.1987, 0.0001) << fault;
    Sent();
    Net.Replies = {FakeReply{"refused", "HTTP/1.1 404 Not Found"}};
    EXPECT_TRUE(move(Camera)) << fault << ": any reply will do";
    EXPECT_EQ(Sent(), *point ? "/directmoveapi.cgi?cont_3=" + std::string(point) + "&ok=dummy.htm" : "")
        << fault;
  }
}

TEST_F(ToshibaTest, SixteenBitsOfPointsAreTheMost) {
  ASSERT_TRUE(Connect({AtPoint11And6}));
  Sent();
  EXPECT_EQ(NumberOf([&] { Camera.MoveTo(-3e5F, 0); }), 6);
  EXPECT_EQ(NumberOf([&] { Camera.SetPanTilt(9, -3e5F); }), 6);
  EXPECT_EQ(Sent(), "");
  EXPECT_NEAR(Camera.Pan(), -0.0168, 0.0001) << "nothing is stored";

  Camera.SetPanTilt(100, 100);
  EXPECT_NEAR(Camera.Pan(), 55.9664, 0.0001) << "at the edge";
  EXPECT_EQ(Camera.Tilt(), 5);
  Camera.Disconnect();
  Camera.SetPanTilt(0, -49);
  EXPECT_EQ(Camera.Tilt(), 5) << "not while disconnected";
}

}  // namespace
}  // namespace ptzd::test
