#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <optional>
#include <sstream>

#include <ptzd/Logging.h>
#include <ptzd/PTZMoveInImage.h>
#include <ptzd/PropertyBag.h>
#include "contract/Answers.h"
#include "contract/Subject.h"
#include "drivers/kit/DriverErrors.h"
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

using test::Answers;
using test::ErrorOf;
using test::FakeClock;
using test::FakeInternet;
using test::FakeReply;
using test::NumberOf;
using test::Words;

// Hosts hold these numbers in compiled code.
static_assert(CapabilityFullZoom == 132 && (CapabilityFullZoom & CapabilityZoom) != 0);
static_assert(CapabilityAutoFocus == (CapabilityAutoIris | CapabilityPan));
static_assert(PTZErrorUnrecognisedDevice == PTZErrorPTZIncapable && PTZErrorPTZIncapable == 17002);
static_assert(DirectionUpLeft == (DirectionUp | DirectionLeft) &&
              DirectionDownRight == (DirectionDown | DirectionRight));

TEST(Interfaces, CalledDirectlyAnswerNothing) {
  PTZDevice device;
  EXPECT_FALSE(device.Connect({}) || device.Connected());
  EXPECT_FALSE(device.Move(DirectionUp) || device.MoveTo(1, 2) || device.MoveBoth(1, 2) || device.Home());
  EXPECT_FALSE(device.Zoom(ZoomIn) || device.Iris(IrisOpen) || device.Focus(FocusNear));
  EXPECT_FALSE(device.PresetCount() != 0 || device.PresetGoto(0) || device.PresetSave(0));
  EXPECT_EQ(device.Disconnect(), Variant());
  EXPECT_EQ(device.Capabilities(), 0);
  PTZDevice2 device2;
  device2.Zoom(ZoomIn);
  for (const float place : {device.Pan(), device.Tilt(), device2.Pan(), device2.Tilt(), device2.ZoomLevel()})
    EXPECT_EQ(place, 0);
  EXPECT_FALSE(device2.Connect({}) || device2.Connected() || device2.Capabilities() != 0);
  EXPECT_FALSE(PTZOptions().Item(0).has_value());
  EXPECT_EQ(PTZOptions().Count(), 0);
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
    case MemberRule::Succeeds:
    case MemberRule::SucceedsIfConnected:
      return "True";
    case MemberRule::Fails:
    case MemberRule::FailsIfConnected:
      return "False";
  }
  return "";
}

const char* SourceText(PositionSource source) {
  switch (source) {
    case PositionSource::Estimate:
      return "estimated";
    case PositionSource::OnConnecting:
      return "read on connecting";
    case PositionSource::BeforeSteps:
      return "read before steps";
    case PositionSource::AboveHorizon:
      return "read above the horizon";
    case PositionSource::Camera:
      return "read";
  }
  return "";
}

/// A driver and the camera that its table plays.
class Session {
 public:
  Session(const DriverClass& driver, const Answers& answers)
      : Answers_(answers),
        Held(test::CreateSubject(driver, {.Internet = &Internet, .Clock = &Clock, .Sockets = &Sockets})) {
    Obeys();
  }

  void Obeys() {
    Internet.Answer = [this](const test::SentRequest& request) {
      for (const auto& [part, reply] : Answers_.Camera)
        if (request.Object.find(part) != std::string::npos) return FakeReply{reply};
      const auto takes = Answers_.Fact("takes");
      return FakeReply{takes.empty() ? "OK" : test::Unescaped(takes)};
    };
  }
  void Refuses() {
    const auto refusal = Answers_.Fact("refuses");
    Internet.Answer = [refusal](const auto&) {
      const auto blank = std::min(refusal.find(' '), refusal.size() - 1);
      return FakeReply{test::Unescaped(refusal.substr(blank + 1)),
                       "HTTP/1.1 " + refusal.substr(0, 3) + " So"};
    };
  }
  void IsUnheard() {
    Internet.Answer = [](const auto&) { return FakeReply{.Answers = false}; };
    Sockets.ConnectError = 10061;
    Sockets.SendError = 10054;
    Ports.Line.Plugged = false;
  }

  bool Connect(const test::OptionValues& more = {}, const std::string& address = "10.0.0.5") {
    test::OptionValues options{{"COMPort", 1}, {"Feed", std::string("3")}};
    options.insert(options.end(), more.begin(), more.end());
    return Held.Device->Connect(test::CameraOptions(options, address));
  }
  /// Connected, at a position away from the ends, with nothing sent since.
  void Start() {
    ASSERT_TRUE(Connect());
    if (const auto told = Words(Answers_.Fact("told")); !told.empty())
      Held.Device->SetPanTilt(std::stof(told[0]), std::stof(told[1]));
    TakeSent();
  }

