#include "drivers/Panogenics.h"

#include <array>
#include "support/DriverTest.h"

namespace ptzd::test {
namespace {

constexpr const char* PlaceQuery = "/ptz/listptz.cgi?view=1";

/// Pan, tilt and zoom as the driver tells them.
using Model = std::array<float, 3>;

class PanogenicsTest : public DriverTest<Panogenics> {
 protected:
  PanogenicsTest() {
    Net.Answer = [this](const auto& request) {
      const auto has = [&](const char* text) { return request.Object.find(text) != std::string::npos; };
      return has("listcamparam") ? Probe : has("listptz") ? Told : has("view=6") ? Twin : Reply;
    };
  }
  void Connect(const Variant& port = 0, const Variant& link = false) {
    Told = {"view=1 apan:190 atilt:-10 azoom:265"};
    ASSERT_TRUE(Device2.Connect(CameraOptions({{"Port", port}, {"LinkViews", link}})));
    EXPECT_EQ(Now(), (Model{-170, -10, 5.3F}));
    Told = {.Answers = false};
    Sent();
  }
  Model Now() { return {Device.Pan(), Device2.Tilt(), Device2.ZoomLevel()}; }
  static std::string Command(const char* pan, const char* tilt, const char* zoom) {
    return std::string("/ptz/ptz.cgi?view=1&apan=") + pan + "&atilt=" + tilt + "&azoom=" + zoom;
  }

