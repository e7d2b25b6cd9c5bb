#include <gtest/gtest.h>

#include "common/Logging.h"
#include "contract/PTZErrors.h"
#include "contract/PTZMoveInImage.h"
#include "contract/PropertyBag.h"
#include "contract/Subject.h"
#include "support/Errors.h"
#include "support/FakeClock.h"
#include "support/FakeInternet.h"
#include "support/FakeSerialPort.h"
#include "support/FakeSocket.h"
#include "support/Options.h"
#include "transport/HTTP.h"

namespace ptzd {

void PrintTo(const DriverClass& driver, std::ostream* out) { *out << driver.ProgID; }

namespace {

using test::ErrorOf;
using test::FakeClock;
using test::FakeInternet;
using test::FakeReply;
using test::NumberOf;

// Hosts hold these numbers in compiled code.
static_assert(CapabilityFullZoom == 132 && (CapabilityFullZoom & CapabilityZoom) != 0);
static_assert(CapabilityAutoFocus == (CapabilityAutoIris | CapabilityPan));
static_assert(PTZErrorUnrecognisedDevice == PTZErrorPTZIncapable && PTZErrorPTZIncapable == 17002);
static_assert(DirectionUpLeft == (DirectionUp | DirectionLeft) &&
              DirectionDownRight == (DirectionDown | DirectionRight));

TEST(Interfaces, CalledDirectlyAnswerNothing) {
  PTZDevice device;
  EXPECT_FALSE(device.Connect({}));
  EXPECT_FALSE(device.Move(DirectionUp));
  EXPECT_EQ(device.Disconnect(), Variant());
  EXPECT_EQ(device.Capabilities(), 0);
  PTZDevice2 device2;
  device2.Zoom(ZoomIn);
  EXPECT_EQ(device2.ZoomLevel(), 0);
  EXPECT_FALSE(PTZOptions().Item(0).has_value());
  EXPECT_TRUE(PTZNamedPresets().GetNamedPresets().empty());
  PTZMoveInImage().MoveInImage(1, 2);
  PTZContinuousControl().StopContinuous();
}

TEST(PTZOption, InitOnce) {
  PTZOption option;
  option.Init("", "first try without a name", OptionText, {}, {});
  option.Init("MoveSpeed", "Move speed", OptionInteger, {0, 64}, 63);
  EXPECT_EQ(ErrorOf([&] { option.Init("Other", "", OptionText, {}, 1); }),
            "5 Invalid procedure call or argument");
  EXPECT_EQ(option.Name(), "MoveSpeed");
  EXPECT_EQ(option.Values(), (std::vector<Variant>{0, 64}));
  EXPECT_EQ(option.Default(), Variant(63));
}

/// A rule and a position's origin as the support matrix writes them.
const char* RuleText(MemberRule rule) {
  switch (rule) {
    case MemberRule::Nothing:
      return "nothing";
    case MemberRule::Outcome:
    case MemberRule::OutcomeIfConnected:
      return "outcome";
    case MemberRule::True:
    case MemberRule::TrueIfConnected:
      return "True";
    case MemberRule::False:
    case MemberRule::FalseIfConnected:
      return "False";
  }
  return "";
}

const char* ReadingText(PositionReading reading) {
  switch (reading) {
    case PositionReading::Never:
      return "estimated";
    case PositionReading::OnConnect:
      return "read on connecting";
    case PositionReading::BeforeSteps:
      return "read before steps";
    case PositionReading::AboveHorizon:
      return "read above the horizon";
    case PositionReading::Always:
      return "read";
  }
  return "";
}

/// Runs over every driver of the build; what they answer differs, and stands in their data.
class EveryDriver : public testing::TestWithParam<DriverClass> {
 protected:
  void SetUp() override {
    Held = test::CreateSubject(GetParam(), {.internet = &Internet, .clock = &Clock, .sockets = &Sockets});
    Driver = Held.Device;
    ASSERT_NE(Driver, nullptr);
    Internet.Answer = [](const auto&) { return test::FakeReply{.Answers = false}; };
    Sockets.ConnectError = 10061;
    Ports.Line.Plugged = false;
  }

