// The drivers of one shape, `Elmo4` and `Elmo402`, side by side.

#include "drivers/Elmo400.h"

#include <ptzd/DriverFactory.h>
#include "support/DriverTest.h"

namespace ptzd::test {
namespace {

std::string List(const std::string& pan, const std::string& tilt, const std::string& zoom) {
  return "group:pos\r\nc_tilt:" + tilt + "\r\nc_span:" + pan + "\r\nc_fcus:1\r\nc_zoom:" + zoom + "\r\n";
}
std::string Xml(const std::string& pan, const std::string& tilt, const std::string& zoom) {
  return "<?xml version=\"1.0\"?><pget><pos><s_pospan>" + pan + "</s_pospan><s_postilt>" + tilt +
         "</s_postilt><s_poszoom>" + zoom + "</s_poszoom></pos></pget>";
}

struct Series {
  const char *ProgID, *PositionPath, *CommandPath;
  std::string AtMiddle;  // pan 0, tilt 0, zoom 1
  const char *Accepted, *Refused;
};
const Series Series400{"QVPTZ.Elmo4",
                       "/cgi-bin/list?group=pos",
                       "/cgi-bin/set?",
                       List("9275", "832", "496"),
                       "command:set\r\nReturn:0\r\n",
                       "command:set\r\nReturn:1\r\n"};
const Series Series402{"QVPTZ.Elmo402",
                       "/cgi-bin/pget?g_pos",
                       "/cgi-bin/exec?",
                       Xml("9275", "832", "418"),
                       "NG",
                       ""};  // whatever is said is a yes

class Elmo400Test : public testing::Test {
 protected:
  void Use(const Series& series, std::int64_t time = 100000) {
    Make = &series;
    Time.Advance(time);
    Owner = CreateDriver(Make->ProgID, {.Internet = &Net, .Clock = &Time});
    Driver = dynamic_cast<Elmo400*>(Owner.get());
    Net.Answer = [this](const SentRequest& request) {
      return request.Object == Make->PositionPath ? Position : Reply;
    };
    Position = {Make->AtMiddle};
    Reply = {Make->Accepted};
  }
  bool Connect(const char* address = "camera1") { return Driver->Connect(CameraOptions({}, address)); }
  /// What was sent since the last call, a position request as "?".
  std::string Sent() {
    std::string sent;
    for (const auto& [verb, host, object, headers, body, port] : Net.Sent)
      sent += (sent.empty() ? "" : " ") + (object == Make->PositionPath ? "?"
                                           : object.starts_with(Make->CommandPath)
                                               ? object.substr(object.find('?') + 1)
                                               : object);
    Net.Sent.clear();
    return sent;
  }
  std::string Place() {
    return std::to_string(std::lrint(Driver->Pan())) + "," + std::to_string(std::lrint(Driver->Tilt())) +
           "," + std::to_string(std::lrint(Driver->ZoomLevel() * 100));
  }

