#include "drivers/Sanyo.h"

#include <limits>

#include "common/Numbers.h"
#include "support/DriverTest.h"

namespace ptzd::test {
namespace {

constexpr const char* Index = "/index.html";
constexpr const char* StatusPage = "/liveimg.cgi?pol=1";
const std::string Operation = "/cgi-bin/opecmd.cgi?ope=";
const std::string Unknown = "LIVE\x01\x03";  // neither pan and tilt nor zoom

/// Pan, tilt and zoom, and bytes beyond, behind the flags.
std::string Status(char flags, const std::string& words) {
  return "\x01\x1E\x07\xD2\x34" + std::string(1, flags) + "\x0B\x2C\x58\x13\x61\x9F\x05\x80\x04\x38" + words;
}
const std::string Words("\x09\x47\xFA\x56\x01\x77", 6);  // 23.75, -14.5, 3.75

class SanyoTest : public DriverTest<Sanyo> {
 protected:
  SanyoTest() {
    Net.Answer = [this](const SentRequest& request) {
      if (request.Object == Silent) return FakeReply{.Answers = false};
      return FakeReply{request.Object == StatusPage ? Reply : "", StatusLine};
    };
  }

  void Connect() { EXPECT_TRUE(Camera.Connect(CameraOptions())); }
  void Renew() {
    DriverTest::Renew();
    Connect();
    Net.Sent.clear();
  }
  /// Commands alone, one after the other.
  std::string Commands() {
    std::string commands;
    for (const auto& request : std::exchange(Net.Sent, {}))
      if (request.Object.starts_with(Operation))
        commands += (commands.empty() ? "" : " ") + request.Object.substr(Operation.size());
    return commands;
  }
  std::string Position() { return Text(Camera.Pan()) + " " + Text(Camera.Tilt()); }