  /// Everything that went out or was tried to since the last call.
  std::vector<std::string> TakeSent() {
    std::vector<std::string> sent;
    for (const auto& request : std::exchange(Internet.Sent, {}))
      sent.push_back((request.Object.empty() ? "/" : request.Object) +
                     (request.Body.empty() ? "" : " " + request.Body));
    for (const auto& connect : std::exchange(Sockets.Connects, {})) sent.push_back(Words(connect)[0]);
    for ([[maybe_unused]] const auto& trial : std::exchange(Sockets.SendTimeouts, {}))
      sent.emplace_back("a message");
    for (const auto& log : {Sockets.Log.Take(), Ports.Line.Log.Take()})
      for (const auto& entry : Words(log))
        if (!entry.starts_with("open:") && entry != "close" && !entry.ends_with("ms")) sent.push_back(entry);
    return sent;
  }

  FakeInternet Internet;
  FakeClock Clock;
  test::FakeSockets Sockets{Clock};
  test::FakeSerialPorts Ports{Clock};

 private:
  const Answers& Answers_;

 public:
  test::Subject Held;
};

std::string Text(bool answer) { return answer ? "True" : "False"; }
std::string Text(float answer) { return std::isfinite(answer) ? "value" : "no value"; }
std::string Text(const Variant& answer) {
  return answer == Variant() ? "empty" : answer == Variant(true) ? "True" : "another variant";
}
std::string Text(const std::vector<PTZNamedPreset>& answer) { return std::to_string(answer.size()); }

/// What a call answers, as the table writes it.
template <class Call>
std::string Answered(const Call& call) {
  if constexpr (std::is_void_v<decltype(call())>) {
    call();
    return "done";
  } else {
    return Text(call());
  }
}

struct Member {
  const char* Name;
  std::string (*Call)(const test::Subject&);

  bool Disconnects() const { return std::string_view(Name).starts_with("Disconnect"); }
};
#define MEMBER(name, interface, call)                                                        \
  Member {                                                                                   \
    name, [](const test::Subject& s) { return Answered([&] { return s.interface->call; }); } \
  }

/// What a member answers or the number that it raises.
std::string AnswerOf(const Member& member, const test::Subject& held) {
  std::string answer;
  const auto error = NumberOf([&] { answer = member.Call(held); });
  return error == 0 ? answer : std::to_string(error);
}

/// Every member that steers, of the interfaces that the driver has.
std::vector<Member> MembersOf(const test::Subject& held) {
  std::vector<Member> members{
      MEMBER("Move", Device, Move(DirectionUpLeft, 7)),
      MEMBER("MoveTo", Device, MoveTo(11, 13)),
      MEMBER("MoveBoth", Device, MoveBoth(8, -9)),
      MEMBER("Zoom", Device, Zoom(ZoomIn)),
      MEMBER("Iris", Device, Iris(IrisOpen)),
      MEMBER("Focus", Device, Focus(FocusFar)),
      MEMBER("PresetGoto", Device, PresetGoto(2)),
      MEMBER("PresetSave", Device, PresetSave(2)),
      MEMBER("Home", Device, Home()),
      MEMBER("SetPanTilt", Device, SetPanTilt(1, 2)),
      MEMBER("Pan", Device, Pan()),
      MEMBER("Tilt", Device, Tilt()),
      MEMBER("Disconnect", Device, Disconnect()),
  };
  const auto add = [&](bool has, const std::vector<Member>& more) {
    if (has) members.insert(members.end(), more.begin(), more.end());
  };
  add(held.Device2 != nullptr, {
                                   MEMBER("Move2", Device2, Move(DirectionUpLeft, 7)),
                                   MEMBER("MoveBoth2", Device2, MoveBoth(8, -9)),
                                   MEMBER("MoveTo2", Device2, MoveTo(11, 13, 3)),
                                   MEMBER("Zoom2", Device2, Zoom(ZoomIn, 0.5)),
                                   MEMBER("ZoomTo", Device2, ZoomTo(3)),
                                   MEMBER("Pan2", Device2, Pan()),
                                   MEMBER("Tilt2", Device2, Tilt()),
                                   MEMBER("ZoomLevel", Device2, ZoomLevel()),
                                   MEMBER("Disconnect2", Device2, Disconnect()),
                               });
  add(held.Continuous != nullptr, {
                                      MEMBER("ContinuousMove", Continuous, ContinuousMove(2, 3)),
                                      MEMBER("ContinuousZoom", Continuous, ContinuousZoom(2)),
                                      MEMBER("StopContinuous", Continuous, StopContinuous()),
                                  });
  add(held.NamedPresets != nullptr, {
                                        MEMBER("GetNamedPresets", NamedPresets, GetNamedPresets()),
                                        MEMBER("GotoNamedPreset", NamedPresets, GotoNamedPreset("Gate")),
                                    });
  return members;
}
#undef MEMBER

/// What a fact of the table says of the camera; behind it stands what the driver declares.
std::string Behaviour(const std::string& fact) { return fact.substr(0, fact.find(" | ")); }