  const Series* Make = nullptr;
  FakeReply Position, Reply;
  FakeInternet Net;
  FakeClock Time{0};
  std::unique_ptr<PTZDevice> Owner;
  Elmo400* Driver = nullptr;
};

class EitherElmo400 : public Elmo400Test, public testing::WithParamInterface<const Series*> {
 protected:
  void SetUp() override { Use(*GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(Both, EitherElmo400, testing::Values(&Series400, &Series402),
                         [](const auto& row) { return std::string(row.param->ProgID).substr(6); });

TEST_P(EitherElmo400, ConnectsToWhatTellsItsPosition) {
  EXPECT_FALSE(Connect(""));
  EXPECT_EQ(Sent(), "") << "nobody to ask";
  const std::pair<FakeReply, bool> rows[] = {
      {{Make->AtMiddle}, true},  // asked again although the last reading is fresh
      {{""}, false},
      {{"<html><form>User name <input></form></html>"}, false},  // a login page
      {{Make->AtMiddle, "HTTP/1.1 404 Not Found"}, false},
      {{Make->AtMiddle, "HTTP/1.1 2000 OK"}, false},
      {{.Answers = false}, false},
  };
  for (const auto& [position, connects] : rows) {
    Position = {Make->AtMiddle};
    ASSERT_TRUE(Connect());
    Position = position;
    EXPECT_EQ(Connect(), connects) << position.StatusLine << position.Body;
    EXPECT_EQ(Driver->Connected(), connects) << position.StatusLine << position.Body;
    EXPECT_EQ(Sent() + " " + Place(), "? ? 0,0,100") << "without a reading the last one stays";
  }
  Driver->ZoomTo(3);
  Driver->MoveTo(1, 2, 3);
  EXPECT_EQ(Sent(), "") << "while not connected";
}

TEST_P(EitherElmo400, MovesInMotorSteps) {
  struct Row {
    std::function<bool(Elmo400&)> Move;
    bool Answer;
    const char *Sent400, *Sent402, *Fault;
  };
  // A zoom step is 104.5 units of the PTC-402C; what comes out is sent as it is.
  const Row rows[] = {
      {[](auto& d) { return d.MoveTo(0, 0); }, false, "", "9275 832 418", "where it is"},
      {[](auto& d) { return d.MoveTo(200, -200); }, false, "c_span=18550 c_tilt=11024", "18550 11024 418",
       "lower right"},
      {[](auto& d) { return d.Move(DirectionRight, 0.5F); }, true, "c_span=9302", "9302 832 418", "9301.5"},
      {[](auto& d) { return d.Move(DirectionRight, 1.5F); }, true, "c_span=9354", "9354 832 418", "9354.5"},
      {[](auto& d) { return d.MoveBoth(0, 0.125F); }, true, "c_tilt=826", "9275 826 418", "825.5"},
      {[](auto& d) { return d.MoveBoth(0, 0.375F); }, true, "c_tilt=812", "9275 812 418", "812.5"},
      {[](auto& d) { return d.Zoom(ZoomOut, 3), true; }, true, "c_zoom=64", "9275 832 0", "the widest"},
      {[](auto& d) { return d.ZoomTo(0.1F), true; }, true, "c_zoom=107.2", "9275 832 41.8",
       "a single's text"},
  };
  for (const auto& [move, answer, sent400, sent402, fault] : rows) {
    ASSERT_TRUE(Connect());
    Sent();
    EXPECT_EQ(move(*Driver), answer) << fault;
    std::string sent = Make == &Series400 ? sent400 : sent402;
    if (Make == &Series402 && !sent.empty()) {
      sent.replace(sent.find(' '), 1, "&x_postilt=");
      sent = "x_pospan=" + sent.replace(sent.find(' '), 1, "&x_poszoom=");
    }
    EXPECT_EQ(Sent(), sent) << fault;
  }
}

TEST_P(EitherElmo400, WhatFitsNoMotorRaisesBeforeAnythingIsSent) {
  ASSERT_TRUE(Connect());
  Sent();
  EXPECT_EQ(NumberOf([&] { Driver->MoveTo(1, -4.2e7F); }), 6);
  EXPECT_EQ(NumberOf([&] { Driver->MoveTo(10, 10, 3e38F); }), 6);
  EXPECT_EQ(Sent() + Place(), "0,0,100");

  for (const auto& refusal : {FakeReply{Make->Refused}, FakeReply{.Answers = false}}) {
    Reply = refusal;
    EXPECT_FALSE(Driver->MoveBoth(10, -10) || Driver->Zoom(ZoomIn) || Driver->Home());
  }
  EXPECT_EQ(Place(), "20,-20,150") << "commands are counted as obeyed";
}

TEST_F(Elmo400Test, PositionReplies) {
  struct Row {
    const Series& Make;
    std::string Reply;
    const char *Place, *Fault;
    bool Connects = true;  // only where pan and tilt were read
  };
  const Row rows[] = {
      {Series400, List("9805", "1352", "388"), "10,-10,75", "in its units"},
      {Series400, List(" 9805 ", "0", "118"), "10,16,25", "blanks; a zoom of an eighth goes up"},
      {Series400, List("-53", "11024", "117"), "-176,-196,0", "beyond the end; below an eighth"},
      {Series400, "c_span:9805", "10,0,100", "one of them", false},
      {Series400, "C_SPAN:9805\r\nc_span 9805\r\nxc_span:9805", "0,0,100", "other keys", false},
      {Series400, List("9805", "x", "388"), "0,0,100", "no number: a part of a position is none", false},
      {Series402, Xml("9805", "1352", "313"), "10,-10,75", "in its units"},
      {Series402, Xml("9805 (10.0)", "1352 (-10.0 deg)", "52 (0.1)"), "10,-10,0", "behind a number a remark"},
      {Series402, Xml("pan (9805)", "(1352)", "zoom ( 53 )"), "10,-10,25", "inside one the number"},
      {Series402, Xml("9805(", "1352 (x) (7)", "313"), "10,-10,75", "odd remarks"},
      {Series402, Xml("pan (9805", "1352", "313"), "0,0,100", "an open bracket", false},
      {Series402, Xml("", "1352", "313"), "0,0,100", "an empty node", false},
      {Series402, "<pget><pos><s_postilt>1352</s_postilt></pos></pget>", "0,-10,100", "one of them", false},
      {Series402, "<!DOCTYPE x>" + Xml("1", "1", "1"), "0,0,100", "a document that is refused", false},
  };
  for (const auto& [series, reply, place, fault, connects] : rows) {
    Use(series);
    ASSERT_TRUE(Connect());
    Position = {reply};
    EXPECT_EQ(Connect(), connects) << reply << ": " << fault;
    EXPECT_EQ(Place(), place) << reply << ": " << fault;
  }
}

TEST_P(EitherElmo400, BadPositionRepliesGiveNoPlaceOfTheirOwn) {
  const auto page = Make == &Series400 ? List : Xml;
  ASSERT_TRUE(Connect());
  for (const auto& reply : {page("9805", "99999999999", "100"), page("9805", "1352", "1e300")}) {
    Position = {reply};
    Driver->SetPanTilt(0, 0);
    Sent();
    EXPECT_EQ(NumberOf([&] { Driver->Move(DirectionUp, 5); }), 6) << reply;
    EXPECT_EQ(Sent() + " " + Place(), "? 0,0,100") << reply << ": nothing moves, nothing is stored";
  }
  EXPECT_EQ(NumberOf([&] { Connect(); }), 6);
  EXPECT_FALSE(Driver->Connected());
}

TEST_F(Elmo400Test, TheSeries400IsToldOneAxisAtATime) {
  Use(Series400);
  ASSERT_TRUE(Connect());
  for (const bool last : {true, false}) {
    Net.Answer = [=](const SentRequest& request) {
      return FakeReply{request.Object.ends_with("572") == last ? "Return:0" : "Return:1"};
    };
    Driver->MoveTo(0, 0);
    Sent();
    EXPECT_EQ(Driver->MoveBoth(5, 5), last) << "the last one counts, and no refusal stops the others";
    EXPECT_EQ(Sent(), "c_span=9540 c_tilt=572");
  }
}

TEST_P(EitherElmo400, PresetsHomeAndLogs) {
  const bool hasPresets = Make == &Series400;
  ASSERT_TRUE(Connect());
  Sent();
  EXPECT_TRUE(Driver->Home());
  for (const std::int32_t preset : {0, 15}) {
    EXPECT_EQ(Driver->PresetGoto(preset), hasPresets);
    EXPECT_EQ(Driver->PresetSave(preset), hasPresets);
  }
  EXPECT_FALSE(Driver->PresetGoto(-1) || Driver->PresetGoto(16) || Driver->PresetSave(-1) ||
               Driver->PresetSave(16));
  EXPECT_EQ(Sent(), hasPresets ? "c_prst=17 c_prst=1 c_pmem=1 c_prst=16 c_pmem=16" : "x_preprst=HOME");

  const std::function<bool()> recalls[] = {[this] { return Driver->Home(); },
                                           [this] { return Driver->PresetGoto(2); }};
  for (const auto& recall : recalls) {
    const bool goes = recall();
    Sent();
    EXPECT_TRUE(Driver->MoveBoth(0, 0));
    EXPECT_EQ(Sent().starts_with("?"), goes) << "the camera alone knows where that is";
  }

  const auto log = [this](FakeReply& page, const FakeReply& reply) {
    page = reply;
    return RequestLinesOf([&] { &page == &Reply ? Driver->Home() : Connect(); });
  };
  const std::string home = hasPresets ? "Requesting c_prst=17|" : "Requesting x_preprst=HOME|";
  EXPECT_EQ(log(Reply, {Make->Accepted + std::string("\xE9"), "HTTP/1.0 203 Odd"}),
            home + "Request complete. HTTP/1.0 203 Odd Reply: " + Make->Accepted + "\u00E9|");
  EXPECT_EQ(log(Reply, {Make->Refused}),
            home + "Request errored. HTTP/1.1 200 OK Reply: " + Make->Refused + "|");
  EXPECT_EQ(log(Reply, {.Answers = false}), home + "Request failed. Failed to connect to the HTTP server.|");
  EXPECT_EQ(log(Position, {hasPresets ? List("9805", "1352", "388") : Xml("9805", "1352", "314")}),
            "Requesting position|Setting pan position to 9805|Setting tilt position to 1352|"
            "Setting zoom level to 0.75|");
  EXPECT_EQ(log(Position, {hasPresets ? List("x", "1", "1") : Xml("x", "1", "1")}),
            "Requesting position|Position not read. Type mismatch|");
}

}  // namespace
}  // namespace ptzd::test
