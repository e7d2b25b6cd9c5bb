#include "drivers/Quorvane.h"

#include <algorithm>

#include <ptzd/Logging.h>
#include "support/DriverTest.h"

namespace ptzd::test {
namespace {

constexpr const char* FeedList =
    "<?xml version=\"1.0\"?>\r\n<feeds>\r\n  <!-- cameras -->\r\n  <feed id='7'/>\r\n  <feed name='Back' "
    "id='2'/>\r\n"
    "  <camera name='Front D\xD6\xD6R' id='3 &amp; 4' state='stopped'/>\r\n  <feed name='front d\xF6\xF6r' "
    "id='5'/>\r\n"
    "  <feed name='Nameless'/>\r\n</feeds>";

class QuorvaneTest : public DriverTest<Quorvane> {
 protected:
  QuorvaneTest() {
    Net.Answer = [this](const SentRequest& request) {
      if (request.Host == "camera1http") return Feeds;
      if (request.Object.empty() || request.Object == "/") return Probe;
      return Reply;
    };
  }

  static Bytes OptionsWith(const std::string& feed, bool reset = false,
                           const std::string& address = "camera1") {
    OptionValues values{{"Reset", reset}};
    if (!feed.empty()) values.emplace_back("Feed", feed);
    return CameraOptions(values, address);
  }
  void Connect(const std::string& feed = "3") {
    ASSERT_TRUE(Camera.Connect(OptionsWith(feed)));
    Net.Sent.clear();
  }
  /// What was sent to the control page of feed 3 since the last call, a request each between blanks.
  std::string Sent() {
    std::string sent;
    for (const auto& request : Net.Sent) {
      constexpr std::string_view page = "/ptz/control.htm?feed=3&";
      EXPECT_TRUE(request.Object.starts_with(page)) << request.Object;
      EXPECT_EQ(request.Verb + request.Host + request.Headers + request.Body, "GETcamera1");
      sent += (sent.empty() ? "" : " ") + request.Object.substr(page.size());
    }
    Net.Sent.clear();
    return sent;
  }