/// A declared range as the table writes it: "-50..50 fiftieths of the fastest, passed on". A sign has none.
std::string Text(const std::optional<ValueRange>& declared) {
  if (!declared) return "";
  static const std::map<Beyond, const char*> behind{{Beyond::SignOnly, "sign only"},
                                                    {Beyond::Limited, "limited"},
                                                    {Beyond::GoesAround, "goes around"},
                                                    {Beyond::PassedOn, "passed on"},
                                                    {Beyond::Overflows, "overflows"}};
  const auto& [least, greatest, unit, ends, byModel] = *declared;
  std::ostringstream text;
  if (std::isfinite(least)) text << least;
  if (std::isfinite(least) || std::isfinite(greatest)) text << "..";
  if (std::isfinite(greatest)) text << greatest;
  if (text.tellp() != 0) text << " ";
  if (ends != Beyond::SignOnly) text << unit << ", ";
  text << behind.at(ends) << (byModel ? ", by model" : "");
  return text.str();
}

/// A range of the table: "any", "-180..180 wraps", "0..", "..255 else 6".
struct Range {
  bool Ends = false, Wraps = false, OpenAbove = false;
  float Low = 0, High = 0;
  std::string Behind;  // "clamps", "wraps" or the error beyond its end

  explicit Range(const std::string& fact) {
    const auto text = Behaviour(fact);
    const auto words = Words(text);
    const auto dots = text.find("..");
    Ends = dots != std::string::npos;
    if (!Ends && text != "any") throw std::runtime_error("no range: " + text);
    if (!Ends) return;
    if (dots != 0) Low = std::stof(text);
    const auto high = words[0].substr(dots + 2);
    OpenAbove = high.starts_with('<');
    High = high.empty() ? INFINITY : std::stof(high.substr(OpenAbove ? 1 : 0));
    if (words.size() > 1) Behind = words.back();
    Wraps = Behind == "wraps";
  }

  /// Where the driver says it is after it was told to go somewhere.
  float After(float target) const {
    if (!Ends) return target;
    if (!Wraps) return std::clamp(target, Low, High);
    if (target < Low) return target + 360;
    return target > High || (OpenAbove && target == High) ? target - 360 : target;
  }
};

/// Runs over every driver of the build, with each camera that the table has for it.
class EveryDriver : public testing::TestWithParam<DriverClass> {
 protected:
  static const std::vector<Answers>& Table() {
    static const auto table = test::ReadAllAnswers(PTZD_TEST_TABLES);
    return table;
  }
  void SetUp() override {
    for (const auto& answers : Table())
      if (GetParam().ProgID == "QVPTZ." + answers.Driver) Cameras.push_back(&answers);
    ASSERT_FALSE(Cameras.empty()) << "no table in " PTZD_TEST_TABLES "/drivers";
  }
  Session NewSession(const Answers& answers) const { return {GetParam(), answers}; }

  /// The requests of a call to a connected driver.
  template <class Call>
  std::vector<std::string> SentBy(const Answers& answers, const Call& call) const {
    auto session = NewSession(answers);
    session.Start();
    call(session.Held);
    return session.TakeSent();
  }

  std::vector<const Answers*> Cameras;
};

TEST_P(EveryDriver, AnswersInEachSituation) {
  using Situation = void (*)(Session&);
  const Situation situations[] = {
      [](Session&) {},
      [](Session& s) { s.Start(); },
      [](Session& s) { s.Start(), s.Refuses(); },
      [](Session& s) { s.Start(), s.IsUnheard(); },
      [](Session& s) { s.Start(), s.Held.Device->Disconnect(); },
  };
  const char* const names[] = {"before", "answered", "refused", "unheard", "after"};
  for (const auto* answers : Cameras) {
    const auto members = MembersOf(NewSession(*answers).Held);
    for (const auto& member : members)
      for (std::size_t i = 0; i < std::size(situations); ++i) {
        auto session = NewSession(*answers);
        situations[i](session);
        session.TakeSent();
        const auto answer = AnswerOf(member, session.Held);
        EXPECT_EQ(answer + (session.TakeSent().empty() ? "" : " sent"),
                  answers->Members.at(member.Name).at(i))
            << answers->Title << ", " << member.Name << ", " << names[i];
        const bool ends = member.Disconnects() && answer != "91";
        EXPECT_FALSE(ends && session.Held.Device->Connected()) << answers->Title << ", " << member.Name;
      }
  }
}

