#include "drivers/Sony.h"

#include <random>

#include <ptzd/Logging.h>
#include "common/Numbers.h"
#include "support/DriverTest.h"
#include "transport/HTTPClientHelper.h"

namespace ptzd::test {
namespace {

constexpr const char* System = "/command/inquiry.cgi?inq=system";
constexpr const char* SysInfo = "/command/inquiry.cgi?inq=sysinfo";
constexpr const char* Ptzf = "/command/inquiry.cgi?inq=ptzf";
constexpr const char* Visca = "/command/visca-inquiry.cgi?visca=81090612ff";

/// Can leave asynchronous requests under way, or refuse them.
class SlowInternet final : public FakeInternet {
 public:
  bool Holds = false, Refuses = false;

  void SetStatusCallback(InternetHandle connection, InternetStatusCallback callback) override {
    FakeInternet::SetStatusCallback(connection, Holds ? Hold : callback);
  }
  InternetHandle OpenRequest(InternetHandle connection, const std::string& verb, const std::string& object,
                             std::uint32_t flags, std::uintptr_t context) override {
    if (Refuses && (flags & InternetFlagAsync) != 0) return 0;
    return FakeInternet::OpenRequest(connection, verb, object, flags, context);
  }
  std::size_t CompleteAll() {
    for (const auto& [handle, context] : Held)
      HttpStatusCallback(*this, handle, context, InternetStatusRequestComplete);
    return std::exchange(Held, {}).size();
  }

 private:
  static inline std::vector<std::pair<InternetHandle, std::uintptr_t>> Held;

  static void Hold(Internet& internet, InternetHandle handle, std::uintptr_t context, std::uint32_t status) {
    if (status == InternetStatusRequestComplete)
      Held.emplace_back(handle, context);
    else
      HttpStatusCallback(internet, handle, context, status);
  }
};

class SonyTest : public DriverTest<Sony, SlowInternet> {
 protected:
  SonyTest() {
    Net.Answer = [this](const SentRequest& request) {
      const auto page = Pages.find(request.Object);
      return page == Pages.end() ? FakeReply{} : page->second;
    };
    Pages[System] = {"CGIVersion=3.05&PanTiltFunc=1&ZoomFunc=1&ContinuousPanTiltZoomFunc=1\r\n"};
    Pages[SysInfo] = {"Serial=1&PanTiltMaxVelocity=24&ModelName=SNC-RZ50P\r\n"};
    Pages[Visca] = {"9050000006040F0f0308FF"};  // pan 100, tilt -200
  }

  void Connect(bool reset = false) {
    EXPECT_TRUE(Camera.Connect(CameraOptions({{"Reset", reset}})));
    if (!reset) Net.Sent.clear();
  }
  void NoVisca() { Pages[Visca] = {"", "HTTP/1.1 404 Not Found"}; }
  void Firmware6(const std::string& ptzf) {
    NoVisca();
    Pages[System] = {"CGIVersion=6.00&PanTiltFunc=1&ZoomFunc=1"};
    Pages[Ptzf] = {ptzf};
  }

