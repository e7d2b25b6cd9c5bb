#include "drivers/Toshiba2.h"
#include "support/DriverTest.h"

namespace ptzd::test {
namespace {

constexpr const char* At15And5Down = "20 OK\r\nPAN (4189)\r\nTILT (763)\r\nZoom (340)\r\n";

class Toshiba2Test : public DriverTest<Toshiba2> {
 protected:
  bool Connect(const FakeReply& reply) {
    Net.Replies = {reply};
    return Camera.Connect(CameraOptions());
  }
  std::string Position() {
    return std::to_string(std::lrint(Camera.Pan())) + "," + std::to_string(std::lrint(Camera.Tilt()));
  }
};

TEST_F(Toshiba2Test, ReadsItsPositionOnConnecting) {
  struct Row {
    std::string Lines;
    const char* Position;
    const char* Fault;
  };
  const Row rows[] = {
      {"\r\nPAN (4200)\r\nTILT (750)\r\nZoom (340)\r\n", "16,-4", "both axes, to the nearest degree"},
      {"\r\nTILT (0)\r\nPAN (0)", "-175,30", "the camera's 0, in either order"},
      {" all\r\nPAN (-551) degrees\r\n", "-200,1", "one axis; what follows is not looked at"},
      {"", "1,1", "no position"},
      {"\r\nPAN 4189\r\nTILT (763\r\nTILT 763)\r\n", "1,1", "numbers without both brackets"},
      {"\r\npan (4189)\r\nPANNED (4189)\r\n(4189) PAN\r\nPAN  (4189)\r\n", "1,1", "other lines"},
      {"\nPAN (4189)\n", "1,1", "other line ends"},
      {"\r\nTILT (763)\r\nPAN ()\r\n", "1,1", "nothing in the brackets: half a position is none"},
      {"\r\nTILT (763)\r\nPAN (4189x)\r\n", "1,1", "no number in the brackets"},
  };
  for (const auto& [lines, position, fault] : rows) {
    Camera.SetPanTilt(1, 1);
    EXPECT_TRUE(Connect({"20 OK" + lines})) << fault;
    EXPECT_EQ(Position(), position) << fault;
    EXPECT_EQ(Sent(), "/api/wbgetptzposition.cgi");
  }
  Camera.SetPanTilt(1, 1);
  EXPECT_EQ(NumberOf([&] { Connect({"20 OK\r\nTILT (763)\r\nPAN (99999999999)\r\n"}); }), 6);
  EXPECT_FALSE(Camera.Connected());
  EXPECT_EQ(Position(), "1,1");
}

TEST_F(Toshiba2Test, ConnectsToWhatAnswers20OK) {
  for (const char* refusal : {"", "20 O", "200 OK\r\n", "20 Ok", " 20 OK", "20  OK", "40 Bad Request"}) {
    EXPECT_TRUE(Connect({At15And5Down}));
    EXPECT_FALSE(Connect({refusal + std::string("\r\nPAN (0)\r\n")})) << refusal;
    EXPECT_FALSE(Camera.Connected()) << refusal;
    EXPECT_EQ(Position(), "15,-5") << refusal;
  }
  EXPECT_FALSE(Connect({.Answers = false}));
  Sent();
  EXPECT_FALSE(Camera.Connect(CameraOptions({}, "")));
  EXPECT_EQ(Sent(), "") << "nobody to ask";

  const std::string good = At15And5Down;
  for (const auto& reply : Garbled(good)) {
    Camera.SetPanTilt(15, -5);
    EXPECT_EQ(Connect({reply}), reply.starts_with("20 OK")) << reply;
    EXPECT_TRUE(reply.size() == good.size() || Position() == "15,-5") << reply << ": a cut line is none";
  }
}

TEST_F(Toshiba2Test, MovesThroughAPresetAndSaysFalse) {
  struct Row {
    std::function<bool(Toshiba2&)> Move;
    const char *Pan, *Tilt, *Position;
    const char* Fault;
  };
  const Row rows[] = {
      {[](auto& c) { return c.MoveTo(0.5F, -0.5F); }, "3858", "654", "0,0", "ties to even"},
      {[](auto& c) { return c.MoveTo(1.5F, 2.5F); }, "3902", "611", "2,2", "ties to even"},
      {[](auto& c) { return c.MoveTo(20, -10); }, "4299", "872", "20,-10", "where it is"},
      {[](auto& c) { return c.Move(DirectionDownRight, 2.5F); }, "4343", "916", "22,-12", "rounded targets"},
  };
  const std::string store = "/api/wbsetptpreset.cgi?type=PresetNumber-64&PresetName=Quorvane&PanPosition=";
  for (const bool obeys : {true, false})
    for (const auto& [move, pan, tilt, position, fault] : rows) {
      ASSERT_TRUE(Connect({At15And5Down}));
      Camera.SetPanTilt(20, -10);
      Sent();
      if (obeys)
        Net.Replies = {FakeReply{"20 OK\r\n"}, FakeReply{"20 OK\r\n"}};
      else
        Net.Replies = {FakeReply{.Answers = false}, FakeReply{"40 Bad Request\r\n"}};
      EXPECT_FALSE(move(Camera)) << fault;
      EXPECT_EQ(Sent(), store + pan + "&TiltPosition=" + tilt + "\n/api/wbpresetapi.cgi?cont_4=320") << fault;
      EXPECT_EQ(Position(), position) << fault << ", whatever the camera answered";
    }

  Camera.SetPanTilt(20, -10);
  EXPECT_EQ(NumberOf([&] { Camera.MoveTo(0, -1e9F); }), 6);
  EXPECT_EQ(Sent() + Position(), "20,-10") << "nothing is sent, nothing is stored";
  EXPECT_EQ(NumberOf([&] { Camera.SetPanTilt(1, 3e9F); }), 6);
  EXPECT_EQ(Position(), "20,-10");
}

TEST_F(Toshiba2Test, ZoomAndLogs) {
  ASSERT_TRUE(Connect({At15And5Down}));
  Net.Replies = {FakeReply{"20 OK\r\n"}, FakeReply{"200 OK"}, FakeReply{.Answers = false}};
  EXPECT_EQ(RequestLinesOf([this] {
              EXPECT_TRUE(Camera.Zoom(ZoomIn));
              EXPECT_FALSE(Camera.Zoom(ZoomOut)) << "another code";
              EXPECT_FALSE(Camera.Zoom(ZoomIn)) << "no answer";
              EXPECT_FALSE(Camera.Zoom(static_cast<Zooms>(0)));
            }),
            "Requesting /api/wbsetzoom.cgi?type=Set&Zoom=Tele|Request complete. Reply: 20 OK\r\n|"
            "Requesting /api/wbsetzoom.cgi?type=Set&Zoom=Wide|Request complete. Reply: 200 OK|"
            "Requesting /api/wbsetzoom.cgi?type=Set&Zoom=Tele|Request failed.|");
  Camera.Disconnect();
  Camera.SetPanTilt(2.5F, -3.5F);
  EXPECT_EQ(Position(), "2,-4") << "is taken also while disconnected";
}

}  // namespace
}  // namespace ptzd::test
