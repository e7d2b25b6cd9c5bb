#include "drivers/Bosch.h"

#include <map>

#include "common/Numbers.h"
#include "support/DriverTest.h"

namespace ptzd::test {
namespace {

const std::string Path = "/rcp.xml?command=0x09A5&type=P_OCTET&direction=WRITE&num=1&payload=0x";
const std::string ReadPan = "810006011201", ReadTilt = "810006011301", ReadZoom = "810006011401";
const std::string ReadAll = ReadPan + " " + ReadTilt + " " + ReadZoom;

std::string Result(const std::string& text) {
  return "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<rcp>\n<result>\n<str>" + text +
         "</str>\n</result>\n</rcp>\n";
}

/// The camera is at pan 0.8, tilt 5, zoom 2.
class BoschTest : public DriverTest<Bosch> {
 protected:
  BoschTest() {
    Net.Answer = [this](const SentRequest& request) {
      EXPECT_TRUE(request.Object.starts_with(Path));
      const auto page = Pages.find(request.Object.substr(Path.size()));
      return page == Pages.end() ? FakeReply{Result("80 00 06")} : page->second;
    };
  }

  void ReadAnew() { EXPECT_TRUE(Camera.Connect(CameraOptions())); }
  void Renew() {
    DriverTest::Renew();
    ReadAnew();
    Net.Sent.clear();
  }
  /// Payloads of all requests since the last call; of writes what stands behind "80000601".
  std::string Sent() {
    std::string payloads;
    for (const auto& request : std::exchange(Net.Sent, {})) {
      const auto payload = request.Object.substr(Path.size());
      payloads += (payloads.empty() ? "" : " ") + payload.substr(payload.starts_with("80000601") ? 8 : 0);
    }
    return payloads;
  }
  std::string Position() {
    return Text(Camera.Pan()) + " " + Text(Camera.Tilt()) + " " + Text(Camera.ZoomLevel());
  }

