// The Sanyo driver over real sockets against a camera written from the protocol.

#include "simulators/Sanyo.h"

#include "support/SimulatedCamera.h"
#include "transport/HTTPClient.h"

namespace ptzd {
namespace {

using namespace std::chrono_literals;

class SanyoSimulated : public test::SimulatedCamera<ptzsim::Sanyo> {
 protected:
  void SetUp() override {
    Start();
    Connect("QVPTZ.Sanyo");
  }
  void Pass(std::chrono::milliseconds time) {
    Camera->Time().Advance(time);
    Clock.Advance(time.count());
  }
};

TEST(SanyoCommands, OfOtherClientsAreTaken) {
  ptzsim::Sanyo camera({.Clock = ptzsim::ClockKind::Manual});
  HTTPClient host;
  const auto get = [&](const std::string& target) {
    host.GetResource("http://" + camera.Addresses().at(0) + target, "", "");
    camera.Time().Advance(100ms);
    return camera.Head();
  };
  const auto start = get("/index.html");
  EXPECT_TRUE(get("/cgi-bin/opecmd.cgi?ope=51&cmd=3&p_speed=1&t_speed=1").Moving);
  EXPECT_FALSE(get("/cgi-bin/opecmd.cgi?ope=51&cmd=12").Moving);
  EXPECT_GT(get("/cgi-bin/opecmd.cgi?ope=51&cmd=9&z_speed=1").Zoom, start.Zoom);
  EXPECT_EQ(camera.Log().Violations(), std::vector<std::string>{});
}

TEST_F(SanyoSimulated, SaysItInTheseBytes) {  // from 23.75 and -14.5, zoom 3.75
  EXPECT_TRUE(Driver->Move(DirectionUpLeft, 10));
  EXPECT_TRUE(Driver->MoveTo(13.75F, -7.5F));
  EXPECT_TRUE(Driver->MoveBoth(5, 0));
  for (const auto zoom : {ZoomIn, ZoomOut}) EXPECT_TRUE(Driver->Zoom(zoom));
  EXPECT_TRUE(Driver->PresetSave(2) && Driver->PresetGoto(6));
  for (const auto& [pan, tilt] :
       {std::pair{-20.0F, 20.0F}, {-20, 0}, {-20, -20}, {0, 20}, {0, -20}, {20, 20}, {20, 0}, {10, -10}})
    Continuous().ContinuousMove(pan, tilt);
  EXPECT_EQ(Driver->Pan(), 23.75F) << "asks, as behind every motion";
  for (const float speed : {0.5F, -1.0F}) Continuous().ContinuousZoom(speed);
  EXPECT_EQ(Driver->Pan(), 23.75F);
  Continuous().StopContinuous();
  EXPECT_EQ(Driver->Pan(), 23.75F);
  EXPECT_EQ(Driver->Tilt(), -14.5F);
  Clock.Advance(60001);
  EXPECT_TRUE(Driver->PresetSave(0));
  EXPECT_TRUE(Driver->Move(DirectionDownRight, 3));
  ExpectSent(
      "/cgi-bin/opecmd.cgi?ope=",
      "/index.html /liveimg.cgi?pol=1 20&pan_dir=2&pan_percent=36&tilt_dir=1&tilt_percent=67 "
      "20&tilt_dir=2&tilt_percent=20 20&pan_dir=1&pan_percent=18 18 19 8&registration=3 11&execution=7 "
      "51&cmd=1&p_speed=7&t_speed=7 51&cmd=4&p_speed=7&t_speed=0 51&cmd=6&p_speed=7&t_speed=7 "
      "51&cmd=2&p_speed=0&t_speed=7 51&cmd=7&p_speed=0&t_speed=7 51&cmd=3&p_speed=7&t_speed=7 "
      "51&cmd=5&p_speed=7&t_speed=0 51&cmd=8&p_speed=3&t_speed=4 /liveimg.cgi?pol=1 "
      "51&cmd=9 51&cmd=10 /liveimg.cgi?pol=1 "
      "51&cmd=12&p_speed=0&t_speed=0 51&cmd=11 /liveimg.cgi?pol=1 "
      "/index.html 8&registration=1 "
      "/liveimg.cgi?pol=1 20&pan_dir=1&pan_percent=11&tilt_dir=2&tilt_percent=20");
}

TEST_F(SanyoSimulated, TheSessionsCookieIsKeptAndTheSessionAlive) {
  const auto commandAndCookie = [&] {
    EXPECT_TRUE(Driver->Zoom(ZoomIn));
    EXPECT_EQ(Camera->Log().Requests().back().Status, 200);
    return Camera->Log().Requests().back().Header("Cookie");
  };
#ifndef _WIN32  // keeps the cookies of the cameras before
  EXPECT_EQ(Camera->Log().Requests().front().Header("Cookie"), "");
#endif
  const auto session = commandAndCookie();
  EXPECT_NE(session, "");
  for (int minute = 0; minute < 10; ++minute) {
    Pass(61s);
    EXPECT_EQ(commandAndCookie(), session) << "of five minutes";
  }
  Camera->Time().Advance(6min);
  Clock.Advance(60001);
  EXPECT_TRUE(Driver->PresetGoto(0));
  EXPECT_NE(commandAndCookie(), session) << "a session that is over is replaced";
}

}  // namespace
}  // namespace ptzd
