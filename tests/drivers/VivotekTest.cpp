#include "drivers/Vivotek.h"

#include "support/DriverTest.h"

namespace ptzd::test {
namespace {

class VivotekTest : public DriverTest<Vivotek> {
 protected:
  void Connect(const std::string& model, const OptionValues& options = {}) {
    Net.Replies = {FakeReply{"Model=" + model + "\r\nPTZEnabled=1\r\n"}};
    ASSERT_TRUE(Camera.Connect(CameraOptions(options)));
    Camera.SetPanTilt(0, 0);
    Sent();
  }
};

TEST_F(VivotekTest, ConnectFailures) {
  struct Row {
    FakeReply reply;
    const char* error;
  };
  const char* incapable = "17002 This device does not support PTZ.";
  const Row rows[] = {
      {{.Answers = false}, "13104 Failed to connect to the HTTP server."},
      {{"", "HTTP/1.1 404 Not Found"}, "17001 Received HTTP error 404 Not Found"},
      {{"", "HTTP/1.0 401"}, "17001 Received HTTP error 401"},
      {{"", "HTTP/1.0 500 Gr\xFC\xDF"}, "17001 Received HTTP error 500 Gr\xC3\xBC\xC3\x9F"},
      {{""}, "17001 No valid reply from the device."},
      {{"m"}, incapable},
      {{"model=PZ6122\r\nptzenabled=1\r\n"}, "17002 Unrecognized model number: PZ6122"},
      {{"model=pt713\nptzenabled=1\n"}, "17002 Unrecognized model number: pt713"},
      {{"model=PT7135\r\nptzenabled=0\r\n"}, incapable},
      {{"ptzenabled=1\nmodel=PT713\nptzenabled=none"}, incapable},
      {{"model=PT713\nptzenabled=3000000000"}, "6 Overflow"},
      {{"ptzenabled=1\n"}, "17002 Unrecognized model number: "},
  };
  Connect("PT713");
  for (const auto& row : rows) {
    Net.Replies = {row.reply};
    EXPECT_EQ(ErrorOf([&] { return Camera.Connect(CameraOptions()); }), row.error);
    EXPECT_FALSE(Camera.Connected());
    const auto before = row.reply.Body.empty() ? 1 | 4325408 : 0;  // until a camera tells anew
    EXPECT_EQ(Camera.Capabilities(), before | CapabilityHome | CapabilityRelativeControl);
  }
  const std::string good = "ptzenabled=15\r\nmodel=PT7135\r\n";
  for (std::size_t length = 0; length < good.size() - 3; ++length) {
    Net.Replies = {FakeReply{good.substr(0, length)}};
    EXPECT_NE(NumberOf([&] { return Camera.Connect(CameraOptions()); }), 0) << length;
  }
}

TEST_F(VivotekTest, ModelsSetGenerationAndPicture) {
  struct Row {
    const char *model, *sent;
  };
  const std::string oldPath = "/cgi-bin/camctrl.cgi?cam=1&",
                    newPath = "/cgi-bin/viewer/camctrl.cgi?channel=0&";
  const char* newClick = "video=0&x=498&y=324&resolution=704x576&videosize=704x576&stretch=0";
  for (const auto& [model, sent] :
       {Row{"PZ61x", "x=253&y=138"}, Row{"PT31x2", "x=253&y=138"}, Row{"PT7135", "x=237&y=138"},
        Row{"PZ71X2", newClick}, Row{"PZ7131", newClick}, Row{"PT7165", newClick}, Row{"SD83X", newClick},
        Row{"SD8363E", newClick}}) {
    Net.Replies = {FakeReply{"x=1\r\nMODEL=" + std::string(model) + "\r\nptzenabled=3\r\n"}};
    EXPECT_TRUE(Camera.Connect(CameraOptions()));
    Camera.SetPanTilt(0, 0);
    EXPECT_TRUE(Camera.MoveTo(10, -3));
    const auto& path = sent == newClick ? newPath : oldPath;
    EXPECT_EQ(Sent(), "/cgi-bin/sysinfo.cgi\n" + path + "move=home\n" + path + sent) << model;
    EXPECT_EQ(Camera.PresetCount(), sent == newClick ? 128 : 0);
    EXPECT_EQ(Camera.Capabilities(), 3 | 4325408 | CapabilityHome | CapabilityRelativeControl);
    EXPECT_EQ(Camera.Pan(), 10);
  }
}

TEST_F(VivotekTest, MovesAreClicks) {
  struct Row {
    std::function<void(Vivotek&)> move;
    const char *older, *newer;
    const char* fault;
  };
  const Row rows[] = {
      {[](auto& c) { c.Move(DirectionUpRight, 0.5F); }, "176,120", "352,288", "ties go to even"},
      {[](auto& c) { c.Move(DirectionRight, 1.5F); }, "191,120", "381,288", "as do these"},
      {[](auto& c) { c.MoveBoth(0.5F, -0.3F); }, "179,121", "359,291", "steps are not rounded"},
      {[](auto& c) { c.MoveBoth(-0.1F, 0.1F); }, "175,119", "350,286", "whole pixels to the left and up"},
      {[](auto& c) { EXPECT_TRUE(c.MoveTo(200, -200)); }, "1724,1320", "3285,2688", "no limits, no wrap"},
      {[](auto& c) { EXPECT_EQ(NumberOf([&] { c.MoveBoth(0, 4e8F); }), 6); }, "", "",
       "a click beyond 32 bits"},
      {[](auto& c) { EXPECT_EQ(NumberOf([&] { c.Move(DirectionUp, 3e9F); }), 6); }, "", "", "and a target"},
  };
  const auto click = [](std::string place) {
    return place.empty() ? "" : "x=" + place.replace(place.find(','), 1, "&y=");
  };
  for (const auto& [move, older, newer, fault] : rows) {
    Connect("PZ61x", {{"Camera", std::string("2")}});
    move(Camera);
    EXPECT_EQ(Sent(), *older ? "/cgi-bin/camctrl.cgi?cam=2&" + click(older) : "") << fault;
    Connect("SD836", {{"Camera", std::string("2")}});
    move(Camera);
    EXPECT_EQ(Sent(), *newer ? "/cgi-bin/viewer/camctrl.cgi?channel=2&video=0&" + click(newer) +
                                   "&resolution=704x576&videosize=704x576&stretch=0"
                             : "")
        << fault;
  }
}

TEST_F(VivotekTest, PositionFollowsWhatTheCameraTook) {
  Connect("PT713");
  EXPECT_TRUE(Camera.MoveTo(10.5F, -3.5F));
  EXPECT_EQ(Camera.Pan(), 10);
  EXPECT_EQ(Camera.Tilt(), -4);
  for (const auto& refusal : {FakeReply{.Answers = false}, FakeReply{"", "HTTP/1.1 403 Forbidden"}}) {
    Net.Replies = {refusal};
    EXPECT_FALSE(Camera.Move(DirectionRight, 7));
  }
  EXPECT_EQ(Camera.Pan(), 10);
  Camera.SetPanTilt(-20.5F, 0.6F);
  EXPECT_EQ(NumberOf([&] { Camera.SetPanTilt(1, 1e10F); }), 6);
  EXPECT_EQ(Camera.Pan(), -20);
  EXPECT_EQ(Camera.Tilt(), 1);
}

TEST_F(VivotekTest, PresetsRaiseWhatFails) {
  EXPECT_FALSE(Camera.PresetGoto(1) || Camera.PresetSave(1)) << "older generation until told otherwise";
  Connect("PZ61x");
  EXPECT_FALSE(Camera.PresetGoto(1) || Camera.PresetSave(1));
  Camera.GotoNamedPreset("Gate");
  EXPECT_TRUE(Camera.GetNamedPresets().empty());
  EXPECT_EQ(Sent(), "");

  Connect("PZ713");
  Camera.Disconnect();
  EXPECT_FALSE(Camera.PresetSave(0) || Camera.PresetGoto(127)) << "also when done, and when disconnected";
  Camera.GotoNamedPreset("Front gate & caf\xC3\xA9");
  Net.Replies = {
      FakeReply{"model=PZ713\r\nPreset_i0=Gate\r\npreset_i1=\r\nPRESET_I2=Caf\xE9\r\nxpreset=no\r\n"}};
  const auto presets = Camera.GetNamedPresets();
  ASSERT_EQ(presets.size(), 2U);
  EXPECT_EQ(presets[0].ID() + presets[0].Name(), "GateGate");
  EXPECT_EQ(presets[1].ID(), "Caf\xC3\xA9");
  EXPECT_EQ(presets[1].Index(), 0) << "its number is never read";
  EXPECT_EQ(Sent(),
            "/cgi-bin/operator/preset.cgi?channel=0&addpos=Quorvane%20preset%200\n"
            "/cgi-bin/viewer/recall.cgi?channel=0&recall=Quorvane%20preset%20127\n"
            "/cgi-bin/viewer/recall.cgi?channel=0&recall=Front+gate+%26+caf%E9\n"
            "/cgi-bin/sysinfo.cgi");
  Net.Replies = {FakeReply{"preset1=Gate\npreset2=Gate\n"}};
  EXPECT_EQ(NumberOf([&] { Camera.GetNamedPresets(); }), 457);
  const std::function<void()> members[] = {[&] { Camera.PresetGoto(1); }, [&] { Camera.PresetSave(1); },
                                           [&] { Camera.GotoNamedPreset("x"); },
                                           [&] { Camera.GetNamedPresets(); }};
  for (const auto& member : members) {
    Net.Replies = {FakeReply{"", "HTTP/1.1 500 Server Error"}, FakeReply{.Answers = false}};
    EXPECT_EQ(ErrorOf(member), "17001 Received HTTP error 500 Server Error");
    EXPECT_EQ(NumberOf(member), 13104);
  }
}

TEST_F(VivotekTest, ContinuousControlRepeatsOnlyStops) {
  Connect("PT716");
  Net.Replies = {FakeReply{.Answers = false}};
  Camera.ContinuousMove(0.5F, -0.5F);
  Camera.ContinuousMove(0.5F, -0.5F);
  Camera.ContinuousMove(-0.1F, 0.7F);  // 5 times the sum is 4 in single precision only
  Camera.ContinuousZoom(-0.25F);
  Camera.ContinuousZoom(-0.25F);
  Camera.ContinuousZoom(0.7F);
  Camera.StopContinuous();
  Camera.StopContinuous();
  const std::string path = "/cgi-bin/viewer/camctrl.cgi?channel=0&",
                    stop = path + "vx=0&vy=0&vs=0\n" + path + "zooming=wide&zs=0";
  EXPECT_EQ(Sent(), path + "vx=0.5&vy=-0.5&vs=6\n" + path + "vx=-0.1&vy=0.7&vs=5\n" + path +
                        "zooming=wide&zs=3\n" + path + "zooming=tele&zs=8\n" + stop + "\n" + stop);
  EXPECT_EQ(NumberOf([&] { Camera.ContinuousZoom(1e9F); }), 6);
  EXPECT_EQ(NumberOf([&] { Camera.ContinuousMove(3e38F, 3e38F); }), 6);
}

TEST_F(VivotekTest, Logs) {
  const auto log = LogOf([&] {
    Connect("PT713");
    Camera.Move(DirectionUp, 2.5F);
    Camera.Zoom(ZoomOut);
  });
  for (const char* text : {"Connecting PTZ driver to camera1|Requesting http://camera1/cgi-bin/sysinfo.cgi|",
                           "|Camera model: PT713|Camera capabilities: 1|", "|Received: Model=PT713",
                           "|Moving 2.5 degrees 1|Moving to 0, 2|", "|Zooming 2|"})
    EXPECT_NE(log.find(text), std::string::npos) << text;
}

}  // namespace
}  // namespace ptzd::test