  struct BooleanMember {
    const char* Name;
    MemberRule Rule;
    bool (*Call)(PTZDevice&);
  };
  std::vector<BooleanMember> BooleanMembers() const {
    const auto& data = *GetParam().Data;
    return {
        {"Move", data.Move, [](PTZDevice& d) { return d.Move(DirectionUpLeft, 7); }},
        {"MoveTo", data.MoveTo, [](PTZDevice& d) { return d.MoveTo(11, 13); }},
        {"MoveBoth", data.MoveBoth, [](PTZDevice& d) { return d.MoveBoth(8, -9); }},
        {"Zoom", data.Zoom, [](PTZDevice& d) { return d.Zoom(ZoomIn); }},
        {"Iris", data.Iris, [](PTZDevice& d) { return d.Iris(IrisOpen); }},
        {"Focus", data.Focus, [](PTZDevice& d) { return d.Focus(FocusFar); }},
        {"PresetGoto", data.PresetGoto, [](PTZDevice& d) { return d.PresetGoto(2); }},
        {"PresetSave", data.PresetSave, [](PTZDevice& d) { return d.PresetSave(2); }},
        {"Home", data.Home, [](PTZDevice& d) { return d.Home(); }},
    };
  }

  /// What a member that needs no connection raises while there is none.
  std::int32_t ErrorWithoutConnection() const {
    const auto& data = *GetParam().Data;
    return data.NeedsLine || (data.NeedsOptions && !HasBeenConnected) ? ErrorObjectNotSet : 0;
  }

  /// With all that any driver asks for.
  static Bytes CompleteOptions() {
    return test::CameraOptions({{"COMPort", 1}, {"Feed", std::string("3")}}, "10.0.0.5");
  }

  /// Whether anything went to the camera since the last call.
  bool TakeSent() {
    const bool internet = !Internet.Sent.empty();
    Internet.Sent.clear();
    const auto socket = Sockets.Log.Take(), line = Ports.Line.Log.Take();
    return internet || !socket.empty() || !line.empty();
  }

  void AnswersAsWhileNotConnected() {
    EXPECT_FALSE(Driver->Connected());
    for (const auto& [name, rule, call] : BooleanMembers()) {
      bool answer = false;
      const bool ungated =
          rule == MemberRule::Outcome || rule == MemberRule::True || rule == MemberRule::False;
      TakeSent();
      EXPECT_EQ(NumberOf([&, member = call] { answer = member(*Driver); }),
                ungated ? ErrorWithoutConnection() : 0)
          << name;
      EXPECT_TRUE(!TakeSent() || ungated) << name;
      EXPECT_EQ(answer, rule == MemberRule::True && !GetParam().Data->NeedsLine) << name;
    }
    EXPECT_NO_THROW(Driver->Pan());
    EXPECT_NO_THROW(Driver->Tilt());
    EXPECT_NO_THROW(Driver->SetPanTilt(1, 2));
    EXPECT_GE(Driver->PresetCount(), 0);
    if (auto* device2 = Held.Device2) {
      device2->Move(DirectionDown);
      device2->MoveTo(1, 2, 3);
      device2->ZoomTo(1);
      EXPECT_NO_THROW(device2->ZoomLevel());
      EXPECT_EQ(device2->Capabilities(), Driver->Capabilities());
    }
    if (auto* continuous = Held.Continuous) {
      EXPECT_EQ(NumberOf([&] { continuous->ContinuousMove(1, 1); }), ErrorWithoutConnection());
      EXPECT_EQ(NumberOf([&] { continuous->StopContinuous(); }), ErrorWithoutConnection());
    }
  }