TEST_P(EveryDriver, ReadsThePositionOnceWhereItIsDue) {
  for (const auto* answers : Cameras) {
    SCOPED_TRACE(answers->Title);
    const auto reading = Words(answers->Fact("reading")).back();
    const auto good = answers->Fact("good");
    auto session = NewSession(*answers);
    const auto readings = [&] {
      return std::ranges::count_if(session.TakeSent(),
                                   [&](const auto& sent) { return sent.find(reading) != std::string::npos; });
    };
    ASSERT_TRUE(session.Connect());
    const auto atOnce = readings();
    EXPECT_EQ(atOnce != 0, reading != "never");
    for (const auto& member : MembersOf(session.Held)) {
      const bool reads = answers->Members.at(member.Name).at(5) == "read";
      const auto readsAfter = [&](int age, bool heard = true) {
        ASSERT_TRUE(session.Connect());
        session.Held.Device->Pan();
        session.TakeSent();
        session.Clock.Advance(age);
        if (!heard) session.IsUnheard();
        AnswerOf(member, session.Held);
      };
      readsAfter(good.empty() ? 3600000 : std::stoi(good));
      const auto sent = session.Internet.Sent;
      EXPECT_EQ(readings(), reads ? atOnce : 0) << member.Name;
      if (!reads) continue;
      EXPECT_NE(sent.at(0).Object.find(reading), std::string::npos) << member.Name << " reads first";
      readsAfter(std::stoi(good) - 1);
      EXPECT_EQ(readings(), 0) << member.Name << ", still good";
      readsAfter(std::stoi(good), false);
      EXPECT_EQ(readings(), 1) << member.Name << ", unheard";
      session.Obeys();
      AnswerOf(member, session.Held);
      EXPECT_EQ(readings(), 0) << member.Name << ", a reading that failed counts";
    }

    auto moved = NewSession(*answers);
    if (reading == "never" || moved.Held.Continuous == nullptr) continue;
    ASSERT_TRUE(moved.Connect());
    moved.Held.Device->Pan();
    moved.Held.Continuous->ContinuousMove(2, 3);
    moved.TakeSent();
    moved.Held.Device->Move(DirectionUpLeft, 7);
    EXPECT_NE(moved.Internet.Sent.at(0).Object.find(reading), std::string::npos) << "after a motion";
  }
}

TEST_P(EveryDriver, IsToldWhereItIs) {
  for (const auto* answers : Cameras) {
    const auto told = [&](Session& session) {
      session.Held.Device->SetPanTilt(21, -20);
      return std::abs(session.Held.Device->Pan() - 21) < 3 && std::abs(session.Held.Device->Tilt() + 20) < 3;
    };
    auto before = NewSession(*answers), connected = NewSession(*answers);
    connected.Start();
    connected.Held.Device->Pan();
    connected.TakeSent();
    std::string does = told(before) ? "stores always" : told(connected) ? "stores" : "nothing";
    connected.Held.Device->Move(DirectionUpLeft, 7);
    for (const auto& sent : connected.TakeSent())
      if (sent.find(Words(answers->Fact("reading")).back()) != std::string::npos) does = "reads anew";
    EXPECT_TRUE(answers->Fact("is told").starts_with(does)) << answers->Title << ": " << does;
  }
}

TEST_P(EveryDriver, Connects) {
  for (const auto* answers : Cameras) {
    SCOPED_TRACE(answers->Title);
    auto session = NewSession(*answers);
    auto& held = session.Held;
    auto* driver = held.Device;
    std::string interfaces;
    for (const auto& [name, has] : {std::pair("PTZDevice2 ", held.Device2 != nullptr),
                                    {"PTZContinuousControl ", held.Continuous != nullptr},
                                    {"PTZOptions ", held.Options != nullptr},
                                    {"PTZNamedPresets ", held.NamedPresets != nullptr},
                                    {"PTZMoveInImage ", held.MovesInImage}})
      if (has) interfaces += name;
    EXPECT_EQ(interfaces.empty() ? "nothing " : interfaces, answers->Fact("interfaces") + " ");

    const auto capabilities = [&] {
      EXPECT_TRUE(held.Device2 == nullptr || held.Device2->Capabilities() == driver->Capabilities());
      return std::to_string(driver->Capabilities());
    };
    const auto capabilitiesBefore = capabilities();
    const auto presetsBefore = std::to_string(driver->PresetCount());
    EXPECT_FALSE(driver->Connected());

    const auto attempt = [&](const std::string& address, const test::OptionValues& options) {
      bool connected = false;
      const auto error = ErrorOf([&] { connected = session.Connect(options, address); });
      EXPECT_EQ(driver->Connected(), connected);
      return error.empty() ? Text(connected) : error.substr(0, error.find_last_not_of(' ') + 1);
    };
    EXPECT_EQ(attempt("", {{"COMPort", 0}}), answers->Fact("no address"));
    EXPECT_EQ(session.TakeSent(), std::vector<std::string>());
    session.IsUnheard();
    const auto unheard = attempt("10.0.0.5", {});
    EXPECT_EQ(unheard, answers->Fact("unheard"));
    // As the support matrix writes it.
    RecordProperty("unheard", unheard == "True"    ? "connects"
                              : unheard == "False" ? unheard
                                                   : "raises " + Words(unheard)[0]);
    driver->Connected() ? void(driver->Disconnect()) : void();
    for (const auto& bytes : {ptzd::Bytes{1, 2, 3}, ptzd::Bytes{}})
      EXPECT_NE(ErrorOf([&] { return driver->Connect(bytes); }), "") << "these are no options";
    EXPECT_FALSE(driver->Connected());

    auto next = NewSession(*answers);
    for (int round = 0; round < 2; ++round) {
      ASSERT_TRUE(next.Connect());
      EXPECT_TRUE(next.Held.Device->Connected());
      auto expected = Words(answers->Fact("asks") + " " + answers->Fact("moves"));
      std::erase(expected, "nothing");
      EXPECT_EQ(next.TakeSent(), expected);
      if (round == 0) {
        const auto at = Words(answers->Fact("at"));
        EXPECT_NEAR(next.Held.Device->Pan(), std::stof(at.at(0)), 0.02);
        EXPECT_NEAR(next.Held.Device->Tilt(), std::stof(at.at(1)), 0.02);
        ASSERT_EQ(at.size(), next.Held.Device2 != nullptr ? 3 : 2);
        if (at.size() == 3) {
          EXPECT_NEAR(next.Held.Device2->ZoomLevel(), std::stof(at[2]), 0.001);
        }
      }
      EXPECT_EQ(capabilitiesBefore + " " + std::to_string(next.Held.Device->Capabilities()),
                answers->Fact("capabilities"));
      EXPECT_EQ(presetsBefore + " " + std::to_string(next.Held.Device->PresetCount()),
                answers->Fact("presets"));
      next.Held.Device->Disconnect();
      next.TakeSent();
    }
  }
}

