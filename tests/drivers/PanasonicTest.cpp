#include "drivers/Panasonic.h"

#include "support/DriverTest.h"

namespace ptzd::test {
namespace {

constexpr const char* Inquiries = "/Get?Func=Model&Kind=1\n/Get?Func=Pan&Kind=1\n/Get?Func=Tilt&Kind=1";
const FakeReply Refusal{"", "HTTP/1.1 400 Bad Request"};

FakeReply Information(const std::string& model, const std::string& firmware = "2.32") {
  return {"Return:0\r\nModelName:" + model + "\r\nAplFirm:" + firmware + "\r\n"};
}

class PanasonicTest : public DriverTest<Panasonic> {
 protected:
  /// Pan and tilt inquiries fail unless their replies are given.
  void Connect(const FakeReply& information, FakeReply pan = Refusal, FakeReply tilt = Refusal) {
    Net.Replies = {information, std::move(pan), std::move(tilt)};
    ASSERT_TRUE(Camera.Connect(CameraOptions()));
    EXPECT_EQ(Sent(), Inquiries);
  }
};

TEST_F(PanasonicTest, ConnectFailures) {
  struct Row {
    std::deque<FakeReply> replies;
    const char* error;
  };
  const char* silent = "17001 Unable to get the camera information.";
  const char* nameless = "17002 The Panasonic  is not currently recognised by Quorvane.";
  const Row rows[] = {
      {{{.Answers = false}}, silent},
      {{{"ModelName:BB-HCM581\r\n", "HTTP/1.1 204 No Content"}}, silent},
      {{{"ModelName:BB-HCM581\r\n", "HTTP/1.1"}}, silent},
      {{{""}}, nameless},
      {{{"AplFirm:2.3\r\n"}}, nameless},
      {{Information("ABC")}, nameless},
      {{{"ModelName:BB-HCM581\n"}},
       "17002 The Panasonic BB-HCM581\n is not currently recognised by Quorvane."},
      {{Information("wv-sc384e")}, "17002 The Panasonic WV-SC384 is not currently recognised by Quorvane."},
      {{Information("BL-C100")}, "17002 The Panasonic BL-C100 is not currently recognised by Quorvane."},
      {{Information("BB-HCM581", "1e39")}, "6 Overflow"},
      {{Information("BB-HCM581"), {"Deg:-1e12\r\n"}}, "6 Overflow"},
      {{Information("BB-HCM581"), {"Deg:100\r\n"}, {"Deg:1e12\r\n"}}, "6 Overflow"},
  };
  EXPECT_EQ(ErrorOf([&] { return Camera.Connect(CameraOptions({}, "")); }),
            "17003 No camera address specified.");
  for (const auto& row : rows) {
    Net.Replies = row.replies;
    EXPECT_EQ(ErrorOf([&] { return Camera.Connect(CameraOptions()); }), row.error);
    EXPECT_FALSE(Camera.Connected());
    EXPECT_EQ(Camera.Pan(), 0) << "of a position that overflows nothing is kept";
    EXPECT_EQ(Camera.Capabilities(), 0);
  }
  Net.Replies = {Information("BB-HCM581")};
  EXPECT_EQ(NumberOf([&] { return Camera.Connect(CameraOptions({{"Reset", std::string("maybe")}})); }), 13);
  EXPECT_FALSE(Camera.Connected());
}

TEST_F(PanasonicTest, FirmwareChoosesTheInterface) {
  struct Row {
    const char* firmware;
    bool takesAngles;
    const char* fault;
  };
  for (const auto& [firmware, takesAngles, fault] : {
           Row{"1.22", false, "not above 1.22"},
           Row{"1.22000005", false, "the same in single precision"},
           Row{"1.2200002", true, "the next but one"},
           Row{" 2.5 beta", true, "what the number leads is ignored"},
           Row{"", false, "no number is 0"},
       }) {
    Connect(Information("BL-C131", firmware));
    EXPECT_EQ((Camera.Capabilities() & CapabilityRelativeControl) == 0, takesAngles) << fault;
  }
  Connect({"modelname:BL-C131\r\n"});
  EXPECT_EQ(Camera.Capabilities(), 267 | CapabilityRelativeControl)
      << "an earlier camera's firmware counts no more";
}

TEST_F(PanasonicTest, ReadsThePositionOnConnecting) {
  struct Row {
    const char *pan, *tilt;
    float readPan, readTilt, lowest, highest;
  };
  for (const auto& [pan, tilt, readPan, readTilt, lowest, highest] : {
           Row{"Min:-5000\r\ndeg:-1234\r\n", "DEG:-567\r\n", 12, -6, -40, 10},
           Row{"Deg:150", "Deg:250", -2, 2, -40, 10},
           Row{"Deg:12:34", "SetupType:0\r\nDeg:800", 0, 8, -40, 90},
           Row{"deg:-9000\r\n", "deg:300\r\nsetuptype:1\r\n", 90, 3, -120, 10},
           Row{"", "setuptype:-\r\n", 90, 3, -40, 90},
           Row{"Deg;1", "Degr:1\r\nsetuptype:2\r\nsetuptype:0", 90, 3, -120, 90},
       }) {
    Connect(Information("BL-C131"), {pan}, {tilt});
    EXPECT_EQ(Camera.Pan(), readPan) << pan;
    EXPECT_EQ(Camera.Tilt(), readTilt) << tilt;
    Camera.SetPanTilt(0, -999);
    EXPECT_EQ(Camera.Tilt(), lowest) << tilt;
    Camera.SetPanTilt(0, 999);
    EXPECT_EQ(Camera.Tilt(), highest) << tilt;
    Camera.SetPanTilt(90, 3);
    Connect(Information("BB-HCM581"), {"Deg:-9000"}, {"Deg:300"});
  }
}

TEST_F(PanasonicTest, Moves) {
  struct Row {
    std::function<void(Panasonic&)> move;
    const char *angles, *click, *fault;
  };
  const Row rows[] = {
      {[](auto& c) { c.Move(DirectionDownRight, 2.5F); }, "-1400,400", "2400,1850", "14.5 and 3.5 are ties"},
      {[](auto& c) { EXPECT_TRUE(c.MoveBoth(-0.6F, 0.4F)); }, "-1100,600", "2100,1650", "sums are rounded"},
      {[](auto& c) { EXPECT_TRUE(c.MoveTo(-0.4F, 0)); }, "0,0", "1000,2250", "never -0"},
      {[](auto& c) { c.MoveTo(500, -500); }, "-17500,-12000", "18500,14250", "ends at the limits"},
      {[](auto& c) { c.MoveTo(-1e9F, 0.5F); }, "17500,0", "-16500,2250", "far beyond them, too"},
      {[](auto& c) { EXPECT_EQ(NumberOf([&] { c.MoveTo(3e9F, 0); }), 6); }, "", "", "beyond 32 bits"},
      {[](auto& c) { EXPECT_EQ(NumberOf([&] { c.MoveBoth(-3e38F, 1); }), 6); }, "", "", "too far"},
      {[](auto& c) { EXPECT_EQ(NumberOf([&] { c.SetPanTilt(1, 3e9F); }), 6); }, "", "", "and half-way"},
  };
  const auto fill = [](const std::string& format, const std::string& numbers) {
    if (numbers.empty()) return std::string();
    const auto comma = numbers.find(','), gap = format.find('*');
    return format.substr(0, gap) + numbers.substr(0, comma) + format.substr(gap + 1) +
           numbers.substr(comma + 1);
  };
  for (const auto& [move, angles, click, fault] : rows) {
    Connect(Information("BB-HCM580"), {"Deg:-1234"}, {"Deg:567"});
    move(Camera);
    const auto sent = Sent();
    EXPECT_EQ(sent, *angles ? fill("/nphPtzf?Func=Set&PanAng=*&PanAngRate=-1&TiltAng=", angles) +
                                  "&TiltAngRate=-1&Sync=1"
                            : "")
        << fault;
    EXPECT_TRUE(!sent.empty() || (Camera.Pan() == 12 && Camera.Tilt() == 6)) << fault;
    Connect(Information("BB-HCM580", "1.22"), {"Deg:-1234"}, {"Deg:567"});
    move(Camera);
    EXPECT_EQ(Sent(), fill("/nphControlCamera?Width=4400&Height=3300&Direction=Direct&NewPosition.x=*"
                           "&NewPosition.y=",
                           click))
        << fault;
  }
}

TEST_F(PanasonicTest, ClicksAreCountedFromTheLastPosition) {
  const std::string narrow = "/nphControlCamera?Width=4450&Height=3337.5&Direction=Direct&NewPosition.x=";
  Connect(Information("BL-C30"));
  EXPECT_TRUE(Camera.MoveTo(10, -5));
  EXPECT_TRUE(Camera.Move(DirectionLeft, 3));
  Net.Replies = {Refusal};
  EXPECT_FALSE(Camera.MoveTo(0, 0));
  EXPECT_EQ(Camera.Pan(), 7) << "a refused move keeps the position";
  EXPECT_EQ(Camera.Tilt(), -5);
  Camera.SetPanTilt(-20.5F, 99);
  EXPECT_TRUE(Camera.MoveTo(0, 0));
  EXPECT_EQ(Sent(), narrow + "3225&NewPosition.y=2168\n" + narrow + "1925&NewPosition.y=1668\n" + narrow +
                        "1525&NewPosition.y=1168\n" + narrow + "4225&NewPosition.y=2668");

  Connect(Information("BL-C210", "1.1"));
  Camera.SetPanTilt(0, 0);
  EXPECT_TRUE(Camera.MoveTo(10, -5));
  EXPECT_EQ(Sent(),
            "/nphControlCamera?Width=0&Height=0&Direction=Direct&NewPosition.x=1000&NewPosition.y=500")
      << "the bare offset, on models whose view is not known";

  Connect(Information("BL-C30"), {"Deg:-30000000000"});
  EXPECT_EQ(Camera.Pan(), 300000000);
  EXPECT_EQ(NumberOf([&] { Camera.MoveTo(0, 0); }), 6) << "the distance is beyond 32 bits";
  EXPECT_EQ(Camera.Pan(), 300000000);
  EXPECT_EQ(Sent(), "");
}

TEST_F(PanasonicTest, ResetAndLogs) {
  Net.Replies = {{"Return:0\r\nMODELNAME:bb-hcm527a\r\naplfirm:2.320\r\n", "HTTP/1.0 200"},
                 {"Deg:3325"},
                 {"Deg:4000"},
                 {.Answers = false}};
  const auto log = LogOf([&] {
    EXPECT_TRUE(Camera.Connect(CameraOptions({{"Reset", true}}))) << "a reset that fails is no failure";
  });
  EXPECT_EQ(Sent(), Inquiries + std::string("\n/nphPtzf?Func=Set&PanAng=0&PanAngRate=-1&TiltAng=0"
                                            "&TiltAngRate=-1&Sync=1"));
  EXPECT_EQ(Camera.Pan(), -33);
  for (const char* text : {"Sending: /Get?Func=Model&Kind=1|",
                           "|Received: Return:0\r\nMODELNAME:bb-hcm527a\r\naplfirm:2.320\r\n|",
                           "|Camera model: BB-HCM527A|Trimmed camera model: BB-HCM527|Camera version: 2.32|",
                           "|Using new API version|Sending: /Get?Func=Pan&Kind=1|"})
    EXPECT_NE(log.find(text), std::string::npos) << text;
  EXPECT_EQ(log.find("Request failed"), std::string::npos);
}

}  // namespace
}  // namespace ptzd::test