  FakeInternet Internet;
  FakeClock Clock;
  test::FakeSockets Sockets{Clock};
  test::FakeSerialPorts Ports{Clock};
  test::Subject Held;
  PTZDevice* Driver = nullptr;
  bool HasBeenConnected = false;  // or was tried to
};

TEST_P(EveryDriver, AnswersAsItsDataSaysWhileNotConnected) {
  AnswersAsWhileNotConnected();
  if (GetParam().Data->NeedsLine)
    EXPECT_EQ(NumberOf([&] { Driver->Disconnect(); }), ErrorObjectNotSet);
  else
    EXPECT_EQ(Driver->Disconnect(), GetParam().Data->DisconnectAnswersTrue ? Variant(true) : Variant());
  AnswersAsWhileNotConnected();
}

TEST_P(EveryDriver, RefusesToConnectWithoutUsableOptions) {
  if (const auto& refusal = GetParam().Data->NoAddress) {
    EXPECT_EQ(ErrorOf([&] { return Driver->Connect(PropertyBag().Contents()); }),
              std::to_string(refusal->Number) + " " + std::string(refusal->Description));
    EXPECT_TRUE(Internet.Sent.empty());
    EXPECT_TRUE(Sockets.Connects.empty());
  }
  std::string unheard;  // what becomes of a camera that never answers, as the support matrix writes it
  const auto number = NumberOf([&] { unheard = Driver->Connect(CompleteOptions()) ? "connects" : "False"; });
  if (number != 0) unheard = "raises " + std::to_string(number);
  EXPECT_EQ(unheard == "connects", GetParam().Data->ConnectsUnheard) << unheard;
  RecordProperty("unheard", unheard);
  EXPECT_NE(ErrorOf([&] { return Driver->Connect(Bytes{1, 2, 3}); }), "");
  EXPECT_NE(ErrorOf([&] { return Driver->Connect({}); }), "");
  HasBeenConnected = true;
  AnswersAsWhileNotConnected();
}

/// What a camera of any make answers to what its driver asks while it connects; "OK" to everything else.
FakeReply AnswerOfAnyMake(const test::SentRequest& request) {
  const std::pair<const char*, const char*> pages[] = {
      {"/axis-cgi/view/param.cgi",
       "S1.RelativePan=true\nS1.RelativeTilt=true\nS1.RelativeZoom=true\nS1.RelativeIris=true\n"},
      {"inq=sys", "CGIVersion=3.05&ModelName=SNC-RZ50P&PanTiltFunc=1&ZoomFunc=1&PanTiltMaxVelocity=24\r\n"},
      {"visca-inquiry", "9050000003000000020AFF"},
      {"/Get?Func=Model", "ModelName:BB-HCM581A\r\nAplFirm:2.30\r\n"},
      {"/cgi-bin/getinfo", "NAME=WV-SC384\r\n"},
      {"/cgi-bin/sysinfo.cgi", "model=PT7135\r\nptzenabled=3\r\n"},
      {"/liveimg.cgi", "22 bytes of a position"},
      {"/cgi-bin/ctrl?", "OK"},
      {"/cgi-bin/ctrl", "NG"},  // to no command
      {"/cgi-bin/list?group=pos", "c_span:9275\r\nc_tilt:832\r\nc_zoom:64\r\n"},
      {"/cgi-bin/pget?g_pos", "<pget><pos><s_pospan>9275</s_pospan><s_postilt>832</s_postilt></pos></pget>"},
      {"/cgi-bin/set?", "Return:0\r\n"},
      {"/api/wb", "20 OK\r\n"},
      {"/ptz/ptz.cgi", "PTZ OK"},
  };
  for (const auto& [page, reply] : pages)
    if (request.Object.find(page) != std::string::npos) return {reply};
  return {"OK"};
}

TEST_P(EveryDriver, AnswersAsItsDataSaysWhileConnected) {
  Internet.Answer = AnswerOfAnyMake;
  Sockets.ConnectError = 0;
  Ports.Line.Plugged = true;
  const auto options = CompleteOptions();
  for (const auto& [name, rule, call] : BooleanMembers()) RecordProperty(name, RuleText(rule));
  RecordProperty("position", ReadingText(GetParam().Data->ReadsPosition));
  for (int round = 0; round < 2; ++round) {
    ASSERT_TRUE(Driver->Connect(options));
    EXPECT_TRUE(Driver->Connected());
    Driver->SetPanTilt(20, -10);  // away from the ends, where a move changes nothing
    for (const bool obeys : {true, false}) {
      if (!obeys) Internet.Answer = [](const auto&) { return FakeReply{.Answers = false}; };
      for (const auto& [name, rule, call] : BooleanMembers()) {
        TakeSent();
        const bool passedOn = rule == MemberRule::Outcome || rule == MemberRule::OutcomeIfConnected;
        const bool always = rule == MemberRule::True || rule == MemberRule::TrueIfConnected;
        EXPECT_EQ(call(*Driver), always || (passedOn && obeys)) << name << (obeys ? "" : ", refused");
        const bool sent = TakeSent();
        EXPECT_FALSE(sent && rule == MemberRule::Nothing) << name;
        EXPECT_TRUE(sent || !passedOn) << name;
      }
    }
    EXPECT_EQ(Driver->Disconnect(), GetParam().Data->DisconnectAnswersTrue ? Variant(true) : Variant());
    HasBeenConnected = true;
    AnswersAsWhileNotConnected();
    Internet.Answer = AnswerOfAnyMake;  // and can be connected again
  }
}

TEST_P(EveryDriver, AMotionThatIsHeldThroughAReconnectGoesOn) {
  if (Held.Continuous == nullptr) return;
  Internet.Answer = AnswerOfAnyMake;
  Sockets.ConnectError = 0;
  Ports.Line.Plugged = true;
  for (const bool zooms : {false, true}) {
    std::string first;
    for (const bool again : {false, true}) {
      ASSERT_TRUE(
          Driver->Connect(test::CameraOptions({{"COMPort", 1}, {"Feed", std::string("3")}}, "10.0.0.5")));
      TakeSent();
      if (zooms)
        Held.Continuous->ContinuousZoom(1);
      else
        Held.Continuous->ContinuousMove(6, -6);
      const auto sent = Internet.TakeSent() + Sockets.Log.Take() + Ports.Line.Log.Take();
      EXPECT_TRUE(zooms || !sent.empty());
      EXPECT_TRUE(!again || sent == first) << sent << " instead of " << first;
      first = sent;
    }
  }
}

TEST_P(EveryDriver, TellsNobodyTheLogin) {
  const auto tellsNobody = [&](const std::string& password, const FakeReply& reply, bool works) {
    std::string told;
    SetLogSink([&](std::string_view line) { (told += line) += '\n'; });
    Internet.Answer = [&](const auto& request) { return works ? AnswerOfAnyMake(request) : reply; };
    const auto call = [&](const auto& member) { (told += ErrorOf(member)) += '\n'; };
    call([&] {
      (void)Driver->Connect(test::CameraOptions({{"COMPort", 1}, {"Feed", std::string("3")}},
                                                "Us3r:" + password + "@10.0.0.5"));
    });
    for (const auto answers : {works, false}) {
      works = answers;
      for (const auto& row : BooleanMembers()) call([&] { row.Call(*Driver); });
      call([&] { Driver->SetPanTilt(1, 2), Driver->Pan(), Driver->Tilt(); });
      if (auto* device = Held.Device2) call([&] { device->MoveTo(1, 2, 3), device->Zoom(ZoomIn, 1); });
      if (auto* device = Held.Continuous)
        for (const float speed : {5.0F, 0.0F})
          call([&] { device->ContinuousMove(speed, 0), device->ContinuousZoom(speed); });
      if (auto* presets = Held.NamedPresets) {
        call([&] { presets->GetNamedPresets(); });
        call([&] { presets->GotoNamedPreset("1"); });
      }
    }
    SetLogSink({});
    EXPECT_EQ(told.find("Secret"), std::string::npos) << told;
    EXPECT_EQ(told.find("Us3r"), std::string::npos) << told;
  };
  Sockets.ConnectError = 0;
  Ports.Line.Plugged = true;
  for (const std::string password : {"t0pSecret", "aSecret bSecret\tcSecret/dSecret@e:Secret%fSecret",
                                     "aSecret%20bSecret%3a%c3%A9Secret%25"}) {
    const auto echo = "Us3r may not: http://Us3r:" + password + "@h/?usr=Us3r&pwd=" + UrlEncode(password);
    tellsNobody(password, {}, true);
    tellsNobody(password, {.Answers = false}, false);
    tellsNobody(password, {echo, "HTTP/1.1 401 " + echo}, false);
    tellsNobody(password, {echo, "HTTP/1.1 404 " + echo}, false);
    tellsNobody(password, {"<" + password + "></x>"}, false);
    std::string identity;
    for (const char* name : {"&ModelName=", "ModelName:", "NAME=", "model="})
      identity += name + password + "&\r\n";
    tellsNobody(password, {identity + "ptzenabled=3\r\n"}, false);
  }
}

TEST_P(EveryDriver, DescribesItsOptionsAnewEachTime) {
  auto* options = Held.Options;
  // A collection without any descriptor needs no flag.
  EXPECT_EQ(options != nullptr && options->Count() != 0,
            (Driver->Capabilities() & CapabilityExtendedOptions) != 0);
  if (options == nullptr) return;
  const auto all = options->NewEnum();
  ASSERT_EQ(static_cast<std::int32_t>(all.size()), options->Count());
  for (std::int32_t i = 0; i < options->Count(); ++i) {
    const auto& name = all[i].Name();
    EXPECT_FALSE(name.empty());
    EXPECT_EQ(options->Item(i)->Name(), name);
    EXPECT_EQ(options->Item(static_cast<double>(i))->Name(), name) << "scripts count in doubles";
    EXPECT_EQ(options->Item(name)->Description(), all[i].Description());
    RecordProperty("option " + std::to_string(i), name);
  }
  for (const Variant& unknown :
       {Variant(options->Count()), Variant(-1), Variant(std::string("zoomstep")), Variant()})
    EXPECT_EQ(options->Item(unknown).value_or(PTZOption()).Name(), "");
}

INSTANTIATE_TEST_SUITE_P(Catalogue, EveryDriver,
                         testing::ValuesIn(DriverClasses().begin(), DriverClasses().end()),
                         [](const auto& driver) { return std::string(driver.param.ProgID.substr(6)); });

}  // namespace
}  // namespace ptzd