  FakeReply Feeds{.Answers = false}, Probe, Reply{"OK"};
  PTZDevice2& Device2 = Camera;
};

TEST_F(QuorvaneTest, ConnectAsksForFeedsAtTheDoubledAddress) {
  EXPECT_TRUE(Device2.Connect(OptionsWith("Front Door & 1", true)));
  ASSERT_EQ(Net.Sent.size(), 3U);
  EXPECT_EQ(Net.Sent[0].Host + " " + Net.Sent[0].Object, "camera1http //camera1/feedlist.xml?showstopped");
  EXPECT_EQ(Net.Sent[1].Host + " " + Net.Sent[1].Object, "camera1 ");
  EXPECT_EQ(Net.Sent[2].Object, "/ptz/control.htm?feed=Front+Door+%26+1&move=offset")
      << "no offset from 0, 0, 0";
  EXPECT_TRUE(Device2.Connected());

  Net.Sent.clear();
  EXPECT_TRUE(Camera.Connect(OptionsWith("3", false, "root:pass@camera1:8080")));
#ifndef _WIN32  // the system may read a port where it begins as one
  EXPECT_EQ(Net.Sent.size(), 1U) << "with a port the doubled address is no address";
#endif
  EXPECT_EQ(Net.Sent.back().Host + " " + Net.Sent.back().Object, "camera1 ");
  EXPECT_EQ(Net.Sent.back().Port, 8080);
}

TEST_F(QuorvaneTest, ConnectFailures) {
  struct Row {
    const char* address;
    const char* feed;
    bool answers;
    const char* error;
    std::ptrdiff_t probes;
  };
  const Row rows[] = {
      {"camera1", "", true, "17002 Unrecognised feed", 0},
      {"camera1", "3", false, "17001 Unable to connect to the device", 1},
      {"camera1:99999", "3", true, "17001 Unable to connect to the device", 0},
  };
  for (const auto& row : rows) {
    Connect();
    Probe.Answers = row.answers;
    EXPECT_EQ(ErrorOf([&] { return Camera.Connect(OptionsWith(row.feed, true, row.address)); }), row.error);
    EXPECT_FALSE(Camera.Connected()) << row.error;
    EXPECT_EQ(std::ranges::count(Net.Sent, "", &SentRequest::Object), row.probes) << row.error;
    Probe.Answers = true;
  }
  Probe.StatusLine = "HTTP/1.1 500 Internal Server Error";
  EXPECT_TRUE(Camera.Connect(OptionsWith("3"))) << "any answer will do";
}

TEST_F(QuorvaneTest, FeedsAreFoundByNameOrTakenAsIds) {
  struct Row {
    const char* list;
    const char* feed;
    const char* sent;
    const char* fault;
  };
  const Row rows[] = {
      {FeedList, "front d\xC3\xB6\xC3\xB6r", "feed=3+%26+4", "case does not matter, the first match counts"},
      {FeedList, "back", "feed=2", "not the first element"},
      {FeedList, "3 & 4", "feed=3+%26+4", "an id is no name, but stands for itself"},
      {FeedList, "nameless", "feed=nameless", "a feed without an id"},
      {FeedList, "Garage", "feed=Garage", "no such feed"},
      {"<feeds><group><feed name='Back' id='2'/></group></feeds>", "Back", "feed=Back",
       "only the root's children"},
      {"<feeds><feed Name='Back' id='2'/></feeds>", "Back", "feed=Back", "attributes have case"},
      {"<html><body><br></body></html>", "Back", "feed=Back", "another server's page"},
      {"<!DOCTYPE a [<!ENTITY x SYSTEM 'file:///etc/hostname'>]><a><b name='Back' id='&x;'/></a>", "Back",
       "feed=Back", "a file of this machine"},
      {"", "Back", "feed=Back", "nothing at all"},
      {"<feeds/>", "a\xE2\x82\xAC", "feed=a%20%AC", "an id beyond ASCII"},
  };
  for (const auto& row : rows) {
    Feeds = {row.list};
    ASSERT_TRUE(Camera.Connect(OptionsWith(row.feed, true))) << row.fault;
    EXPECT_EQ(Net.Sent.back().Object, "/ptz/control.htm?" + std::string(row.sent) + "&move=offset")
        << row.fault;
  }
}

TEST_F(QuorvaneTest, LogsTheSearchAndTheRequests) {
  std::string log;
  SetLogSink([&](std::string_view message) {
    for (const auto* start :
         {"Requesting feed", "Sending: ", "Received: ", "Comparing", "Found", "Request failed"})
      if (message.starts_with(start)) log.append(message.substr(0, message.find('\r'))).append("\n");
  });
  EXPECT_TRUE(Camera.Connect(OptionsWith("3")));
  Feeds = {"<f><a/><a name='Back' id='2'/></f>"};
  EXPECT_TRUE(Camera.Connect(OptionsWith("back")));
  SetLogSink({});
  EXPECT_EQ(
      log,
      "Requesting feed list\nSending: http://camera1http://camera1/feedlist.xml?showstopped\n"
      "Request failed. Failed to connect to the HTTP server.\nSending: http://camera1\nReceived: \n"
      "Requesting feed list\nSending: http://camera1http://camera1/feedlist.xml?showstopped\n"
      "Received: <f><a/><a name='Back' id='2'/></f>\nComparing against \nComparing against Back\nFound 2\n"
      "Sending: http://camera1\nReceived: \n");
}

TEST_F(QuorvaneTest, MovesByOffsetsFromItsModel) {
  struct Row {
    std::function<void(PTZDevice&, PTZDevice2&)> move;
    const char* sent;
    float pan, tilt, zoom;
    const char* fault;
  };
  const Row rows[] = {
      {[](auto& d, auto&) { EXPECT_TRUE(d.Move(DirectionUpLeft, 10)); }, "&pan=-10&tilt=10", -10, 10, 0, ""},
      {[](auto& d, auto&) { EXPECT_TRUE(d.Move(DirectionDownRight, 1.5F)); }, "&pan=2&tilt=-2", -8, 8, 0,
       "-8.5 and 8.5 round to even"},
      {[](auto& d, auto&) { EXPECT_FALSE(d.MoveTo(5, 5)); }, "&pan=13&tilt=-3", 5, 5, 0,
       "made, but always False"},
      {[](auto&, auto& d) { d.Zoom(ZoomOut, 4); }, "&zoom=offset&level=-4", 5, 5, -4, "no bounds"},
      {[](auto&, auto& d) { d.MoveTo(-1.5F, 2.5F, -4); }, "&pan=-7&tilt=-3", -2, 2, -4, "ties to even"},
      {[](auto&, auto& d) { d.MoveTo(-2, 2, -4); }, "", -2, 2, -4, "nothing changes, sent all the same"},
  };
  Connect();
  for (const auto& row : rows) {
    row.move(Camera, Camera);
    EXPECT_EQ(Sent(), "move=offset" + std::string(row.sent)) << row.fault;
    EXPECT_EQ(Device.Pan(), row.pan) << row.fault;
    EXPECT_EQ(Device2.Tilt(), row.tilt) << row.fault;
    EXPECT_EQ(Device2.ZoomLevel(), row.zoom) << row.fault;
  }
  Device.Disconnect();
  Device2.MoveTo(1, 1, 1);
  Device2.ZoomTo(1);
  EXPECT_EQ(Sent(), "");
  EXPECT_EQ(Device2.ZoomLevel(), -4) << "outlives the connection";
  ASSERT_TRUE(Camera.Connect(OptionsWith("3", true)));
  EXPECT_EQ(Net.Sent.back().Object, "/ptz/control.htm?feed=3&move=offset&pan=2&tilt=-2&zoom=offset&level=4");
}

TEST_F(QuorvaneTest, OnlyABareOKMovesTheModel) {
  Connect();
  for (const auto& reply : {FakeReply{"ok"}, FakeReply{"OK\r\n"}, FakeReply{""}, FakeReply{" OK"},
                            FakeReply{"OK", "HTTP/1.1 200 OK", false}}) {
    Reply = reply;
    EXPECT_FALSE(Device.Move(DirectionUpLeft, 10)) << reply.Body;
    EXPECT_EQ(Device.Pan(), 0) << reply.Body;
    EXPECT_TRUE(Device.Zoom(ZoomIn)) << "True whatever happened";
    EXPECT_EQ(Device2.ZoomLevel(), 0) << reply.Body;
  }
  Reply = {"OK", "HTTP/1.1 500 Internal Server Error"};
  EXPECT_TRUE(Device.Move(DirectionUpLeft, 10)) << "the status does not matter";
  Sent();

  Device2.MoveTo(-2e9F, 0, 0);
  Sent();
  const std::function<void()> overflows[] = {
      [&] { Device2.MoveTo(2e9F, 0, 0); },          [&] { Device2.MoveTo(3e9F, 0, 0); },
      [&] { Device2.MoveTo(0, std::nanf(""), 0); }, [&] { Device2.ZoomTo(INFINITY); },
      [&] { Device.Move(DirectionLeft, 1e9F); },    [&] { Camera.ContinuousMove(std::nanf(""), 0); },
  };
  for (const auto& overflow : overflows) EXPECT_EQ(NumberOf(overflow), 6);
  EXPECT_EQ(Sent(), "") << "nothing leaves before the numbers are known";
  EXPECT_EQ(Device.Pan(), -2e9F);
}

TEST_F(QuorvaneTest, ContinuousMotionIsSentOnceAndStopsAlways) {
  Connect();
  Camera.ContinuousMove(0.5F, -1);
  Camera.ContinuousMove(0.5F, -1);
  EXPECT_EQ(Sent(), "move=joystick&x=0.5&y=-1");
  Camera.ContinuousMove(0, 1e-5F);
  EXPECT_EQ(Sent(), "move=joystick&x=0&y=1E-05");
  Camera.StopContinuous();
  Camera.StopContinuous();
  EXPECT_EQ(Sent(),
            "move=joystick&x=0&y=0 zoom=joystick&level=0 move=joystick&x=0&y=0 zoom=joystick&level=0");
  Reply = {.Answers = false};
  Camera.ContinuousZoom(0.25F);
  Device.Disconnect();
  Camera.ContinuousZoom(0.25F);
  EXPECT_EQ(Sent(), "zoom=joystick&level=0.25") << "a repeat, though the first one failed";
  Camera.ContinuousZoom(-0.25F);
  EXPECT_EQ(Sent(), "zoom=joystick&level=-0.25") << "needs no connection";
}

TEST_F(QuorvaneTest, NamedPresets) {
  Connect("Front Door");
  Reply = {
      "<?xml version=\"1.0\" encoding=\"windows-1252\"?>\r\n<presets>\r\n <preset id=\"a b\" name=\" Gate "
      "\x80\"/>"
      "<Preset id='no'/><group><preset id='no'/></group><preset id='A B' "
      "name='&lt;2&gt;'/><preset/></presets>"};
  const auto presets = Camera.GetNamedPresets();
  EXPECT_EQ(Net.Sent.back().Object, "/ptz/presets.xml?feed=Front Door") << "the id as it stands";
  ASSERT_EQ(presets.size(), 3U);
  EXPECT_EQ(presets[0].Index(), 0);
  EXPECT_EQ(presets[0].ID(), "a b");
  EXPECT_EQ(presets[0].Name(), " Gate \xE2\x82\xAC");
  EXPECT_EQ(presets[1].Index(), 1);
  EXPECT_EQ(presets[1].ID(), "A B");
  EXPECT_EQ(presets[1].Name(), "<2>");
  EXPECT_EQ(presets[2].ID() + presets[2].Name(), "");
  Reply = {"<presets/>"};
  EXPECT_TRUE(Camera.GetNamedPresets().empty());

  Camera.GotoNamedPreset("a b&c");
  EXPECT_EQ(Net.Sent.back().Object, "/ptz/control.htm?feed=Front+Door&move=preset&preset=a b&c");
  Reply = {.Answers = false};
  EXPECT_NO_THROW(Camera.GotoNamedPreset("1"));
  const auto sent = Net.Sent.size();
  EXPECT_NO_THROW(Camera.GotoNamedPreset("1\r\nX: y"));
  EXPECT_EQ(Net.Sent.size(), sent) << "no line of its own reaches the wire";
}

}  // namespace
}  // namespace ptzd::test