  std::string Reply = Unknown, Silent, StatusLine = "HTTP/1.1 200 OK";
};

TEST_F(SanyoTest, Connects) {
  Silent = Index;
  EXPECT_EQ(ErrorOf([&] { Connect(); }), "13104 Failed to connect to the HTTP server.");
  EXPECT_FALSE(Camera.Connected());
  EXPECT_EQ(Sent(), "/index.html");
  Silent = StatusPage;
  Connect();
  EXPECT_TRUE(Camera.Connected()) << "a position that is not answered is no failure";
  Silent.clear();
  Reply = Status(0, Words);
  StatusLine = "HTTP/1.1 404 Not Found";
  Connect();
  EXPECT_EQ(Sent(), "/index.html\n/liveimg.cgi?pol=1\n/index.html\n/liveimg.cgi?pol=1");
  EXPECT_EQ(Position(), "23.75 -14.5") << "read even though it is not old, and no status is minded";
  Reply = "short";
  EXPECT_EQ(ErrorOf([&] { Connect(); }), "9 Subscript out of range");
  EXPECT_FALSE(Camera.Connected()) << "not any more";
  Camera.Disconnect();
}

TEST_F(SanyoTest, Moves) {
  struct Row {
    std::function<bool(Sanyo&)> move;
    const char *sent, *position, *fault;
  };
  const auto raises6 = [](auto call) { return NumberOf(call) == 6; };
  const Row rows[] = {
      {[](auto& c) { return c.MoveTo(-5, 3); }, "20&pan_dir=2&pan_percent=18&tilt_dir=1&tilt_percent=20",
       "-5 3", ""},
      {[](auto& c) { return c.MoveTo(0.6875F, -1.125F); },
       "20&pan_dir=1&pan_percent=2&tilt_dir=2&tilt_percent=8", "0.6875 -1.125", "2.5 and 7.5 are even"},
      {[](auto& c) { return c.MoveTo(-0.1F, 0); }, "20&pan_dir=1&pan_percent=0", "-0.1 0",
       "a step that is none has no direction"},
      {[](auto& c) { return c.Move(DirectionDownLeft); },
       "20&pan_dir=2&pan_percent=18&tilt_dir=2&tilt_percent=33", "-5 -5", ""},
      {[](auto& c) { return c.Move(DirectionUpRight, 0.3F); },
       "20&pan_dir=1&pan_percent=1&tilt_dir=1&tilt_percent=2", "0.3 0.3", ""},
      {[](auto& c) { return c.MoveBoth(200, 0) && c.MoveBoth(-1, 0); },
       "20&pan_dir=1&pan_percent=727 20&pan_dir=2&pan_percent=4", "199 0", "no wrap"},
      {[](auto& c) { return c.Zoom(ZoomOut) && c.Zoom(static_cast<Zooms>(3)); }, "", "0 0", "not below 0"},
      {[](auto& c) { return c.PresetGoto(0) && c.PresetSave(254); }, "11&execution=1 8&registration=255",
       "0 0", "the camera counts from 1"},
      {[&](auto& c) {
         return raises6([&] { c.MoveTo(std::nanf(""), 0); }) && raises6([&] { c.MoveTo(3, 1e9F); }) &&
                raises6([&] { c.Move(DirectionLeft, INFINITY); }) &&
                raises6([&] { c.PresetGoto(std::numeric_limits<std::int32_t>::max()); }) &&
                raises6([&] { c.ContinuousMove(1, INFINITY); }) &&
                raises6([&] { c.ContinuousMove(std::nanf(""), 1); }) &&
                raises6([&] { c.ContinuousMove(1e11F, 1); });
       },
       "", "0 0", "one number too large stops the others too"},
  };
  for (const bool answers : {true, false})
    for (const auto& [move, sent, position, fault] : rows) {
      Net.Answer = [](const auto&) { return FakeReply{Unknown}; };
      Renew();
      Net.Answer = [answers](const auto&) { return FakeReply{.Answers = answers}; };
      EXPECT_TRUE(move(Camera)) << fault;
      EXPECT_EQ(Commands(), sent) << fault;
      EXPECT_EQ(Position(), position) << fault << ": also where nothing answers";
    }
  EXPECT_FALSE(Camera.SendOpeCmd(50));
  Net.Answer = [](const auto&) { return FakeReply{}; };
  EXPECT_TRUE(Camera.SendOpeCmd(-7, "a=b"));
  EXPECT_EQ(Commands(), "50 -7&a=b");
}

TEST_F(SanyoTest, Flags) {
  struct Row {
    char flags;
    std::size_t enough;  // bytes
    const char* zoomedOut;
  };
  for (const auto& [flags, enough, zoomedOut] :
       {Row{'\x00', 22, "19"}, Row{'\x01', 22, "19"}, Row{'\x02', 20, ""}, Row{'\x03', 6, ""},
        Row{'\xFC', 22, "19"}}) {
    const auto whole = Status(flags, Words + "\xFF\xD8");
    for (std::size_t length = 0; length <= whole.size(); ++length) {
      Reply = Unknown;
      Renew();
      Camera.MoveTo(10, 20);
      Camera.SetPanTilt(1, 2);
      Reply = whole.substr(0, length);
      EXPECT_EQ(NumberOf([&] { Camera.Pan(); }), length < enough ? 9 : 0) << length;
      // A tick later the same reading holds, with what was there of it.
      const bool pan = length >= 18 && (flags & 1) == 0, tilt = length >= 20 && (flags & 1) == 0;
      EXPECT_EQ(Position(), std::string(pan ? "23.75" : "10") + (tilt ? " -14.5" : " 20")) << length;
      if (length < enough) continue;
      Commands();
      Camera.Zoom(ZoomOut);
      EXPECT_EQ(Commands(), zoomedOut) << "from where the camera is";
    }
  }
  Reply = Status(0, std::string("\x80\x00\x7F\xFF\x00\x0A", 6));
  Renew();
  EXPECT_EQ(Position(), "-327.68 327.67");
  Camera.Zoom(ZoomOut);
  Camera.Zoom(ZoomOut);
  EXPECT_EQ(Commands(), "19") << "from 0.1 to 0";
  Reply = Status(0, std::string("\0\0\0\0\xFF\xCE", 6));
  Renew();
  Camera.MoveTo(10, 0);
  EXPECT_EQ(Commands(), "20&pan_dir=1&pan_percent=36 18") << "from -0.5 to 0, after the head";
}

TEST_F(SanyoTest, TheSessionIsKeptAlive) {
  Renew();
  Time.Advance(60000);
  Camera.Zoom(ZoomIn);
  EXPECT_EQ(Sent(), "/liveimg.cgi?pol=1\n/cgi-bin/opecmd.cgi?ope=18");
  Time.Advance(1);
  Camera.Pan();
  EXPECT_EQ(Sent(), "") << "only commands do";
  Silent = Index;
  Camera.Zoom(ZoomOut);
  EXPECT_EQ(Sent(), "/index.html\n/cgi-bin/opecmd.cgi?ope=19") << "and go out without";
  Time.Advance(60000);
  Camera.PresetGoto(6);
  EXPECT_EQ(Sent(), "/cgi-bin/opecmd.cgi?ope=11&execution=7");
  Time.Advance(1);
  Camera.StopContinuous();
  EXPECT_EQ(Sent(),
            "/index.html\n/cgi-bin/opecmd.cgi?ope=51&cmd=12&p_speed=0&t_speed=0\n"
            "/cgi-bin/opecmd.cgi?ope=51&cmd=11");
}

TEST_F(SanyoTest, ContinuousMotion) {
  struct Row {
    float pan, tilt;
    const char *parameters, *fault;
  };
  const Row rows[] = {
      {0, 10, "cmd=2&p_speed=0&t_speed=3", ""},
      {-10, 0, "cmd=4&p_speed=4&t_speed=0", "3.5 is 3 to the right and 4 to the left"},
      {10, 0, "cmd=5&p_speed=3&t_speed=0", ""},
      {1, -1, "cmd=8&p_speed=0&t_speed=1", "the direction is that of the arguments"},
      {60.0F / 7, 0, "cmd=5&p_speed=3&t_speed=0", "a whole speed in single precision only"},
      {100, 0, "cmd=5&p_speed=35&t_speed=0", "no bounds"},
      {0, 0, "cmd=12&p_speed=0&t_speed=0", "a stop"},
      {0, 0, "cmd=12&p_speed=0&t_speed=0", "repeats are sent"},
  };
  Renew();
  for (const auto& [pan, tilt, parameters, fault] : rows) {
    Camera.ContinuousMove(pan, tilt);
    EXPECT_EQ(Commands(), "51&" + std::string(parameters)) << fault;
  }
  for (const float amount : {0.01F, -3.0F, 0.0F}) Camera.ContinuousZoom(amount);
  EXPECT_EQ(Commands(), "51&cmd=9 51&cmd=10 51&cmd=11");
}

}  // namespace
}  // namespace ptzd::test