TEST_P(EveryDriver, KeepsTheBagOfAConnectThatFailed) {
  for (const auto& member : MembersOf(NewSession(*Cameras[0]).Held)) {
    const auto& row = Cameras[0]->Members.at(member.Name);
    if (row.at(0) != "91" || row.at(4) == "91") continue;
    auto session = NewSession(*Cameras[0]);
    session.IsUnheard();
    NumberOf([&] { return session.Connect(); });
    session.TakeSent();
    session.Obeys();
    EXPECT_EQ(AnswerOf(member, session.Held), Words(row.at(4)).at(0)) << member.Name;
  }
}

TEST_P(EveryDriver, AMotionThatIsHeldThroughAReconnectGoesOn) {
  if (NewSession(*Cameras[0]).Held.Continuous == nullptr) return;
  const auto run = [](const auto& held, bool zooms) {
    zooms ? held.Continuous->ContinuousZoom(1) : held.Continuous->ContinuousMove(6, -6);
  };
  std::vector<std::string> first[2];
  for (const bool zooms : {false, true})
    first[zooms] = SentBy(*Cameras[0], [&](const auto& held) { run(held, zooms); });
  EXPECT_FALSE(first[false].empty());
  auto session = NewSession(*Cameras[0]);
  for (const bool zooms : {false, false, true, true}) {
    session.Start();
    run(session.Held, zooms);
    EXPECT_EQ(session.TakeSent(), first[zooms]);
  }
}