  FakeReply Probe{"fw=3.1.7"}, Told, Reply{"PTZ OK"}, Twin{"PTZ OK"};
  PTZDevice2& Device2 = Camera;
};

TEST_F(PanogenicsTest, ReadsItsOptionsBehindTheProbe) {
  const std::pair<OptionValues, int> rows[] = {{{{"Port", 70000}}, 6},
                                               {{{"Port", std::string("two")}}, 13},
                                               {{{"LinkViews", std::string("perhaps")}}, 13}};
  for (const auto& [options, number] : rows) {
    EXPECT_EQ(NumberOf([&, options = options] { Device.Connect(CameraOptions(options)); }), number);
    EXPECT_FALSE(Device.Connected());
    EXPECT_EQ(Sent(), "/admin/listcamparam.cgi");
  }
}

TEST_F(PanogenicsTest, ThePortIsAViewAndItsTwinMovesAlong) {
  struct Row {
    Variant port, link;
    const char* views;
  };
  const Row rows[] = {
      {0, true, "15"}, {1, true, "15"}, {std::string("2"), true, "26"}, {4, true, "48"}, {4, false, "4"},
      {5, true, "5"},  {9, true, "9"},
  };
  for (const auto& row : rows) {
    Connect(row.port, row.link);
    EXPECT_TRUE(Device.MoveTo(10, 5));
    std::string expected;
    for (const char* view = row.views; *view; ++view)
      expected += std::string(view == row.views ? "" : "\n") + "/ptz/ptz.cgi?view=" + *view +
                  "&apan=10&atilt=5&azoom=265";
    EXPECT_EQ(Sent(), expected);
  }
  Connect(-1, true);
  Time.Advance(5000);
  EXPECT_TRUE(Device.MoveBoth(0, 0));
  EXPECT_EQ(Sent(), "/ptz/listptz.cgi?view=-1\n/ptz/ptz.cgi?view=-1&apan=-170&atilt=-10&azoom=265")
      << "is as told, and has no twin";
  EXPECT_TRUE(Device.Connect(CameraOptions()));
  EXPECT_EQ(Sent(), std::string("/admin/listcamparam.cgi\n") + PlaceQuery);
  EXPECT_TRUE(Device.MoveTo(0, 0));
  EXPECT_EQ(Net.Sent.size(), 2U) << "views are linked unless told otherwise";
}

TEST_F(PanogenicsTest, OnlyTheExactReplyIsObedience) {
  const std::string page = "<html><body>PTZ OK</body></html>";
  struct Row {
    FakeReply first, second;
    bool obeyed;
    std::size_t requests;
  };
  std::vector<Row> rows = {
      {{"PTZ OK"}, {page}, true, 2},
      {{page}, {"PTZ OK", "HTTP/1.1 500 Busy"}, true, 2},
      {{page}, {"PTZ ERROR"}, false, 2},
      {{page}, {.Answers = false}, false, 2},
      {{"PTZ ERROR"}, {page}, false, 1},
      {{.Answers = false}, {page}, false, 1},
      {{"PTZ OK\r\n"}, {page}, false, 1},
      {{page + "\n"}, {page}, false, 1},
      {{"<html><body></body></html>"}, {page}, false, 1},
      {{"<body>PTZ OK</body></html>"}, {page}, false, 1},
  };
  for (std::size_t at = 0; at < page.size(); ++at) {
    rows.push_back({{page.substr(0, at)}, {page}, false, 1});
    auto flipped = page;
    flipped[at] ^= 4;
    rows.push_back({{page}, {flipped}, false, 2});
  }
  for (const auto& row : rows) {
    Connect(2, true);
    Reply = row.first;
    Twin = row.second;
    EXPECT_EQ(Device.MoveTo(20, 30), row.obeyed) << row.first.Body << ", " << row.second.Body;
    EXPECT_EQ(Net.Sent.size(), row.requests) << row.first.Body << ", " << row.second.Body;
    EXPECT_EQ(Now(), (Model{20, 30, 5.3F}));  // obeyed or not, on purpose
  }
}

TEST_F(PanogenicsTest, Targets) {
  struct Row {
    Model target;
    const char *pan, *tilt, *zoom;  // as sent
    float panAfter, zoomAfter;
    const char* fault;
  };
  const Row rows[] = {
      {{180, 2.5F, 3}, "180", "2", "150", 180, 3, "both ends are in range; halves to even, kept"},
      {{-180, 100, 0}, "-180", "100", "0", -180, 0, "tilts beyond the camera's end"},
      {{540, -3.5F, -1}, "180", "-4", "0", 180, 0, "no negative zoom"},
      {{-900, 0, 12}, "-180", "0", "500", -180, 10, ""},
      {{-541.5F, -0.5F, INFINITY}, "178", "0", "500", 178.5F, 10, "never -0"},
      {{1.5F, 0, 0.05F}, "2", "0", "2", 1.5F, 0.05F, "2.5 as a single, more as a double"},
  };
  Connect();
  for (const auto& row : rows) {
    Device2.MoveTo(row.target[0], row.target[1], row.target[2]);
    EXPECT_EQ(Sent(), Command(row.pan, row.tilt, row.zoom)) << row.fault;
    EXPECT_EQ(Now(), (Model{row.panAfter, row.target[1], row.zoomAfter})) << row.fault;
  }
  Connect();
  EXPECT_EQ(NumberOf([&] { Device.MoveTo(-3e9F, 0); }), 6);
  EXPECT_EQ(Sent(), "");
  EXPECT_EQ(Now(), (Model{-170, -10, 5.3F}));
}

TEST_F(PanogenicsTest, PositionReplies) {
  struct Row {
    const char* reply;
    Model after;
    const char* fault;
    std::int32_t error = 0;
  };
  const Row rows[] = {
      {"<html><body>view=1 apan:359 atilt:8 azoom:3</body></html>", {-1, 8, 0.06F}, "the last value too"},
      {"apan:1 atilt:2 azoom:100", {1, 2, 2}, "no = at all"},
      {"apan:5 view=1 atilt:6", {-170, 6, 5.3F}, "what stands before the = is nothing"},
      {"view=1 apan:7 x=1 atilt:3", {7, 3, 5.3F}, "only the first = counts"},
      {"view=apan:30:40", {30, -10, 5.3F}, "a second colon ends the value"},
      {"view=1 Apan:3 xapan:4 apan;5", {-170, -10, 5.3F}, "keys compare exactly"},
      {"view=1 apan", {0, -10, 5.3F}, "no number is 0"},
      {"view=1 apan:180", {180, -10, 5.3F}, "both ends are in range"},
      {"view=1 apan:-180", {-180, -10, 5.3F}, ""},
      {"view=1 apan:-900.5", {179.5F, -10, 5.3F}, "more than one turn"},
      {"<html><body></body></html>", {-170, -10, 5.3F}, ""},
      {"view=1 apan:1 atilt:2 azoom:1e41", {-170, -10, 5.3F}, "an overflow keeps it all", 6},
      {"view=1 atilt:1 apan:3e9", {-170, -10, 5.3F}, "no angle to bring into range", 6},
      {"view=1 apan:1 atilt:1e400", {-170, -10, 5.3F}, "also of a double", 6},
  };
  for (const auto& row : rows) {
    Connect();
    Time.Advance(5000);
    Told = {row.reply};
    EXPECT_EQ(NumberOf([&] { Device.MoveBoth(0, 0); }), row.error) << row.fault;
    EXPECT_EQ(Net.Sent.size(), row.error ? 1U : 2U) << "nothing moves on a 6";
    EXPECT_EQ(Now(), row.after) << row.reply;
  }
}

TEST_F(PanogenicsTest, Presets) {
  Connect();
  EXPECT_EQ(NumberOf([&] { Device.PresetSave(0x7FFFFFFF); }), 6);
  EXPECT_EQ(NumberOf([&] { Device.PresetGoto(0x7FFFFFFF); }), 6);
  EXPECT_EQ(Sent(), "");
}

}  // namespace
}  // namespace ptzd::test