  std::map<std::string, FakeReply> Pages;
};

TEST_F(SonyTest, APositionThatCannotBeReadIsNoReasonNotToConnect) {
  for (const char* position : {"", "12", "x,y", "12,"}) {
    Firmware6("PanMovementRange=F890,0770&TiltPanoramaRange=FC10,00A8&AbsolutePTZF=" + std::string(position));
    Pages[SysInfo] = {"ModelName=SNC-EP521&PanTiltMaxVelocity=9"};
    EXPECT_NO_THROW(Connect()) << position;
    EXPECT_TRUE(Camera.Connected()) << position;
  }
}

TEST_F(SonyTest, ConnectFailures) {
  struct Row {
    const char* page;
    FakeReply reply;
    const char* error;
  };
  const FakeReply silence{.Answers = false};
  const char* noInformation = "17001 Unable to get the device information";
  const Row rows[] = {
      {System, silence, noInformation},
      {SysInfo, silence, noInformation},
      {Visca, silence, noInformation},
      {SysInfo, {"Model=SNC-P5"}, noInformation},
      {SysInfo, {"ModelName=SNC-P5x"}, "17002 Unrecognised model: SNC-P5x"},
      {System, {"", "HTTP/1.1 404 Not Found"}, "17001 Received HTTP error 404 Not Found"},
      {SysInfo, {"", "HTTP/1.0 401 Unauthorized"}, "17001 Received HTTP error 401 Unauthorized"},
      {System, {"CGIVersion=6"}, nullptr},  // a camera that only its ptzf page, empty here, says more of
      {SysInfo, {"ModelName=SNC-RX550N"}, "11 Division by zero"},
      {SysInfo, {"ModelName=SNC-RX550N&PanMovementRange=F6A0"}, "9 Subscript out of range"},
      {SysInfo, {"ModelName=SNC-RX550N&PanMovementRange=F6A0,"}, "13 Type mismatch"},
      {SysInfo, {"ModelName=SNC-RX550N&PanMovementRange=0,10000"}, "6 Overflow"},
      {SysInfo, {"ModelName=SNC-P5&PanTiltMaxVelocity=3000000000"}, "6 Overflow"},
      {Visca, {"", "HTTP/1.1 500 Oops"}, nullptr},  // only a 404 speaks against VISCA
  };
  for (const auto& [page, reply, error] : rows) {
    const auto good = std::exchange(Pages[page], reply);
    EXPECT_EQ(ErrorOf([&] { Connect(); }), error ? error : "");
    EXPECT_EQ(Camera.Connected(), error == nullptr);
    EXPECT_EQ(Camera.Capabilities() != 0, error == nullptr && page != System);
    Pages[page] = good;
  }
}

TEST_F(SonyTest, ViscaMoves) {
  struct Row {
    void (*move)(Sony&, PTZDevice&, PTZDevice2&);
    const char* frames;
    const char* fault;
  };
  const Row rows[] = {
      {[](auto&, auto&, auto& d) { d.Move(DirectionUp, 0.3125F); }, "810106021818000006040F0F030CFF", "tie"},
      {[](auto&, auto& d, auto&) { d.MoveTo(0, -32.5F); }, "8101060218180000000000000000FF", "tilt's centre"},
      {[](auto&, auto& d, auto&) { d.MoveTo(1000, 90); }, "810106021818000909000003030CFF", "the high ends"},
      {[](auto&, auto& d, auto&) { d.MoveBoth(-1e3F, -1e3F); }, "8101060218180F0607000F0C0C04FF", "the low"},
      {[](auto&, auto& d, auto&) { d.Zoom(ZoomOut); }, "", "below the widest nothing changes"},
      {[](auto& c, auto&, auto&) { c.ZoomTo(12.6F); }, "810104470F0F0F00FF", "all 16 bits"},
      {[](auto& c, auto&, auto&) { EXPECT_EQ(NumberOf([&] { c.MoveTo(0, 0, 12.61F); }), 6); }, "",
       "a zoom too far stops the pan too"},
      {[](auto& c, auto&, auto&) { EXPECT_EQ(NumberOf([&] { c.MoveTo(1e9F, 0); }), 6); }, "", "32 bits"},
      {[](auto&, auto& d, auto&) { EXPECT_FALSE(d.Iris(IrisOpen) || d.Focus(FocusFar) || d.Home()); }, "",
       ""},
  };
  for (const auto& [move, frames, fault] : rows) {
    Renew();
    Connect();
    move(Camera, Camera, Camera);
    std::string sent;
    for (const auto& request : Net.Sent)
      if (request.Object.starts_with("/command/ptzf.cgi?visca=") && request.Verb == "GET")
        sent += (sent.empty() ? "" : " ") + request.Object.substr(24);
    EXPECT_EQ(sent, frames) << fault;
  }
  Camera.Disconnect();
  Camera.MoveTo(1, 1, 1);
  Camera.ContinuousMove(1, 1);
  EXPECT_EQ(Sent(), "");

  Pages[SysInfo] = {"ModelName=SNC-RZ50P&PanTiltMaxVelocity=256"};
  Connect();
  EXPECT_EQ(NumberOf([&] { Camera.MoveTo(-1, 0, 1); }), 6) << "a speed is one byte";
  EXPECT_EQ(Camera.ZoomLevel(), 0) << "and nothing has changed";
}

TEST_F(SonyTest, CGIMovesAndRelativeZoom) {
  NoVisca();
  Connect();
  Camera.Move(DirectionRight, 10);
  EXPECT_EQ(Net.Sent.at(0).Verb, "POST");
  EXPECT_EQ(Net.Sent.at(0).Headers, "");
  EXPECT_TRUE(Camera.Move(DirectionUp, 0));
  Camera.ZoomTo(0.5F);
  EXPECT_EQ(Sent(),
            "/command/ptzf.cgi AbsolutePanTilt=0090,0000,24\n"
            "/command/ptzf.cgi AbsolutePanTilt=0090,0000,24\n"
            "/command/ptzf.cgi AbsolutePanTilt=0090,0000,24\n/command/ptzf.cgi AbsoluteZoom=0A28");

  Pages[System] = {"PanTiltFunc=1&ZoomFunc=0"};
  Connect();
  Camera.ZoomTo(0.75F);
  Camera.ZoomTo(0.75F);
  Camera.ZoomTo(0.25F);
  EXPECT_EQ(Sent(),
            "/command/ptzf.cgi AbsolutePanTilt=0090,0000,24\n/command/ptzf.cgi RelativeZoom=0080\n"
            "/command/ptzf.cgi AbsolutePanTilt=0090,0000,24\n"
            "/command/ptzf.cgi AbsolutePanTilt=0090,0000,24\n/command/ptzf.cgi RelativeZoom=FF80");
  EXPECT_EQ(NumberOf([&] { Camera.ZoomTo(13); }), 6) << "also where only the direction is sent";
}

// Pan and tilt as read at 300 and -100 units, the units of 30 and -20 degrees, and of both high ends.
TEST_F(SonyTest, ModelsHaveTheirOwnScales) {
  struct Row {
    std::vector<const char*> models;
    const char *ranges, *pan, *tilt, *units, *ends;
  };
  const char* head = "PanMovementRange=f890,0770&TiltMovementRange=FC10,00a8";
  const char* dome = "PanMovementRange=F6A0,0960&TiltMovementRange=FB50,000C";
  const Row rows[] = {
      {{"P5"}, head, "31.915", "-48.274", "011A,0071", "0234,0153"},
      {{"RZ25P", "RZ25N"}, head, "22.418", "-8.396", "0191,FF00", "08E3,01A1"},
      {{"RZ30P", "RZ30N"}, head, "-20.833", "-25.556", "FE50,FF4C", "F670,FCC4"},
      {{"RZ50P", "RZ50N"}, head, "20.833", "-39.444", "01B0,00B4", "0990,033C"},
      {{"EP521"}, head, "26.786", "-8.929", "0150,FF20", "0770,00A8"},
      {{"RX530P", "RX530N", "RX550P"}, dome, "22.5", "-8.316", "0190,FEFF", "0960,000C"},
      {{"RX550N", "RX570P", "RX570N"}, dome, "22.5", "-8.316", "0190,FEFF", "0960,000C"},
      {{"RH164", "RS46P", "RS46N"}, dome, "22.5", "5.297", "0190,FE78", "0960,000C"},
  };
  for (const auto& row : rows)
    for (const std::string model : row.models) {
      Pages[SysInfo] = {"ModelName=SNC-" + model + "&" + row.ranges};
      Pages[Visca] = {"90500000000000000000FF"};
      Connect();
      Pages[Visca] = {"90500001020C0F0F090CFF"};  // what Connect learned is asked for again
      EXPECT_EQ(Text(Camera.Pan()), row.pan) << model;
      EXPECT_EQ(Text(Camera.Tilt()), row.tilt) << model;
      NoVisca();
      Connect();
      Camera.MoveTo(30, -20);
      EXPECT_EQ(Sent(), "/command/ptzf.cgi AbsolutePanTilt=" + std::string(row.units) + ",0") << model;
      Camera.MoveTo(1000, 1000);
      EXPECT_EQ(Sent(), "/command/ptzf.cgi AbsolutePanTilt=" + std::string(row.ends) + ",0") << model;
      Camera.MoveTo(0, 0);
      EXPECT_FALSE(std::signbit(Camera.Pan())) << model << ": never a negative zero";
      Sent();
    }
  Pages[SysInfo] = {"ModelName=SNC-P5"};
  Connect();
  Camera.MoveTo(0, -12.5F);
  EXPECT_EQ(Sent(), "/command/ptzf.cgi AbsolutePanTilt=0000,00A9,0") << "170 with a scale not rounded first";
}

TEST_F(SonyTest, EndlessHeadsGoAroundAndReversedOnesStop) {
  struct Row {
    const char *model, *at;
    float angle;
    const char* sent;
  };
  for (const auto& [model, at, angle, sent] : {
           Row{"SNC-RX550N", "0960,0", 10, "F725"},    // 2400 + 133.33 - 4800
           Row{"SNC-RX550N", "F6A0,0", -10, "08DB"},   // and back
           Row{"SNC-RX550N", "0950,0", 1.2F, "0960"},  // 2384 + 16 is the end itself
           Row{"SNC-RX550N", "0,0", 1000, "0960"},     // once around at most, then it stops
           Row{"SNC-RZ30N", "0,0", 10, "FF70"},        // right lowers the units
           Row{"SNC-RZ30N", "F6AC,0", 10, "F670"},
           Row{"SNC-RZ30N", "0990,0", -10, "0990"},
       }) {
    Firmware6("PanMovementRange=F6A0,0960&TiltPanoramaRange=FB50,000C&AbsolutePTZF=" + std::string(at));
    Pages[SysInfo] = {"ModelName=" + std::string(model)};
    Connect();
    Camera.MoveBoth(angle, 0);
    EXPECT_EQ(Net.Sent.back().Body, "AbsolutePanTilt=" + std::string(sent) + ",0000,0") << model << angle;
  }
}

TEST_F(SonyTest, BadRepliesKeepThePosition) {
  std::mt19937 random(5);
  std::string noise(10 << 20, 0);
  for (auto& c : noise) c = static_cast<char>(random());
  struct Row {
    const char* page;
    std::string start, good;
  };
  for (const auto& [page, start, good] : {Row{Visca, "90500000000100000001FF", "90500000060400000c08fF"},
                                          Row{Ptzf, "AbsolutePTZF=1,1", "AbsolutePTZF=0064,00c8,0&x=1"}}) {
    if (page == Ptzf) Firmware6(start);
    Pages[page] = {start};
    Connect();
    const auto position = [&, page = page](const std::string& reply) {
      Pages[page] = {reply};
      Camera.SetPanTilt(0, 0);
      const auto pan = Camera.Pan();
      return Text(pan) + " " + Text(Camera.Tilt());
    };
    for (std::size_t length = 0; length <= good.size(); ++length) {
      EXPECT_EQ(position(start), "0.069 -32.431");
      const auto seen = position(good.substr(0, length));
      // What is left of a number that was cut is a number too.
      const bool cut = page == Ptzf && length > 18 && length < 22 && seen.starts_with("6.944 ");
      EXPECT_TRUE(seen == "0.069 -32.431" || seen == "6.944 -18.611" || cut) << length << ": " << seen;
    }
    for (const auto& bad : {noise, std::string("\xFF"), std::string("9050xx0006040F0F0308FF"),
                            std::string("AbsolutePTZF=zz,1&AbsolutePTZF=1")})
      EXPECT_EQ(position(bad), "6.944 -18.611");
  }
  Pages[Ptzf] = {"AbsolutePTZF=1,10000"};
  Camera.SetPanTilt(0, 0);
  EXPECT_EQ(NumberOf([&] { Camera.Pan(); }), 6);
  EXPECT_EQ(Text(Camera.Pan()), "6.944") << "an overflow keeps the position too";

  Pages[Ptzf] = {};
  const std::string good = "PanTiltMaxVelocity=9&ModelName=SNC-RZ50N";
  for (std::size_t length = 0; length < good.size(); ++length) {
    Pages[SysInfo] = {good.substr(0, length)};
    const auto number = NumberOf([&] { Connect(); });
    EXPECT_TRUE(number == 17001 || number == 17002 || number == 13) << length << ": " << number;
  }
}

TEST_F(SonyTest, ContinuousMotion) {
  NoVisca();
  Connect();
  Camera.ContinuousMove(2.5F, -0.3F);
  Camera.ContinuousMove(2, -0.3F);
  Camera.ContinuousZoom(-0.7F);
  Camera.ContinuousMove(0, 0);
  Camera.ContinuousMove(0.5F, 0);
  Camera.ContinuousZoom(0);
  Camera.StopContinuous();
  EXPECT_EQ(NumberOf([&] { Camera.ContinuousMove(1e9F, 1); }), 6);
  EXPECT_EQ(NumberOf([&] { Camera.ContinuousZoom(INFINITY); }), 6);
  Camera.ContinuousZoom(0);
  const std::string body = "/command/ptzf.cgi ContinuousPanTiltZoom=";
  EXPECT_EQ(Sent(), body + "8,-1.2,0,Image1\n" +  // 2.5 is a tie; the second is the same
                        body + "8,-1.2,-5.6,Image1\n" + body + "0,0,-5.6,Image1\n" + body +
                        "0,0,-5.6,Image1\n" +  // sent again: pan and tilt are at rest
                        body + "0,0,0,Image1\n" + body + "0,0,0,Image1");
}

TEST_F(SonyTest, SendsAreNotWaitedForAndFailOnlyInTheLog) {
  std::string log;
  SetLogSink([&](std::string_view line) { (log += line) += '\n'; });
  Connect();
  Net.Holds = true;
  for (const float angle : {1.0F, 2.0F, 3.0F}) EXPECT_TRUE(Camera.MoveBoth(angle, 0));
  Camera.ContinuousMove(0, 0);
  EXPECT_EQ(AsyncHandles().Count(), 4U);
  Owned.reset();
  EXPECT_EQ(Net.CompleteAll(), 4U) << "requests outlive their driver";
  EXPECT_EQ(AsyncHandles().Count(), 0U);
  EXPECT_EQ(Net.OpenHandles(), 0U);

  Renew();
  Connect();
  log.clear();
  Net.Holds = false;
  Net.Refuses = true;
  for (const float angle : {1.0F, 2.0F}) EXPECT_TRUE(Camera.MoveTo(angle, 0));
  SetLogSink({});
  EXPECT_EQ(AsyncHandles().Count(), 0U);
  const auto* request = "Requesting http://camera1/command/ptzf.cgi?visca=8101060218180000000E00010D04FF, \n";
  EXPECT_NE(log.find(request), std::string::npos);
  EXPECT_NE(log.find("Request failed. Failed to initialise the HTTP request\n"), std::string::npos);
}

}  // namespace
}  // namespace ptzd::test