TEST_P(EveryDriver, TellsNobodyTheLogin) {
  const auto tellsNobody = [&](const std::string& password, const FakeReply& reply, bool works) {
    std::string told;
    SetLogSink([&](std::string_view line) { (told += line) += '\n'; });
    auto session = NewSession(*Cameras[0]);
    if (!works) session.Internet.Answer = [&](const auto&) { return reply; };
    const auto call = [&](const auto& member) { (told += ErrorOf(member)) += '\n'; };
    call([&] { return session.Connect({}, "Us3r:" + password + "@10.0.0.5"); });
    for (const auto answers : {works, false}) {
      if (!answers) session.Internet.Answer = [&](const auto&) { return reply; };
      for (const auto& member : MembersOf(session.Held))
        if (!member.Disconnects()) call([&] { member.Call(session.Held); });
    }
    SetLogSink({});
    EXPECT_EQ(told.find("Secret"), std::string::npos) << told;
    EXPECT_EQ(told.find("Us3r"), std::string::npos) << told;
  };
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

TEST_P(EveryDriver, StaysInItsRanges) {
  for (const auto* answers : Cameras) {
    SCOPED_TRACE(answers->Title);
    const auto stays = [&](const char* axis, float most, float beyond, auto go, auto where) {
      const Range range(answers->Fact(axis));
      const auto low = range.Ends ? range.Low : -most;
      const auto high = range.Ends ? std::min(range.High, most) : most;
      for (const auto target : {low, low - beyond, range.OpenAbove ? high - 0.1F : high, high + beyond}) {
        auto session = NewSession(*answers);
        session.Start();
        session.Held.Device->Pan();
        go(session.Held, target);
        EXPECT_NEAR(where(session.Held), range.After(target), 0.02) << axis << " " << target;
      }
    };
    stays(
        "pan", 1000, 30, [](auto& s, float to) { s.Device->MoveTo(to, 0); },
        [](auto& s) { return s.Device->Pan(); });
    stays(
        "tilt", 1000, 30, [](auto& s, float to) { s.Device->MoveTo(0, to); },
        [](auto& s) { return s.Device->Tilt(); });
    const bool hasZoom = NewSession(*answers).Held.Device2 != nullptr;
    EXPECT_EQ(Behaviour(answers->Fact("zoom")) != "steps", hasZoom);
    if (hasZoom)
      stays(
          "zoom", 10, 0.5, [](auto& s, float to) { s.Device2->ZoomTo(to); },
          [](auto& s) { return s.Device2->ZoomLevel(); });

    const bool first = SentBy(*answers, [](auto& s) { s.Device->Move(static_cast<Directions>(15), 7); }) ==
                       SentBy(*answers, [](auto& s) { s.Device->Move(DirectionUpLeft, 7); });
    EXPECT_EQ(first ? "first" : "cancel", answers->Fact("opposites"));
    EXPECT_EQ(first, SentBy(*answers, [](auto& s) { s.Device->Move(static_cast<Directions>(15), 7); }) !=
                         SentBy(*answers, [](auto& s) { s.Device->Move({}, 7); }));
  }
}

TEST_P(EveryDriver, RefusesWhatIsNoNumberBeforeItMoves) {
  const std::pair<const char*, void (*)(const test::Subject&, float)> calls[] = {
      {"Move", [](const auto& s, float amount) { s.Device->Move(DirectionUp, amount); }},
      {"MoveBoth", [](const auto& s, float amount) { s.Device->MoveBoth(amount, 1); }},
      {"MoveBoth", [](const auto& s, float amount) { s.Device->MoveBoth(1, amount); }},
      {"MoveTo", [](const auto& s, float amount) { s.Device->MoveTo(amount, 1); }},
      {"MoveTo", [](const auto& s, float amount) { s.Device->MoveTo(1, amount); }},
      {"ZoomTo", [](const auto& s, float amount) { s.Device2->ZoomTo(amount); }},
      {"MoveTo2", [](const auto& s, float amount) { s.Device2->MoveTo(1, 2, amount); }},
      {"ContinuousMove", [](const auto& s, float amount) { s.Continuous->ContinuousMove(1, amount); }},
  };
  for (const auto* answers : Cameras)
    for (const auto& [member, call] : calls) {
      const auto row = answers->Members.find(member);
      if (row == answers->Members.end() || !row->second.at(1).ends_with(" sent")) continue;
      auto session = NewSession(*answers);
      session.Start();
      const auto before = session.Held.Device->Pan();
      EXPECT_EQ(NumberOf([&, call = call] { call(session.Held, NAN); }), 6)
          << answers->Title << ", " << member;
      for (const auto& sent : session.TakeSent())
        EXPECT_NE(sent.find(Words(answers->Fact("reading")).back()), std::string::npos) << sent;
      EXPECT_EQ(session.Held.Device->Pan(), before) << answers->Title << ", " << member;
    }
}

TEST_P(EveryDriver, SendsNothingForALensValueWithoutAName) {
  const auto sent = SentBy(*Cameras[0], [](auto& s) {
    const bool always = GetParam().Data->Iris == MemberRule::SucceedsIfConnected;
    EXPECT_EQ(s.Device->Iris(static_cast<Iris>(3)), always);
    EXPECT_EQ(s.Device->Focus(static_cast<Focus>(-1)), always);
  });
  EXPECT_EQ(sent, std::vector<std::string>());
}

TEST_P(EveryDriver, TakesSpeedsInTheirRanges) {
  const auto& answers = *Cameras[0];
  const auto takes = [&](const char* name, auto go) {
    const auto text = Behaviour(answers.Fact(name));
    const Range range(text == "none" ? "any" : text);
    const auto sent = [&](float speed) { return SentBy(answers, [&](auto& s) { go(s, speed); }); };
    if (!range.Ends) {
      EXPECT_EQ(sent(100) == sent(200), text == "none") << name;
    } else if (range.Behind.empty()) {
      EXPECT_EQ(sent(range.High), sent(4 * range.High)) << name;
      EXPECT_NE(sent(range.High), sent(range.High - 0.5F)) << name;
    } else {
      EXPECT_NE(sent(range.High), sent(range.High - 1)) << name;
      EXPECT_EQ(std::to_string(NumberOf([&] { sent(range.High + 1); })), range.Behind) << name;
    }
  };
  const bool has = NewSession(answers).Held.Continuous != nullptr;
  EXPECT_EQ(!answers.Fact("pan speed").empty() && !answers.Fact("zoom speed").empty(), has);
  if (!has) return;
  takes("pan speed", [](auto& s, float speed) { s.Continuous->ContinuousMove(speed, 0); });
  takes("zoom speed", [](auto& s, float speed) { s.Continuous->ContinuousZoom(speed); });
}

TEST_P(EveryDriver, ReadsItsSharedOptions) {
  const auto& answers = *Cameras[0];
  const auto everything = [&](const std::string& address, const test::OptionValues& options) {
    auto session = NewSession(answers);
    std::string all;
    NumberOf([&] { session.Connect(options, address); });
    const auto note = [&] {
      for (const auto& request : session.Internet.Sent) all += request.Host;
      for (const auto& sent : session.TakeSent()) all += sent + "\n";
      all += std::to_string(session.Clock.TickCount()) + "\n";  // motors run for a time
    };
    note();
    for (const auto& member : MembersOf(session.Held)) {
      AnswerOf(member, session.Held);
      note();
    }
    return all;
  };
  const auto usual = everything("10.0.0.5", {});
  std::string read;
  if (everything("10.0.0.6", {}) != usual) read += "Address ";
  for (const auto& [name, value] :
       test::OptionValues{{"Camera", std::string("7")}, {"Port", 2}, {"Reset", true}})
    if (everything("10.0.0.5", {{name, value}}) != usual) read += std::string(name) + " ";
  EXPECT_EQ(read, answers.Fact("options") + " ");

  test::OptionValues defaults;
  for (const auto* option : GetParam().Data->Options)
    if (option->Described && option->Name != "Feed")
      defaults.emplace_back(option->Name.data(), option->Descriptor().Default());
  EXPECT_EQ(everything("10.0.0.5", defaults), usual) << "an option that is absent has the default described";
}

std::string Text(const PTZOption& option) {
  const auto text = [](const Variant& value) {
    if (const auto* truth = std::get_if<bool>(&value)) return Text(*truth);
    if (const auto* number = std::get_if<std::int32_t>(&value)) return std::to_string(*number);
    auto words = std::get<std::string>(value);
    std::ranges::replace(words, ' ', '_');
    return words;
  };
  const std::map<std::int32_t, std::string> kinds{{OptionInteger, "integer"},
                                                  {OptionText, "text"},
                                                  {OptionBoolean, "boolean"},
                                                  {OptionChoiceIndex, "index of"},
                                                  {OptionChoiceText, "one of"}};
  auto line = option.Name() + ", " + option.Description() + ", " + kinds.at(option.OType());
  for (const auto& value : option.Values()) line += " " + text(value);
  const auto theDefault = text(option.Default());
  return line + "," + (theDefault.empty() ? "" : " ") + theDefault;
}

TEST_P(EveryDriver, DescribesItsOptionsAnewEachTime) {
  const auto session = NewSession(*Cameras[0]);
  auto* options = session.Held.Options;
  if (options == nullptr) return;
  const auto all = options->NewEnum();
  std::vector<std::string> described;
  for (const auto& option : all) described.push_back(Text(option));
  EXPECT_EQ(described, Cameras[0]->Options);
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

/// The rule that a member's row amounts to.
MemberRule RuleOf(const std::vector<std::string>& row) {
  const auto& obeyed = row.at(1);
  if (!obeyed.ends_with(" sent")) return MemberRule::Nothing;
  const bool gated = row.at(0) == "False" && row.at(4) == "False";
  if (obeyed == "False sent") return gated ? MemberRule::FailsIfConnected : MemberRule::Fails;
  if (row.at(3) != "False sent") return gated ? MemberRule::SucceedsIfConnected : MemberRule::Succeeds;
  return gated ? MemberRule::OutcomeIfConnected : MemberRule::Outcome;
}

// What a driver declares of itself, for tools and documents, beside the table. Where one camera of the make
// does what another does not, the one that does counts.
TEST_P(EveryDriver, DeclaresWhatItDoes) {
  const auto& data = *GetParam().Data;
  const auto& answers = *Cameras[0];
  const std::pair<const char*, MemberRule DriverData::*> rules[] = {
      {"Move", &DriverData::Move},
      {"MoveTo", &DriverData::MoveTo},
      {"MoveBoth", &DriverData::MoveBoth},
      {"Zoom", &DriverData::Zoom},
      {"Iris", &DriverData::Iris},
      {"Focus", &DriverData::Focus},
      {"PresetGoto", &DriverData::PresetGoto},
      {"PresetSave", &DriverData::PresetSave},
      {"Home", &DriverData::Home},
  };
  for (const auto& [name, rule] : rules) {
    auto expected = MemberRule::Nothing;
    for (const auto* camera : Cameras) expected = std::max(expected, RuleOf(camera->Members.at(name)));
    EXPECT_EQ(data.*rule, expected) << name;
    RecordProperty(name, RuleText(data.*rule));
  }
  RecordProperty("position", SourceText(data.Source()));

  const auto reading = answers.Fact("reading");
  const bool misreads = std::stof(Words(answers.Fact("at")).at(1)) > 180;
  EXPECT_EQ(data.MisreadsBelowHorizon, misreads);
  const std::pair<unsigned, std::vector<const char*>> occasions[] = {
      {AsksBeforeMove, {"Move", "MoveBoth", "Move2", "MoveBoth2"}},
      {AsksBeforeMoveTo, {"MoveTo", "MoveTo2"}},
      {AsksBeforeZoom, {"Zoom", "Zoom2"}},
      {AsksBeforeZoomTo, {"ZoomTo"}},
      {AsksBeforeAnswer, {"Pan", "Tilt"}},
  };
  EXPECT_EQ((data.PositionRequests & AsksOnConnecting) != 0, reading != "never");
  const bool behindTarget = (data.PositionRequests & AsksBehindTarget) != 0;
  EXPECT_EQ(behindTarget, misreads) << "only one make works its targets out before it asks";
  for (const auto& [flag, members] : occasions) {
    bool reads = false;
    for (const char* member : members)
      if (const auto row = answers.Members.find(member); row != answers.Members.end())
        reads = reads || row->second.at(5) == "read";
    const bool ownFlag = (data.PositionRequests & flag) != 0;
    const bool byTarget = behindTarget && flag != AsksBeforeAnswer;
    EXPECT_EQ(ownFlag || byTarget, reads) << members[0];
    EXPECT_TRUE(!byTarget || ownFlag == (flag == AsksBeforeMove || flag == AsksBeforeZoom)) << members[0];
  }
  const auto good = answers.Fact("good");
  EXPECT_EQ(std::to_string(data.PositionLifetime) + " ms", good.empty() ? "5000 ms" : good);
  std::ostringstream rests;
  rests << "within " << data.PositionStep << ", zoom " << data.ZoomStep << ", every " << data.PositionPace
        << " ms";
  const auto wanted = answers.Fact("rests");
  EXPECT_EQ(rests.str(), wanted.empty() ? "within 1, zoom 0.25, every 250 ms" : wanted);

  EXPECT_EQ(std::to_string(data.Capabilities), Words(answers.Fact("capabilities")).at(0));
  EXPECT_EQ(std::to_string(data.PresetCount), Words(answers.Fact("presets")).at(0));
  EXPECT_EQ(data.OppositesCancel, answers.Fact("opposites") == "cancel");
  const std::map<std::string, PlaceRule> places{{"nothing", PlaceRule::Ignored},
                                                {"stores", PlaceRule::TakenIfConnected},
                                                {"stores always", PlaceRule::Taken},
                                                {"reads anew", PlaceRule::AsksAnewIfConnected},
                                                {"reads anew always", PlaceRule::AsksAnew}};
  EXPECT_EQ(data.SetPanTilt, places.at(Cameras.back()->Fact("is told")));
  EXPECT_FALSE(data.Evidence.empty() || data.MakeNames.empty()) << "nobody finds such a camera";
  EXPECT_EQ(data.AsksToConnect, !answers.Fact("asks").empty() && answers.Fact("asks") != "nothing");
  const auto moving =
      std::ranges::count_if(Cameras, [](const auto* camera) { return camera->Fact("moves") != "nothing"; });
  EXPECT_EQ(data.MovesToConnect, moving == 0                     ? ConnectMovement::Never
                                 : moving == std::ssize(Cameras) ? ConnectMovement::OnEveryModel
                                                                 : ConnectMovement::OnSomeModels);
  const auto stop = answers.Members.find("StopContinuous");
  EXPECT_TRUE(stop == answers.Members.end() || data.StopsBySpeedZero == (stop->second.at(1) == "done sent"));

  const auto declared = [&](const char* name) {
    const auto fact = answers.Fact(name);
    return fact.find(" | ") == fact.npos ? "" : fact.substr(fact.find(" | ") + 3);
  };
  EXPECT_EQ(Text(data.PanRange), declared("pan"));
  EXPECT_EQ(Text(data.TiltRange), declared("tilt"));
  EXPECT_EQ(Text(data.ZoomRange), declared("zoom"));
  EXPECT_EQ(Text(data.PanSpeed), declared("pan speed"));
  EXPECT_EQ(Text(data.TiltSpeed), declared(answers.Fact("tilt speed").empty() ? "pan speed" : "tilt speed"));
  EXPECT_EQ(Text(data.ZoomSpeed), declared("zoom speed"));

  EXPECT_EQ(data.DisconnectAnswersTrue, answers.Members.at("Disconnect").at(1) == "True");
  bool needsBag = false;
  for (const auto& [name, row] : answers.Members) needsBag = needsBag || row.at(0) == "91";
  EXPECT_EQ(data.NeedsLine, answers.Members.at("Disconnect").at(0) == "91");
  EXPECT_EQ(data.NeedsOptions, needsBag && !data.NeedsLine);
  EXPECT_EQ(data.ConnectsUnheard, answers.Fact("unheard") == "True");
  EXPECT_EQ(data.NoAddress
                ? std::to_string(data.NoAddress->Number) + " " + std::string(data.NoAddress->Description)
                : "False",
            answers.Fact("no address"));
  auto expected = Words(answers.Fact("options"));
  for (const auto& option : answers.Options) expected.push_back(option.substr(0, option.find(',')));
  std::vector<std::string> read;
  for (const auto* option : data.Options) read.emplace_back(option->Name);
  EXPECT_EQ(read, expected);
}

INSTANTIATE_TEST_SUITE_P(Catalogue, EveryDriver,
                         testing::ValuesIn(DriverClasses().begin(), DriverClasses().end()),
                         [](const auto& driver) { return std::string(driver.param.ProgID.substr(6)); });

}  // namespace
}  // namespace ptzd
