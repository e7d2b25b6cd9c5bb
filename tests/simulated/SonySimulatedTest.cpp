// The Sony driver over real sockets against cameras that check every byte, and its sends that wait for
// nobody.

#include "simulators/Sony.h"

#include <gtest/gtest.h>

#include <list>
#include <optional>
#include <thread>

#include <ptzd/DriverFactory.h>
#include <ptzd/PTZContinuousControl.h>
#include <ptzd/PTZDevice2.h>
#include "support/AsyncSends.h"
#include "support/FakeClock.h"
#include "support/Options.h"
#include "support/Script.h"
#include "support/Wine.h"
#include "transport/HTTPClientHelper.h"

namespace ptzd {
namespace {

using namespace std::chrono_literals;
using Camera = ptzsim::Sony;

class SonySimulated : public testing::Test {
 protected:
  struct Connection {
    std::unique_ptr<PTZDevice> Driver;
    PTZDevice2& Device2() { return dynamic_cast<PTZDevice2&>(*Driver); }
    PTZContinuousControl& Continuous() { return dynamic_cast<PTZContinuousControl&>(*Driver); }
    void Run(int speed) { Continuous().ContinuousMove(static_cast<float>(speed), 0); }
  };

  Camera& Start(const char* model) {
    return Cameras.emplace_back(Camera::Options{.Model = model, .Clock = ptzsim::ClockKind::Manual});
  }
  /// Connects and forgets the requests of it.
  Connection Connect(Camera& camera) {
    Connection connection{CreateDriver("QVPTZ.Sony", {.Clock = &Clock})};
    EXPECT_TRUE(connection.Driver->Connect(test::CameraOptions({}, camera.Addresses().at(0))));
    camera.Log().Clear();
    return connection;
  }
  /// Until the camera has the command; then long enough for any motion to end, and for the driver to ask
  /// again.
  void Settle(Camera& camera, std::size_t commands = 1) {
    ASSERT_TRUE(camera.Log().WaitForRequests(commands));
    camera.Time().Advance(60s);
    camera.Log().Clear();
    Clock.Advance(5000);
  }

  void SetUp() override {
    if (test::UnderWine())
      GTEST_SKIP() << "under Wine asynchronous sends keep no order and outlive their session";
  }
  void TearDown() override {
    EXPECT_TRUE(Sends.WaitForClosed(Sends.Sent()));
    EXPECT_EQ(AsyncHandles().Count(), 0U);
    EXPECT_EQ(SystemInternet().OpenHandles(), HandlesBefore);
    for (auto& camera : Cameras) EXPECT_EQ(camera.Log().Violations(), std::vector<std::string>{});
  }