  std::map<std::string, FakeReply> Pages = {{ReadPan, {Result("81 00 06 01 12 01 7A 1B")}},
                                            {ReadTilt, {Result("81 00 06 01 13 01 03 69")}},
                                            {ReadZoom, {Result("81 00 06 01 14 01 00 5A")}}};
};

TEST_F(BoschTest, ConnectReadsAndNeverMindsACameraThatIsGone) {
  Camera.MoveTo(190, 3, 1);
  Camera.ContinuousMove(1, 0);
  EXPECT_EQ(Sent(), "") << "there is no address yet";
  EXPECT_EQ(Position(), "-170 3 1") << "but a model";
  const auto reading = LogOf([&] { ReadAnew(); }), log = LogOf([&] { Camera.ZoomTo(0); });
  const auto url = "Sending: http://camera1" + Path;
  for (const auto& [message, reply] : Pages) {
    EXPECT_NE(reading.find(url + message + "|"), std::string::npos);
    EXPECT_NE(reading.find("|Received: " + reply.Body + "|Returning XML reply|"), std::string::npos);
  }
  EXPECT_NE(log.find(url + "8000060114020000|"), std::string::npos);
  EXPECT_TRUE(log.ends_with("|Received: " + Result("80 00 06") + "|")) << "a command's reply is not read";

  Camera.Disconnect();
  Net.Answer = [](const auto&) { return FakeReply{.Answers = false}; };
  ReadAnew();
  EXPECT_TRUE(Camera.Connected());
  EXPECT_EQ(Position(), "0.8 5 0") << "the model outlives the connection";
  EXPECT_FALSE(Camera.MoveTo(5, 6));
  EXPECT_EQ(Position(), "5 6 0") << "and follows the commands alone";
}

TEST_F(BoschTest, Moves) {
  struct Row {
    void (*move)(PTZDevice&, PTZDevice2&);
    const char *sent, *position, *fault;
  };
  const Row rows[] = {
      {[](auto& d, auto&) { d.Move(DirectionUpLeft); }, "12027D95 130206D1", "-4.2 10 2", "from behind"},
      {[](auto& d, auto&) { d.Move(static_cast<Directions>(15), 1); }, "12027ADB 13020417", "-0.2 6 2",
       "left before right, up before down"},
      {[](auto&, auto& d) { d.MoveBoth(0, 1); }, "13020417", "0.8 6 2", "only what changes"},
      {[](auto& d, auto&) { d.MoveTo(-180, 5); }, "1202F570", "-180 5 2", "both ends stay"},
      {[](auto& d, auto&) { d.MoveTo(1000, 5); }, "1202B143", "-80 5 2", "three times"},
      {[](auto& d, auto&) { d.MoveTo(0.8F, 400); }, "130210B5", "0.8 400 2", "16 bits wrap"},
      {[](auto&, auto& d) { d.MoveTo(1, 2, 3); }, "12027A09 1302015D 14020087", "1 2 3", "in this order"},
      {[](auto&, auto& d) { d.Zoom(ZoomIn, 0.5F); }, "14020070", "0.8 5 2.5", "a tie is even"},
      {[](auto&, auto& d) { d.ZoomTo(1.5F); }, "14020044", "0.8 5 1.5", "the other tie"},
      {[](auto&, auto& d) { d.Zoom(ZoomOut, 5); }, "14020000", "0.8 5 0", "not below 0"},
      {[](auto& d, auto& e) {
         for (const auto& call : std::initializer_list<std::function<void()>>{
                  [&] { d.MoveTo(std::nanf(""), 0); }, [&] { d.MoveTo(3e9F, 0); },
                  [&] { e.MoveTo(9, 2e7F, 1); }, [&] { e.MoveTo(9, 9, 1e8F); },
                  [&] { d.MoveBoth(1, INFINITY); }, [&] { e.ZoomTo(std::nanf("")); }})
           EXPECT_EQ(NumberOf(call), 6);
       },
       "", "0.8 5 2", "one number too large stops the others too"},
      {[](auto& d, auto&) {
         EXPECT_FALSE(d.Move(DirectionUp, 0) || d.MoveBoth(0, 0) || d.MoveTo(0.8F, 5) ||
                      d.Zoom(static_cast<Zooms>(3)));
         d.SetPanTilt(70, 80);
       },
       "", "0.8 5 2", "nothing to do"},
  };
  for (const auto& [move, sent, position, fault] : rows) {
    Renew();
    move(Camera, Camera);
    EXPECT_EQ(Sent(), sent) << fault;
    EXPECT_EQ(Position(), position) << fault;
  }
}

TEST_F(BoschTest, Readings) {
  struct Row {
    std::string page, text;
    const char *position, *fault;
  };
  const std::string echo = "81 00 06 01 12 01 ";
  const Row rows[] = {
      {ReadPan, echo + "00 00", "180 5 2", ""},
      {ReadPan, echo + "ff Ff", "-195.5 5 2", "unsigned, toward minus infinity, in either case"},
      {ReadTilt, echo + "FC 97", "0.8 370.4 2", "a tilt below the horizon is not known as such"},
      {ReadTilt, echo + "06D1 ", "0.8 9.9 2", "truncated, blanks where they may be"},
      {ReadZoom, echo + "00 5F", "0.8 5 2", "the nearest quarter"},
      {ReadZoom, echo + "00 60", "0.8 5 2.25", ""},
      {ReadZoom, "\n\t " + echo + "00 17 5C E2\r\n", "0.8 5 0.5", "trimmed, and no further than needed"},
      {ReadZoom, "\xE9\x80 00 06 01 12 01 00 17", "0.8 5 0.5", "characters are counted, not bytes"},
      {ReadPan, echo + "<b/>7D 95", "-4.3 5 2", "the text of the whole node"},
      {ReadPan, echo + "7D 95</str></result><result><str>" + echo + "00 00", "-4.3 5 2", "the first result"},
      {ReadPan, "", nullptr, "empty"},
      {ReadPan, echo, nullptr, "no value"},
      {ReadTilt, echo + "7D", nullptr, "half a value; the zoom is not asked for"},
      {ReadPan, echo + "7D 9", nullptr, "less than one"},
      {ReadPan, echo + "7D9512", nullptr, "more than one"},
      {ReadPan, echo + "7D 9G", nullptr, "no digit"},
      {ReadPan, echo + "-D 95", nullptr, "a sign"},
      {ReadPan, echo + "0x95", nullptr, "a prefix"},
      {ReadPan, echo + "\xE9\x80 95", nullptr, "no blank"},
      {ReadPan, echo + "7D\t95", nullptr, "nor this one"},
      {ReadPan, "<str>", nullptr, "not well-formed"},
      {ReadPan, "</str></result><result><err>0xf0</err><str>", nullptr, "refused"},
  };
  for (const auto& [page, text, position, fault] : rows) {
    Renew();
    const auto good = std::exchange(Pages[page], {Result(text), "HTTP/1.1 500 Oops"});  // no status is minded
    ReadAnew();
    EXPECT_EQ(Position(), position ? position : "0.8 5 2") << fault;
    EXPECT_EQ(Sent(), position ? ReadAll : ReadAll.substr(0, ReadAll.find(page) + page.size())) << fault;
    Pages[page] = good;
  }
}

TEST_F(BoschTest, ContinuousMotion) {
  struct Row {
    float pan, tilt;
    const char *data, *fault;
  };
  const Row rows[] = {
      {10, -5, "F80400", "7.5 is 8"},
      {10, -5, "", "a repeat"},
      {-20, 1, "0FF100", "left and down is 0"},
      {40, -21.5F, "FE0000", "the last digit of 1E, and of 10"},
      {2.0F / 3, 0, "F00000", "half a speed in single precision only"},
      {0, 0, "000000", "a stop"},
      {-0.0F, 0, "", "a repeated stop is not sent either"},
      {1, 0, "F10000", ""},
  };
  Renew();
  for (const auto& [pan, tilt, data, fault] : rows) {
    Camera.ContinuousMove(pan, tilt);
    EXPECT_EQ(Sent(), *data ? "1085" + std::string(data) : "") << fault;
  }
  for (const float speed : {std::nanf(""), INFINITY, 3e38F})
    EXPECT_EQ(NumberOf([&] { Camera.ContinuousMove(5, speed); }), 6);
  ReadAnew();
  Sent();
  Camera.ContinuousZoom(1);
  EXPECT_EQ(Sent(), "") << "the zoom knows no continuous motion";
  Camera.StopContinuous();
  Camera.StopContinuous();
  EXPECT_EQ(Sent(), "1085000000");
}

}  // namespace
}  // namespace ptzd::test
