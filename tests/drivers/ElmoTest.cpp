#include "drivers/Elmo.h"
#include "support/DriverTest.h"

namespace ptzd::test {
namespace {

class ElmoTest : public DriverTest<Elmo> {
 protected:
  ElmoTest() {
    Net.Answer = [this](const SentRequest& request) {
      return request.Object == "/cgi-bin/ctrl" ? Greeting : Reply;
    };
  }
  static Bytes Options(const Variant& reset = false) { return CameraOptions({{"Reset", reset}}); }
  void Connect() {
    ASSERT_TRUE(Camera.Connect(Options()));
    Sent();
  }

  FakeReply Greeting{"NG"}, Reply{"OK"};
};

TEST_F(ElmoTest, ConnectsToWhatRefusesNoCommand) {
  EXPECT_FALSE(Camera.Connect(CameraOptions({}, "")));
  EXPECT_EQ(Sent(), "") << "nobody to ask";
  auto strangers = Garbled("NG");
  strangers.insert(strangers.end(), {"OK", "NG\r\n", " NG", "unanswered"});
  for (const auto& stranger : strangers) {
    Connect();
    Greeting = {.Body = stranger, .Answers = stranger != "unanswered"};
    EXPECT_FALSE(Camera.Connect(Options())) << stranger << ": the last camera's reply counts no more";
    EXPECT_FALSE(Camera.Connected()) << stranger;
    Greeting = {"NG"};
  }
}

TEST_F(ElmoTest, ResetsWhereToldTo) {
  EXPECT_EQ(NumberOf([&] { return Camera.Connect(Options(std::string("perhaps"))); }), 13);
  EXPECT_FALSE(Camera.Connected());
  Sent();
  for (const char* answer : {"NG", "OK", "OK"}) {
    Reply = {answer};
    EXPECT_TRUE(Camera.Connect(Options(true))) << "also where the reset is refused";
  }
  EXPECT_EQ(Sent(),
            "/cgi-bin/ctrl\n/cgi-bin/ctrl?pana=8714&tlta=1722\n"
            "/cgi-bin/ctrl\n/cgi-bin/ctrl?pana=8714&tlta=1722\n/cgi-bin/ctrl")
      << "it is there already the third time";
}

TEST_F(ElmoTest, MovesSendWhatChanges) {
  struct Row {
    std::function<bool(Elmo&)> Move;
    const char* Sent;
    const char* Fault;
  };
  const Row rows[] = {
      {[](auto& c) { return c.MoveTo(0, -3); }, "tlta=1901", "tilt alone"},
      {[](auto& c) { return c.MoveTo(0, 0); }, "", "there already"},
      {[](auto& c) { return c.MoveTo(200, -100); }, "pana=17424&tlta=6912", "right and lower end"},
      {[](auto& c) { return c.MoveBoth(3.125F, 0.078125F); }, "pana=8894&tlta=1724", "ties to even, up"},
      {[](auto& c) { return c.MoveBoth(9.375F, 0.234375F); }, "pana=9256&tlta=1714", "ties to even, down"},
      {[](auto& c) { return c.MoveBoth(0.008F, 0); }, "", "less than a motor step"},
  };
  Connect();
  for (const auto& [move, sent, fault] : rows) {
    Camera.SetPanTilt(0, 0);
    EXPECT_TRUE(move(Camera)) << fault;
    EXPECT_EQ(Sent(), *sent ? std::string("/cgi-bin/ctrl?") + sent : "") << fault;
  }
  Camera.SetPanTilt(0, 0);
  for (const auto& refusal : {FakeReply{"NG"}, FakeReply{"OK\r\n"}, FakeReply{.Answers = false}}) {
    Reply = refusal;
    EXPECT_FALSE(Camera.MoveTo(10, -10) || Camera.Move(DirectionUp) || Camera.MoveBoth(1, 1));
    EXPECT_EQ(Camera.Pan(), 0) << "a refused move keeps the position";
    EXPECT_EQ(Camera.Tilt(), 0);
  }
}

TEST_F(ElmoTest, PositionsAreWholeMotorSteps) {
  Camera.SetPanTilt(10, 10);
  EXPECT_EQ(Camera.Pan(), -150) << "needs a connection";
  EXPECT_EQ(Camera.Tilt(), 30);
  Connect();
  Camera.SetPanTilt(-1000, -1000);
  EXPECT_EQ(Camera.Pan(), -150);
  EXPECT_EQ(Camera.Tilt(), -90);
  Camera.SetPanTilt(10, 10);
  EXPECT_EQ(NumberOf([&] { Camera.MoveTo(1, 3.8e7F); }), 6);
  EXPECT_EQ(NumberOf([&] { Camera.SetPanTilt(1, 3.8e7F); }), 6);
  EXPECT_FLOAT_EQ(Camera.Pan(), 10.0034435F) << "what raises stores nothing";
  EXPECT_FLOAT_EQ(Camera.Tilt(), 10);
  EXPECT_EQ(Sent(), "");
}

TEST_F(ElmoTest, EndsOfThePresetsAndLogs) {
  Connect();
  EXPECT_TRUE(Camera.PresetGoto(0) && Camera.PresetGoto(5) && Camera.PresetSave(5));
  EXPECT_FALSE(Camera.PresetGoto(-1) || Camera.PresetGoto(6) || Camera.PresetSave(-1) ||
               Camera.PresetSave(6) || Camera.Zoom(static_cast<Zooms>(3)));
  EXPECT_EQ(Sent(), "/cgi-bin/ctrl?prst=1\n/cgi-bin/ctrl?prst=6\n/cgi-bin/pmem?6");
  Reply.Answers = false;
  EXPECT_EQ(RequestLinesOf([this] { Connect(), Camera.Zoom(ZoomIn); }),
            "Requesting /cgi-bin/ctrl|Request complete. Reply: NG|"
            "Requesting /cgi-bin/ctrl?zoom=0|Request failed.|");
}

}  // namespace
}  // namespace ptzd::test
