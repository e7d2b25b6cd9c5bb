#include "drivers/PanasoniciPro.h"

#include "support/DriverTest.h"

namespace ptzd::test {
namespace {

constexpr const char* ReplyOfAll = "PAN=2087&nbsp\r\nTILT=143&nbsp\r\nZOOM=23&nbsp\r\nFOCUS=4711&nbsp\r\n";
constexpr const char* Inquiry = "/cgi-bin/absget?";
const FakeReply Unavailable{"", "HTTP/1.1 503 Service Unavailable"};

class PanasoniciProTest : public DriverTest<PanasoniciPro> {
 protected:
  void Connect(const std::string& model, FakeReply position = Unavailable, const OptionValues& options = {}) {
    Net.Replies = {{"MAC=0\r\nName=" + model + "\r\nHOSTNAME=yard\r\nNAMES=2\r\n"}, std::move(position)};
    ASSERT_TRUE(Device.Connect(CameraOptions(options)));
    Net.Replies.clear();
    Sent();
  }

  PTZDevice2& Device2 = Camera;
};

TEST_F(PanasoniciProTest, ConnectFailures) {
  struct Row {
    std::deque<FakeReply> replies;
    const char* error;
  };
  const char* silent = "17001 Unable to get the camera information.";
  const char* nameless = "17002 The Panasonic iPro  is not currently recognised by Quorvane.";
  const Row rows[] = {
      {{{.Answers = false}}, silent},
      {{{"NAME=WV-SC384", "HTTP/1.1 401 Unauthorized"}}, silent},
      {{{""}}, silent},
      {{{"", "HTTP/1.1 204 No Content"}}, silent},
      {{{"\r\n"}}, nameless},
      {{{"TITLE=WV-SC384\r\n"}}, nameless},
      {{{"NAME=wv-sc999\r\n"}}, "17002 The Panasonic iPro wv-sc999 is not currently recognised by Quorvane."},
      {{{"NAME=WV-SC384\n"}}, "17002 The Panasonic iPro WV-SC384\n is not currently recognised by Quorvane."},
      {{{"NAME=WV-SC384"}, {"PAN=10\r\nTILT=4e39\r\n"}}, "6 Overflow"},
  };
  EXPECT_EQ(ErrorOf([&] { return Device.Connect(CameraOptions({}, "")); }),
            "17003 No camera address specified.");
  EXPECT_FALSE(Device.Move(DirectionUp, 5) || Device.MoveBoth(1, 1) || Device.Zoom(ZoomIn))
      << "without a model there are no limits to move within";
  for (const auto& row : rows) {
    Net.Replies = row.replies;
    EXPECT_EQ(ErrorOf([&] { return Device.Connect(CameraOptions()); }), row.error);
    EXPECT_FALSE(Device.Connected());
    EXPECT_EQ(Device.Pan(), 0) << "of a position that overflows nothing is kept";
  }
  for (const char* option : {"Port", "Reset"}) {
    Net.Replies = {{"NAME=WV-SC384"}};
    EXPECT_EQ(NumberOf([&] {
                return Device.Connect(CameraOptions({{option, std::string("two")}}));
              }),
              13)
        << option;
  }
}

TEST_F(PanasoniciProTest, ModelsSetLimitsAndTheWayToCount) {
  struct Row {
    std::vector<const char*> models;
    const char *least, *most, *sides;
  };
  const Row rows[] = {
      {{"WV-NS202", "wv-ns202a", "WV-SC384", "WV-SC385", "WV-SW395"},
       "pan=0&tilt=900",
       "pan=3500&tilt=-300",
       "pan=50&tilt=0"},
      {{"WV-NS950", "WV-NS954", "WV-NW960", "WV-NW964"},
       "pan=3590&tilt=900",
       "pan=10&tilt=-50",
       "pan=100&tilt=0"},
      {{"WV-SW396", "WV-SW598", "WV-SC588"}, "pan=3590&tilt=900", "pan=10&tilt=0", "pan=100&tilt=0"},
      {{"WV-SW174W", "WV-SW175"}, "pan=-475&tilt=-450", "pan=475&tilt=100", "pan=-475&tilt=0"},
      {{"BL-VT164", "bl-vt164w"}, "pan=-410&tilt=-320", "pan=410&tilt=100", "pan=-410&tilt=0"},
  };
  for (const auto& row : rows)
    for (const std::string model : row.models) {
      SCOPED_TRACE(model);
      Connect(model);
      EXPECT_EQ(Device.Capabilities(), 65671);
      EXPECT_FALSE(Device.MoveTo(-181, -200));
      EXPECT_FALSE(Device.MoveTo(181, 200));
      EXPECT_FALSE(Device.MoveTo(-170, 0)) << "and 0 is never -0";
      const std::string path = "/cgi-bin/absctrl?";
      EXPECT_EQ(Sent(), path + row.least + "\n" + path + row.most + "\n" + path + row.sides);
    }
}

TEST_F(PanasoniciProTest, ReadsPositions) {
  struct Row {
    const char *model, *reply;
    float pan, tilt, zoom;
  };
  for (const auto& [model, reply, pan, tilt, zoom] : {
           Row{"WV-SC384", ReplyOfAll, 33.7F, -14.3F, 1.25F},
           Row{"WV-NS950", "pan=0&nbsp;\r\ntilt=0&nbsp;\r\nzoom=10&nbsp;\r\n", -180, 0, 0},
           Row{"WV-NS950", "Zoom=3\r\nTilt=-50\r\nPan=3600", 180, 5, -0.75F},
           Row{"BL-VT164", "Pan=-333.0&nbsp;\r\nTilt=-101.5\r\nZoom=11.25&nbsp;\r\n", -33.3F, -10.15F, 0.25F},
           Row{"BL-VT164", "Pan=-12=5\r\nTilt=&nbsp;\r\nZoom:20\r\n", -1.2F, 0, 0.25F},
           Row{"WV-SC384", "PAN=10\nTILT=20\n", -174, 0, 0.25F},
           Row{"WV-SC384", "OK", -174, 0, 0.25F},
       }) {
    Connect(model, {reply});
    EXPECT_EQ(Device.Pan(), pan) << reply;
    EXPECT_EQ(Device.Tilt(), tilt) << reply;
    EXPECT_FALSE(std::signbit(Device.Tilt()) && tilt == 0) << reply;
    EXPECT_EQ(Device2.ZoomLevel(), zoom) << reply;
  }
}

TEST_F(PanasoniciProTest, Moves) {
  struct Row {
    std::function<void(PTZDevice&, PTZDevice2&)> move;
    const char *sent, *fault;
  };
  const auto invalid = [](auto&& call) { EXPECT_EQ(NumberOf(call), 6); };
  const Row rows[] = {
      {[](auto& d, auto&) { EXPECT_TRUE(d.Move(DirectionDown, 0.25F)); }, "pan=2087&tilt=145.5",
       "pan and tilt together"},
      {[](auto& d, auto&) { EXPECT_TRUE(d.MoveBoth(-30, 14.3F)); }, "pan=1787&tilt=0",
       "signed amounts, no -0"},
      {[](auto& d, auto&) { EXPECT_FALSE(d.MoveTo(0.00045F, 0)); }, "pan=1750.004&tilt=0",
       "175.00045 is rounded to a single before it is multiplied; always False"},
      {[](auto& d, auto&) { d.MoveTo(3e38F, -1e30F); }, "pan=3500&tilt=900", "limits of any target"},
      {[](auto&, auto& d) { d.ZoomTo(0.1F); }, "zoom=11", "any zoom is sent, in quarters or not"},
      {[](auto&, auto& d) { d.ZoomTo(1e6F); }, "zoom=1.000001E+07", "the text of a single"},
      {[&](auto& d, auto&) { invalid([&] { d.MoveTo(0, INFINITY); }); }, "", "nor this"},
      {[&](auto&, auto& d) { invalid([&] { d.ZoomTo(3e38F); }); }, "", "ten times as much is no single"},
      {[&](auto&, auto& d) { invalid([&] { d.MoveTo(1, 1, 3e38F); }); }, "", "nor half-way"},
  };
  for (const auto& [move, sent, fault] : rows) {
    Connect("WV-SC384", {ReplyOfAll});
    move(Camera, Camera);
    EXPECT_EQ(Sent(), *sent ? "/cgi-bin/absctrl?" + std::string(sent) : "") << fault;
    EXPECT_TRUE(*sent || Device.Pan() == 33.7F) << fault;
  }
  Connect("WV-NS950");
  Device.MoveTo(190, 0);
  Device.MoveTo(-1000, 0);
  Device.MoveTo(180, 0);
  Device.MoveTo(-180, 0);
  EXPECT_EQ(Sent(),
            "/cgi-bin/absctrl?pan=100&tilt=0\n/cgi-bin/absctrl?pan=-4600&tilt=0\n"
            "/cgi-bin/absctrl?pan=3600&tilt=0\n/cgi-bin/absctrl?pan=0&tilt=0")
      << "one turn at most; the ends are not turned";
  EXPECT_EQ(NumberOf([&] { Device.MoveTo(3e38F, 0); }), 6);
  EXPECT_EQ(Sent(), "");
}

TEST_F(PanasoniciProTest, AsksBeforeSteps) {
  Connect("BL-VT164", {"Pan=100\r\nTilt=50\r\nZoom=10"});
  const std::string control = "/cgi-bin/absctrl?";
  const auto step = [&] { return Device.Move(DirectionRight, 1); };

  Time.Advance(4999);
  EXPECT_TRUE(step());
  EXPECT_EQ(Sent(), control + "pan=110&tilt=50");
  Time.Advance(4999);
  EXPECT_TRUE(Device.Zoom(ZoomIn)) << "a move counts as a reading";
  EXPECT_EQ(Sent(), control + "zoom=12.5");
  const auto neither = static_cast<Zooms>(3);
  for (const std::function<void()>& zoom : {std::function<void()>([&] { Device.Zoom(neither); }),
                                            std::function<void()>([&] { Device2.Zoom(neither, 1); })}) {
    Device.SetPanTilt(0, 0);
    zoom();
    EXPECT_EQ(Sent(), Inquiry) << "asks, and moves nothing";
  }

  Device.SetPanTilt(0, 0);
  Device.MoveTo(1, 1);
  step();
  EXPECT_EQ(Sent(), control + "pan=10&tilt=10\n" + Inquiry + "\n" + control + "pan=20&tilt=10")
      << "a move does not tell where the camera was";

  Time.Advance(5000);
  EXPECT_EQ(NumberOf([&] { Device.MoveBoth(1, NAN); }), 6);
  EXPECT_EQ(NumberOf([&] { Device2.Zoom(ZoomOut, NAN); }), 6);
  EXPECT_EQ(Sent(), "") << "there is nothing to ask for";
  Net.Replies = {{"Pan=70\r\nTilt=1e40"}};
  EXPECT_EQ(NumberOf(step), 6);
  EXPECT_EQ(Sent(), Inquiry);
  EXPECT_EQ(Device.Pan(), 2);
}

TEST_F(PanasoniciProTest, OutcomesChannelAndReset) {
  Net.Replies = {{"NAME=WV-NS202A\r\n"}, {ReplyOfAll}, Unavailable};
  const auto log = LogOf([&] {
    EXPECT_TRUE(Device2.Connect(CameraOptions({{"Port", 2}, {"Reset", true}})))
        << "a reset that fails is no failure";
  });
  EXPECT_EQ(Sent(),
            "/cgi-bin/getinfo?ch=2&FILE=1\n/cgi-bin/absget?ch=2&\n/cgi-bin/absctrl?ch=2&pan=1750&tilt=0");
  for (const char* text : {"Sending: /cgi-bin/getinfo?ch=2&FILE=1|", "|Received: NAME=WV-NS202A\r\n|",
                           "|Received: PAN=2087&nbsp\r\n"})
    EXPECT_NE(log.find(text), std::string::npos) << text;
  EXPECT_EQ(log.find("Request failed"), std::string::npos);

  for (const char* status : {"HTTP/1.0 204 x", "HTTP/1.1 200"}) {
    Net.Replies = {{"", status}};
    EXPECT_TRUE(Device.Zoom(ZoomOut)) << status;
  }
  for (const auto& refusal :
       {Unavailable, FakeReply{.Answers = false}, FakeReply{"", "HTTP/1.1 202 Accepted"}}) {
    Net.Answer = [&](const auto&) { return refusal; };
    EXPECT_FALSE(Device.Zoom(ZoomIn) || Device.Move(DirectionUp, 1) || Device.MoveBoth(1, 1));
    Device2.MoveTo(1, 1, 1);
    EXPECT_EQ(Device.Pan(), 33.7F) << "a refused move keeps the position";
    EXPECT_EQ(Device2.ZoomLevel(), 0.75F);
  }
}

}  // namespace
}  // namespace ptzd::test