  test::FakeClock Clock;
  test::AsyncSends Sends;
  std::size_t HandlesBefore = SystemInternet().OpenHandles();
  std::list<Camera> Cameras;
};

TEST_F(SonySimulated, StepsCountFromWhereTheCameraIs) {
  struct Row {
    const char* model;
    float pan, tilt;
    long panUnits, tiltUnits;
    const char* fault;
  };
  // All begin at 217, -134.
  for (const auto& [model, pan, tilt, panUnits, tiltUnits, fault] : {
           Row{"SNC-RZ50P", 10, -5, 361, -206, "right and down"},
           Row{"SNC-RZ50P", 200, 0, 2448, -134, "beyond the end"},
           Row{"SNC-RZ30N", 10, -5, 73, -62, "units run against degrees"},
           Row{"SNC-RX550N", 175, 0, -3631, -134, "right over the end of an endless head"},
           Row{"SNC-RX550N", -200, 0, 3545, -134, "left over it"},
           Row{"SNC-RS46N", 175, 10, -3631, -22, "and over that of another"},
           Row{"SNC-EP521", 20, 10, 497, -22, "read from the ptzf page"},
       }) {
    SCOPED_TRACE(fault);
    auto& camera = Start(model);
    auto connection = Connect(camera);
    EXPECT_TRUE(connection.Driver->MoveBoth(pan, tilt));
    Settle(camera, 2);
    EXPECT_EQ(camera.Head().Pan, panUnits);
    EXPECT_EQ(camera.Head().Tilt, tiltUnits);
  }
}

// A stop must not queue behind the answers that a camera holds back, nor may any move wait for one.
TEST_F(SonySimulated, CommandsReachASilentCameraAtOnceAndInOrder) {
  auto& camera = Start("SNC-RZ50P");
  auto connection = Connect(camera);
  camera.Faults().Set("at=ptzf.cgi,silent");
  EXPECT_TRUE(connection.Driver->MoveTo(10, 0));
  EXPECT_EQ(AsyncHandles().Count(), 1U) << "the move has returned and its answer is still out";
  EXPECT_TRUE(connection.Driver->MoveTo(-10, 0));
  connection.Device2().MoveTo(0, -90, 1);
  connection.Continuous().ContinuousMove(0, 0);
  ASSERT_TRUE(camera.Log().WaitForRequests(5));
  EXPECT_EQ(test::Script(camera.Log()),
            // 144, 468; -144, 468; 0, -828; zoom 5200
            "GET /command/ptzf.cgi?visca=8101060218180000090000010D04FF\n"
            "GET /command/ptzf.cgi?visca=8101060218180F0F070000010D04FF\n"
            "GET /command/ptzf.cgi?visca=810106021818000000000F0C0C04FF\n"
            "GET /command/ptzf.cgi?visca=8101044701040500FF\n"
            "POST /command/ptzf.cgi ContinuousPanTiltZoom=0,0,0,Image1\n");
  EXPECT_EQ(AsyncHandles().Count(), 4U) << "the oldest is given up";
  camera.Faults().Clear();
  EXPECT_NEAR(connection.Driver->Tilt(), -90, 60) << "an inquiry does not wait for them either";
}

// What was sent over a new connection may be read after what was sent later over one that the camera knows.
TEST_F(SonySimulated, NoCommandOvertakesTheOneBefore) {
  auto& camera = Start("SNC-RZ50P");
  auto connection = Connect(camera);
  camera.Faults().Set("next=1,at=ptzf.cgi,delay=200");
  connection.Run(1);
  ASSERT_TRUE(camera.Log().WaitForRequests(1));
  camera.Faults().Set("next=1,at=ptzf.cgi,silent");
  connection.Run(2);
  ASSERT_TRUE(camera.Log().WaitForRequests(2));
  ASSERT_TRUE(Sends.WaitForClosed(1)) << "the first is answered, its connection is free";
  connection.Run(0);
  ASSERT_TRUE(camera.Log().WaitForRequests(3));
  const auto requests = camera.Log().Requests();
  EXPECT_GT(requests[2].Connection, requests[1].Connection);
}

TEST_F(SonySimulated, DriversSendingAtOnceCloseOnlyTheirOwnHandles) {
  constexpr int sends = 40, unanswered = 4;  // of more the oldest are given up
  auto &silent = Start("SNC-EP521"), &lively = Start("SNC-RZ50P");
  auto first = std::make_optional(Connect(silent)), second = std::make_optional(Connect(lively));
  silent.Faults().Set("at=ptzf.cgi,silent");
  const auto send = [](Connection& connection, int count) {
    for (int i = 1; i <= count; ++i) connection.Run(i);
  };
  std::thread other([&] { send(*first, unanswered); });
  send(*second, sends);
  other.join();
  ASSERT_TRUE(Sends.WaitForClosed(sends)) << "those that are answered";
  EXPECT_EQ(AsyncHandles().Count(), std::size_t{unanswered}) << "those of the silent camera";
  second.reset();
  EXPECT_EQ(AsyncHandles().Count(), std::size_t{unanswered});
  ASSERT_TRUE(silent.Log().WaitForRequests(unanswered));
  ASSERT_TRUE(lively.Log().WaitForRequests(sends));
  for (int i = 1; i <= unanswered; ++i) {
    const auto body = "ContinuousPanTiltZoom=" + std::to_string(4 * i) + ",0,0,Image1";
    EXPECT_EQ(silent.Log().Requests().at(i - 1).Body, body);
  }
  first.reset();  // with all its sends in flight
}

// Made for the thread sanitizer: several drivers, on threads of their own, share one worker and one
// collection.
TEST_F(SonySimulated, TenThousandSends) {
  constexpr int drivers = 4, sends = 2500, atOnce = 20;
  auto &one = Start("SNC-RZ50P"), &other = Start("SNC-P5");
  std::vector<Connection> connections;
  for (int i = 0; i < drivers; ++i) connections.push_back(Connect(i % 2 == 0 ? one : other));
  std::vector<std::thread> threads;
  for (auto& connection : connections) {
    threads.emplace_back([&] {
      for (int i = 1; i <= sends; ++i) {
        connection.Run(1 + i % 20);
        // Nobody waits for a command, so whoever never pauses runs out of file descriptors.
        if (i % atOnce == 0) Sends.WaitForClosed(Sends.Sent() - drivers * atOnce);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  connections.clear();
  EXPECT_EQ(Sends.Sent(), drivers * sends);
  for (auto* camera : {&one, &other}) EXPECT_TRUE(camera->Log().WaitForRequests(drivers / 2 * sends));
}

TEST_F(SonySimulated, AViscaCameraIsSent) {
  auto& camera = Start("SNC-RZ50P");
  camera.Faults().Set("next=1,at=visca-inquiry.cgi,status=404 Later");  // which is not "Not Found"
  Connection connection{CreateDriver("QVPTZ.Sony", {.Clock = &Clock})};
  connection.Driver->Connect(test::CameraOptions({{"Reset", true}}, camera.Addresses().at(0)));
  const auto sent = [&](std::size_t requests) {  // inquiries do not wait for the commands before them
    ASSERT_TRUE(camera.Log().WaitForRequests(requests));
    camera.Time().Advance(60s);
  };
  sent(4);
  connection.Driver->MoveTo(10, -40);  // 14.4 units a degree, tilt from -32.5
  sent(5);
  connection.Driver->MoveBoth(-5, 2);
  sent(7);
  connection.Device2().ZoomTo(1);
  connection.Driver->Zoom(ZoomOut);
  connection.Continuous().ContinuousMove(1.5F, -2.5F);
  connection.Continuous().ContinuousMove(1.5F, -2.5F);
  connection.Continuous().StopContinuous();  // sends nothing, as a repeated motion does
  connection.Continuous().ContinuousZoom(3);
  connection.Continuous().ContinuousMove(0, 0);
  connection.Continuous().ContinuousZoom(0);
  connection.Continuous().ContinuousMove(0, 0);
  sent(14);
  connection.Driver->Pan();
  const std::string inquiry = "GET /command/visca-inquiry.cgi?visca=81090612ff\n",
                    visca = "GET /command/ptzf.cgi?visca=",
                    runs = "POST /command/ptzf.cgi ContinuousPanTiltZoom=";
  EXPECT_EQ(test::Script(camera.Log()),
            "GET /command/inquiry.cgi?inq=system\nGET /command/inquiry.cgi?inq=sysinfo\n" + inquiry +  //
                visca + "8101060218180000000000000000FF\n" +                                           //
                visca + "81010602181800000900" + "0F0F0904FF\n" +                  // 144, -108
                inquiry + visca + "81010602181800000408" + "0F0F0B01FF\n" +        // 72, -79
                visca + "8101044701040500FF\n" + visca + "81010447000F030CFF\n" +  // 5200, 3900
                runs + "8,-10,0,Image1\n" + runs + "8,-10,24,Image1\n" + runs + "0,0,24,Image1\n" + runs +
                "0,0,0,Image1\n" + runs + "0,0,0,Image1\n" + inquiry);
}

TEST_F(SonySimulated, CamerasWithoutViscaAreSent) {
  auto& camera = Start("SNC-EP521");
  auto connection = Connect(camera);
  connection.Driver->MoveTo(10, -45);  // 14 and 11.2 units a degree
  connection.Device2().ZoomTo(1);
  connection.Device2().ZoomTo(-1);
  auto& steps = Start("SNC-P5");
  auto stepping = Connect(steps);
  stepping.Driver->Zoom(ZoomIn);
  stepping.Driver->Zoom(ZoomOut);
  stepping.Driver->MoveTo(10, 5);  // 9.4 and 7.5333, tilt from -35
  ASSERT_TRUE(camera.Log().WaitForRequests(5) && steps.Log().WaitForRequests(5));
  const std::string post = "POST /command/ptzf.cgi ", there = post + "AbsolutePanTilt=008C,FE08,22\n",
                    stays = post + "AbsolutePanTilt=0000,0000,20\n";
  EXPECT_EQ(test::Script(camera.Log()),
            there + there + post + "AbsoluteZoom=1450\n" + there + post + "AbsoluteZoom=0000\n");
  EXPECT_EQ(test::Script(steps.Log()), stays + post + "RelativeZoom=0080\n" + stays + post +
                                           "RelativeZoom=FF80\n" + post + "AbsolutePanTilt=005E,012D,20\n");
}

}  // namespace
}  // namespace ptzd
