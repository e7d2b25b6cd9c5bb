// The promises of `CameraControl`, on simulated cameras whose time stands still, so that what was set in
// motion stays so until it is stopped.

#include <gtest/gtest.h>

#include <ptzd/CameraControl.h>
#include <ptzd/PropertyBag.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "simulators/Axis.h"
#include "simulators/Bosch.h"
#include "simulators/Foscam.h"
#include "simulators/Grandeye.h"
#include "simulators/MeritLilin.h"
#include "simulators/Pelco.h"
#include "simulators/Quorvane.h"
#include "simulators/Sanyo.h"
#include "simulators/Secubest.h"
#include "simulators/Sony.h"
#include "simulators/Toshiba.h"
#include "simulators/Vivotek.h"
#include "support/FakeClock.h"

namespace ptzd {

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

/// Long enough never to be met by a healthy test.
constexpr auto Deadline = 30s;

struct Mover {
  const char* Class;
  std::function<std::unique_ptr<ptzsim::Simulator>()> Camera;
  bool Timed = false;         ///< moves by driving its motors for a time
  const char* Interval = "";  ///< the option that says for how long
  bool OnNetwork = true;      ///< where a link can be cut from the camera's side
  bool KnowsLogins = true;
};
void PrintTo(const Mover& mover, std::ostream* out) { *out << mover.Class; }

template <class Camera>
std::function<std::unique_ptr<ptzsim::Simulator>()> Still(typename Camera::Options options = {}) {
  options.Clock = ptzsim::ClockKind::Manual;
  return [options] { return std::make_unique<Camera>(options); };
}

const Mover Movers[] = {
    {"Axis", Still<ptzsim::Axis>()},
    {"Bosch", Still<ptzsim::Bosch>()},
    {"Foscam", Still<ptzsim::Foscam>()},
    {"FoscamHD", Still<ptzsim::Foscam>({.Generation = ptzsim::Foscam::Kind::HD}), true, "MoveInterval"},
    {"MeritLilin", Still<ptzsim::MeritLilin>()},
#ifndef _WIN32  // has no pseudo-terminals
    {"Pelco", Still<ptzsim::Pelco>({.Line = {.Baud = 2400, .Raw = false}}), true, "MoveInterval", false,
     false},
#endif
    {"Quorvane", Still<ptzsim::Quorvane>()},
    {"Sanyo", Still<ptzsim::Sanyo>({.Session = 24h})},
    {"Secubest", Still<ptzsim::Secubest>(), true, "MoveInterval", true, false},
    {"Sony", Still<ptzsim::Sony>()},
    {"Vivotek", Still<ptzsim::Vivotek>()},
};

bool IsMoving(const nlohmann::json& state) {
  if (!state.is_structured()) return false;
  if (state.is_object() && state.contains("moving") && state["moving"] == true) return true;
  return std::ranges::any_of(state, [](const auto& part) { return IsMoving(part); });
}

/// Waits until a camera does or does not move; each message may change that.
testing::AssertionResult Comes(const ptzsim::Simulator& camera, ptzsim::RequestLog& log, bool moving) {
  const auto end = steady_clock::now() + Deadline;
  while (true) {
    const auto seen = log.Requests().size();
    if (IsMoving(camera.State()) == moving) break;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - steady_clock::now());
    if (left <= 0ms || !log.WaitForRequests(seen + 1, left))
      return testing::AssertionFailure() << camera.State();
  }
  return testing::AssertionSuccess();
}

WishOutcome Await(const std::shared_future<WishOutcome>& future) {
  if (future.wait_for(Deadline) != std::future_status::ready) {
    ADD_FAILURE() << "the wish is not done";
    return {.Result = WishResult::Abandoned, .Text = "never done"};
  }
  return future.get();
}

class Control : public testing::Test {
 protected:
  CameraSettings SettingsFor(const char* driver,
                             const std::vector<std::pair<const char*, Variant>>& options = {}) {
    CameraSettings settings;
    settings.Driver = std::string("QVPTZ.") + driver;
    PropertyBag bag;
    const auto address = Camera->Addresses().at(0);
    if (settings.Driver == "QVPTZ.Pelco") {
      Ports->MapDevice(1, address);
      settings.Ports = Ports;
      bag.WriteProperty("COMPort", 1);
    }
    bag.WriteProperty("Address", address);
    bag.WriteProperty("Feed", std::string("3"));
    for (const auto& [name, value] : options) bag.WriteProperty(name, value);
    settings.Options = bag.Contents();
    settings.FirstPause = 5ms;
    settings.LongestPause = 20ms;
    settings.WatchesMoves = false;
    return settings;
  }
  testing::AssertionResult Comes(bool moving) const { return ptzd::Comes(*Camera, Camera->Log(), moving); }

  std::unique_ptr<ptzsim::Simulator> Camera;
  std::shared_ptr<SharedSerialPorts> Ports = std::make_shared<SharedSerialPorts>();
};

class EveryMover : public Control, public testing::WithParamInterface<Mover> {
 protected:
  void SetUp() override { Camera = GetParam().Camera(); }
  CameraSettings Settings() { return SettingsFor(GetParam().Class); }
  /// One that has no end by itself, under way.
  CameraControl::Drive Drive(CameraControl& control, std::chrono::milliseconds lease = 0ms) {
    auto drive = control.DriveAt({.PanTilt = DriveSpeeds::Head{-12, 9}}, lease);
    const auto sent = Await(drive.Wish.Sent);
    EXPECT_EQ(sent.Result, WishResult::Sent) << sent.Text;
    EXPECT_TRUE(Comes(true));
    return drive;
  }
};

TEST_P(EveryMover, RestsAfterAStopALeaseAndTheDeathOfItsOwners) {
  CameraControl control(Settings());
  {
    const auto drive = Drive(control);
    EXPECT_EQ(control.State().Motion, CameraMotion::Driven);
    const auto stopped = Await(control.Stop().Done);
    EXPECT_EQ(stopped.Result, WishResult::Sent) << stopped.Text;
    EXPECT_EQ(stopped.Tries, 1);
    EXPECT_FALSE(stopped.Exchanges.empty());
    EXPECT_EQ(Await(drive.Wish.Done).Result, WishResult::Stopped);
    EXPECT_TRUE(Comes(false)) << "after a stop";
    EXPECT_EQ(control.State().Motion, CameraMotion::AtRest);
    EXPECT_EQ(control.State().Position.Kind, PositionKind::Unknown);
    EXPECT_EQ(Await(control.Stop().Done).Tries, 1) << "another one is no repeat";
  }
  {
    const auto drive = Drive(control, 100ms);
    EXPECT_EQ(Await(drive.Wish.Done).Text, "its lease ended");
    EXPECT_TRUE(Comes(false)) << "after its lease";
  }
  {
    auto left = Drive(control);
    const auto wish = left.Wish;
    left = {};
    EXPECT_EQ(Await(wish.Done).Result, WishResult::Stopped);
    EXPECT_TRUE(Comes(false)) << "after its owner let go";
  }
  for (const bool isReplaced : {false, true}) {
    auto held = Drive(control);
    auto beyond = control.DriveAt({.PanTilt = DriveSpeeds::Head{NAN, 0}}, 0ms);
    if (isReplaced) std::swap(held, beyond), beyond = {};
    EXPECT_EQ(Await((isReplaced ? held : beyond).Wish.Done).Result, WishResult::OutOfRange);
    held = {};
    EXPECT_TRUE(Comes(false)) << "after its owner let go of it, with one that cannot be behind it";
  }
  Await(control.Stop().Done);  // what is left of its last stop could come behind the drive of another
  auto other = std::make_unique<CameraControl>(Settings());
  auto drive = Drive(*other);
  other.reset();
  EXPECT_EQ(Await(drive.Wish.Done).Result, WishResult::Stopped);
  EXPECT_TRUE(Comes(false)) << "after the control died";
  EXPECT_EQ(Camera->Log().Violations(), std::vector<std::string>{});
}

class NetworkMover : public EveryMover {};

TEST_P(NetworkMover, RestsOnceACutLinkIsBack) {
  CameraControl control(Settings());
  auto drive = Drive(control);
  Camera->Faults().Set("refuse");
  const auto stop = control.Stop();
  while (control.State().StopTries < 3) std::this_thread::yield();
  EXPECT_EQ(stop.Done.wait_for(0s), std::future_status::timeout);
  EXPECT_EQ(Await(control.MoveBy(5, 5).Done).Result, WishResult::NotReached)
      << "at once, while nothing answers";
  Camera->Faults().Clear();
  const auto stopped = Await(stop.Done);
  EXPECT_EQ(stopped.Result, WishResult::Sent) << stopped.Text;
  EXPECT_GE(stopped.Tries, 4);
  EXPECT_EQ(Await(drive.Wish.Done).Result, WishResult::Stopped);
  EXPECT_TRUE(Comes(false));
}

/// Without anybody asking: the loss is noticed by what is wished next, which fails.
TEST_P(NetworkMover, IsStoppedFirstOfAllWhenItComesBack) {
  auto settings = Settings();
  settings.StopTime = 20ms;  // is over before the link is back
  CameraControl control(settings);
  auto drive = Drive(control);
  Camera->Faults().Set("refuse");
  const auto gaveUp = Await(control.Stop().Done);
  EXPECT_FALSE(IsDone(gaveUp.Result));
  EXPECT_NE(gaveUp.Text.find("could not be stopped, tried"), std::string::npos) << gaveUp.Text;
  EXPECT_NE(Await(drive.Wish.Done).Text.find("may still be moving"), std::string::npos);
  Camera->Faults().Clear();
  EXPECT_TRUE(Comes(false));
}

/// As a camera that is back before it is ready.
TEST_P(NetworkMover, IsStoppedWhenItIsBackAndRefusesAtFirst) {
  if (!GetParam().KnowsLogins) return;  // no HTTP, which alone can refuse
  auto settings = Settings();
  settings.StopTime = 20ms;
  CameraControl control(settings);
  auto drive = Drive(control);
  Camera->Faults().Set("refuse");
  EXPECT_FALSE(IsDone(Await(control.Stop().Done).Result));
  Camera->Log().Clear();
  Camera->Faults().Set("next=6,status=503");
  Camera->Faults().Clear(ptzsim::FaultKind::Refuse);
  EXPECT_TRUE(Comes(false));
}

class LoginMover : public EveryMover {};

TEST_P(LoginMover, TellsThatALoginIsWanted) {
  CameraControl control(Settings());
  ASSERT_TRUE(IsDone(Await(control.Connect().Done).Result));
  Camera->Time().Advance(60s);  // connecting itself moves some
  const auto before = Camera->State();
  Camera->Faults().Set("basic=somebody:else");
  const auto step = Await(control.MoveBy(5, 5).Done);
  EXPECT_EQ(step.Result, WishResult::LoginRefused) << step.Text;
  EXPECT_EQ(step.StatusCode, 401);
  EXPECT_EQ(Camera->State(), before);
}

class TimedMover : public EveryMover {};

TEST_P(TimedMover, EndsAMoveUnderWay) {
  auto settings = SettingsFor(GetParam().Class, {{GetParam().Interval, 10000}});
  settings.FirstPause = 1s;  // a stop that had to be repeated would show
  CameraControl control(settings);
  std::promise<WishOutcome> sent;
  auto move = control.MoveBy(90, 0, {{}, [&](const WishOutcome& outcome) { sent.set_value(outcome); }});
  ASSERT_TRUE(Comes(true));
  EXPECT_EQ(Await(sent.get_future()).Result, WishResult::Sent) << "told before it is done";
  const auto stopped = Await(control.Stop().Done);
  EXPECT_TRUE(IsDone(stopped.Result)) << stopped.Text;
  EXPECT_TRUE(Comes(false));
  const auto moved = Await(move.Done);
  EXPECT_EQ(moved.Result, WishResult::Stopped);
  EXPECT_LT(moved.Took, 20s) << "the wait was cut";
  EXPECT_EQ(control.State().Position.Kind, PositionKind::Unknown);

  const auto whole = Await(control.MoveBy(-0.1F, 0).Done);
  EXPECT_EQ(whole.Result, WishResult::Sent) << "the next one is whole again: " << whole.Text;
  EXPECT_TRUE(Comes(false));

  auto other = std::make_unique<CameraControl>(settings);
  move = other->MoveBy(90, 0);
  ASSERT_TRUE(Comes(true));
  other.reset();
  EXPECT_TRUE(Comes(false)) << "after the control died";
}

std::vector<Mover> Those(bool Mover::*which) {
  std::vector<Mover> those;
  std::ranges::copy_if(Movers, std::back_inserter(those),
                       [which](const Mover& mover) { return mover.*which; });
  return those;
}
std::string NameOf(const testing::TestParamInfo<Mover>& mover) { return mover.param.Class; }

INSTANTIATE_TEST_SUITE_P(Catalogue, EveryMover, testing::ValuesIn(Movers), NameOf);
INSTANTIATE_TEST_SUITE_P(Catalogue, NetworkMover, testing::ValuesIn(Those(&Mover::OnNetwork)), NameOf);
INSTANTIATE_TEST_SUITE_P(Catalogue, LoginMover, testing::ValuesIn(Those(&Mover::KnowsLogins)), NameOf);
INSTANTIATE_TEST_SUITE_P(Catalogue, TimedMover, testing::ValuesIn(Those(&Mover::Timed)), NameOf);

#ifndef _WIN32
/// As an adapter that is pulled out and put back.
TEST_F(Control, StopsFirstWhenItsSerialPortIsBack) {
  const auto pelco = Still<ptzsim::Pelco>({.Line = {.Baud = 2400, .Raw = false}});
  Camera = pelco();
  const auto device =
      testing::TempDir() + "ptzd-line-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed());
  const auto plug = [&] {
    std::filesystem::remove(device);
    std::filesystem::create_symlink(Camera->Addresses().at(0), device);
  };
  plug();
  auto settings = SettingsFor("Pelco");
  Ports->MapDevice(1, device);
  CameraControl control(settings);
  auto drive = control.DriveAt({.PanTilt = DriveSpeeds::Head{-12, 9}}, 0ms);
  EXPECT_EQ(Await(drive.Wish.Sent).Result, WishResult::Sent);
  std::filesystem::remove(device);
  Camera.reset();
  auto other = control.DriveAt({.PanTilt = DriveSpeeds::Head{5, 0}}, 0ms);
  EXPECT_EQ(Await(other.Wish.Sent).Result, WishResult::NotReached);
  while (control.State().StopTries < 2) std::this_thread::yield();
  Camera = pelco();
  plug();
  ASSERT_TRUE(Camera->Log().WaitForRequests(1));
  EXPECT_EQ(Camera->Log().Requests()[0].Raw, std::string("\xFF\x01\0\0\0\0\x01", 7)) << "a stop";
  while (control.State().Link != LinkHealth::Up) std::this_thread::yield();
  std::filesystem::remove(device);
}
#endif

TEST_F(Control, DoesNotSayOfAZoomThatIsNotToldThatItArrived) {
  Camera = Still<ptzsim::Sony>()();
  auto settings = SettingsFor("Sony");
  settings.WatchesMoves = true;
  CameraControl control(settings);
  ASSERT_TRUE(IsDone(Await(control.Connect().Done).Result));
  EXPECT_EQ(Await(control.ZoomTo(2).Done).Text, "the camera does not tell its zoom");
}

/// Which goes to the nearest of a few points only.
TEST_F(Control, TellsAQuestionFromAMove) {
  class Clock : public test::FakeClock {
   public:
    /// What drivers know of the position is too old each time.
    std::int32_t TickCount() override {
      Advance(60'000);
      return FakeClock::TickCount();
    }
  } clock;
  for (const auto* driver : {"Axis", "Grandeye"}) {
    SCOPED_TRACE(driver);
    Camera = (driver == std::string("Axis") ? Still<ptzsim::Axis>() : Still<ptzsim::Grandeye>())();
    auto settings = SettingsFor(driver);
    settings.Platform.Clock = &clock;
    CameraControl control(settings);
    ASSERT_TRUE(IsDone(Await(control.MoveTo(10, 5).Done).Result));
    Camera->Time().Advance(60s);
    Camera->Log().Clear();
    std::vector<WishResult> told;
    const auto note = [&told](const WishOutcome& outcome) { told.push_back(outcome.Result); };
    const auto there = Await(control.MoveTo(10, 5, {}, {note, note}).Done);
    EXPECT_EQ(there.Text, "it is there already");
    EXPECT_GT(Camera->Log().Requests().size(), 0U) << "it was asked";
    EXPECT_EQ(Await(control.MoveTo(10, 6, {}, {note, note}).Done).Text, "");
    Await(control.Disconnect().Done);  // all was told before
    using Results = std::vector<WishResult>;
    EXPECT_EQ(told, (Results{WishResult::Arrived, WishResult::Arrived, WishResult::Sent, WishResult::Sent}));
  }
}

TEST_F(Control, ArrivesAtThePointOfAGrid) {
  Camera = Still<ptzsim::Toshiba>()();
  auto settings = SettingsFor("Toshiba");
  settings.WatchesMoves = true;
  CameraControl control(settings);
  const auto move = control.MoveTo(12.3F, -4.7F);
  Await(move.Sent);
  Camera->Time().Advance(60s);
  EXPECT_EQ(Await(move.Done).Result, WishResult::Arrived);
}

/// On an Axis, which tells where it is and takes everything.
class AxisControl : public Control {
 protected:
  void SetUp() override { Start(ptzsim::AxisHead::Mechanical); }
  void Start(ptzsim::AxisHead head) {
    auto axis = std::make_unique<ptzsim::Axis>(
        ptzsim::Axis::Options{.Heads = {head}, .Clock = ptzsim::ClockKind::Manual});
    Axis = axis.get();
    Camera = std::move(axis);
  }
  /// What the camera was asked to do, without questions.
  std::vector<std::string> Commands() const {
    std::vector<std::string> commands;
    for (const auto& request : Camera->Log().Requests())
      if (request.Target.find("query=") == std::string::npos &&
          request.Target.find("info=") == std::string::npos)
        commands.push_back(request.Target.substr(request.Target.find('?') + 1));
    return commands;
  }
  ptzsim::Axis* Axis = nullptr;
};

TEST_F(AxisControl, SendsOnlyTheLatestOfWhatWaited) {
  CameraControl control(SettingsFor("Axis"));
  ASSERT_TRUE(IsDone(Await(control.Connect().Done).Result));
  Camera->Log().Clear();
  Camera->Faults().Set("next=1,delay=300");
  const auto first = control.MoveTo(1, 1);
  ASSERT_TRUE(Camera->Log().WaitForRequests(1));
  std::vector<Wish> wishes;
  for (int i = 0; i < 1000; ++i) wishes.push_back(control.MoveTo(static_cast<float>(i % 90), 0));
  const auto last = control.MoveTo(33, -7);
  const auto step = control.MoveBy(2, 0), another = control.MoveBy(2, 1);  // to where that goes
  const auto focus = control.Focus(FocusFar), turn = control.MoveBy(0, 1), zoom = control.Zoom(ZoomIn, 2);
  for (const auto& wish : {first, last, step, another, focus, turn, zoom})
    EXPECT_TRUE(IsDone(Await(wish.Done).Result));
  for (const auto& wish : wishes) EXPECT_EQ(Await(wish.Done).Text, "not sent: a later wish took its place");
  const auto commands = Commands();
  ASSERT_EQ(commands.size(), 5U);
  EXPECT_NE(commands[1].find("pan=37&tilt=-6"), std::string::npos) << commands[1];
  EXPECT_NE(commands[3].find("tilt=-5"), std::string::npos) << commands[3];
  EXPECT_NE(commands[4].find("zoom=2970"), std::string::npos) << commands[4];
}

TEST_F(AxisControl, HearsTheHolderOfADriveThatIsBeingSent) {
  CameraControl control(SettingsFor("Axis"));
  ASSERT_TRUE(IsDone(Await(control.Connect().Done).Result));
  Camera->Log().Clear();
  Camera->Faults().Set("next=1,delay=300");
  auto drive = control.DriveAt({.PanTilt = DriveSpeeds::Head{5, 0}}, 250ms);
  ASSERT_TRUE(Camera->Log().WaitForRequests(1));
  while (drive.Wish.Sent.wait_for(1ms) != std::future_status::ready) drive.Renew();
  EXPECT_GT(control.State().LeaseLeft.value_or(0ms), 0ms);
  EXPECT_EQ(Await(drive.Wish.Done).Result, WishResult::Stopped);
}

/// However eager those are who are told.
TEST_F(AxisControl, EndsWithEveryWishToldOnce) {
  auto settings = SettingsFor("Axis");
  auto control = std::make_unique<CameraControl>(settings);
  int tours = 0, ends = 0;
  std::promise<void> toured;
  const Told tour = [&, &worker = *control](const WishOutcome&) {
    if (++tours == 3) toured.set_value();
    worker.MoveTo(static_cast<float>(tours % 90), 0, {}, tour);
  };
  control->MoveTo(1, 1, {}, tour);
  toured.get_future().wait();
  auto left =
      control->DriveAt({.PanTilt = DriveSpeeds::Head{5, 0}}, 0ms, [&](const WishOutcome&) { ++ends; });
  left.Leave();
  control.reset();
  EXPECT_TRUE(left.Wish.Done.wait_for(0s) == std::future_status::ready);
  EXPECT_EQ(ends, 1);

  Camera->Log().Clear();
  Camera->Faults().Set("next=1,delay=300");
  control = std::make_unique<CameraControl>(settings);
  const auto late = control->MoveTo(40, 0);
  ASSERT_TRUE(Camera->Log().WaitForRequests(1)) << "it is being connected";
  control.reset();
  EXPECT_EQ(Await(late.Done).Result, WishResult::Abandoned);
  for (const auto& command : Commands()) EXPECT_EQ(command.find("pan="), std::string::npos) << command;
}

TEST_F(AxisControl, TellsWhatEndedADrive) {
  CameraControl control(SettingsFor("Axis"));
  ASSERT_TRUE(IsDone(Await(control.Connect().Done).Result));
  const auto questions = [&] { return Camera->Log().Requests().size() - Commands().size(); };
  using Later = std::function<void(CameraControl&)>;
  const auto drive = [](float pan) -> Later {
    return [pan](CameraControl& camera) {
      camera.DriveAt({.PanTilt = DriveSpeeds::Head{pan, 0}}, 0ms).Leave();
    };
  };
  const struct {
    Later What;
    const char *Fault, *Told;
  } rows[] = {
      {drive(5), "", "goes on at the same speed"},
      {drive(6), "", "a later wish took its place"},
      {drive(0), "", "a drive of speed 0"},
      {drive(6), "next=1,status=500", "a later drive failed: the camera refused: 500 Internal Server Error"},
      {[](CameraControl& camera) { camera.MoveTo(1, 1); }, "", "a later wish took its place"},
      {[](CameraControl& camera) { camera.Disconnect(); }, "", "the camera was disconnected"},
  };
  for (const auto& [what, fault, told] : rows) {
    const auto asked = questions();
    auto driven = control.DriveAt({.PanTilt = DriveSpeeds::Head{5, 0}}, 0ms);
    EXPECT_TRUE(IsDone(Await(driven.Wish.Sent).Result));
    EXPECT_EQ(questions(), asked) << "no limit depends on where it is";
    if (*fault != 0) Camera->Faults().Set(fault);
    what(control);
    EXPECT_EQ(Await(driven.Wish.Done).Text, told);
    EXPECT_TRUE(IsDone(Await(control.Stop().Done).Result));
  }
}

TEST_F(AxisControl, StopsBeforeAllThatWaits) {
  CameraControl control(SettingsFor("Axis"));
  Camera->Faults().Set("next=1,delay=300");
  const auto early = control.MoveTo(1, 1);
  ASSERT_TRUE(Camera->Log().WaitForRequests(1)) << "it is being connected";
  EXPECT_EQ(Await(control.Stop().Done).Result, WishResult::Sent);
  EXPECT_EQ(Await(early.Done).Text, "stopped before it was sent");
  Camera->Log().Clear();
  Camera->Faults().Set("next=1,delay=300");
  const auto first = control.Focus(FocusFar);
  ASSERT_TRUE(Camera->Log().WaitForRequests(1));
  std::vector<Wish> wishes;
  for (int i = 0; i < 1000; ++i) wishes.push_back(control.Iris(IrisOpen));
  const auto end = control.Disconnect();
  EXPECT_EQ(Await(control.Stop().Done).Result, WishResult::Sent);
  EXPECT_TRUE(IsDone(Await(end.Done).Result)) << "which is no motion";
  for (const auto& wish : wishes) EXPECT_EQ(Await(wish.Done).Result, WishResult::Stopped);
  const auto commands = Commands();
  ASSERT_EQ(commands.size(), 3U);
  EXPECT_NE(commands[1].find("continuouspantiltmove=0,0"), std::string::npos) << commands[1];
}

TEST_F(AxisControl, SaysWhereItCameToRest) {
  auto settings = SettingsFor("Axis");
  settings.WatchesMoves = true;
  CameraControl control(settings);
  EXPECT_TRUE(IsDone(Await(control.Connect().Done).Result));
  EXPECT_EQ(control.State().Position.Kind, PositionKind::Read);
  const auto move = control.MoveTo(40, -10);
  EXPECT_EQ(Await(move.Sent).Result, WishResult::Sent);
  EXPECT_EQ(control.State().Position.Kind, PositionKind::Target);
  EXPECT_EQ(control.State().Motion, CameraMotion::Moving);
  Camera->Time().Advance(60s);
  const auto arrived = Await(move.Done);
  EXPECT_EQ(arrived.Result, WishResult::Arrived) << arrived.Text;
  EXPECT_EQ(control.State().Position.Kind, PositionKind::Read);
  EXPECT_EQ(control.State().Position.Pan, 40);
  EXPECT_EQ(Await(control.MoveTo(40, -10).Done).Result, WishResult::NotSent) << "it is there";
  EXPECT_EQ(Await(control.MoveTo(41, -11).Done).Result, WishResult::Arrived) << "as near as it tells";
  EXPECT_EQ(control.State().Motion, CameraMotion::AtRest);

  const auto stuck = Await(control.MoveTo(90, -10).Done);  // its time stands still
  EXPECT_EQ(stuck.Result, WishResult::Stalled) << stuck.Text;
  EXPECT_EQ(stuck.Text, "the camera rests at pan 40, tilt -10, not at pan 90, tilt -10");

  const auto replaced = control.MoveTo(0, 0);
  Await(replaced.Sent);
  const auto stopped = control.MoveTo(5, 5);
  Await(stopped.Sent);
  EXPECT_EQ(Await(replaced.Done).Result, WishResult::Replaced);
  control.Stop();
  EXPECT_EQ(Await(stopped.Done).Result, WishResult::Stopped);

  const auto anywhere = control.Perform(
      {.Work = [](PTZDevice& device) { return std::optional(device.MoveBoth(5, 5)); }, .Moves = true});
  Await(anywhere.Sent);
  Camera->Time().Advance(60s);
  EXPECT_EQ(Await(anywhere.Done).Result, WishResult::Arrived);
  settings.RestTime = 1ms;
  CameraControl hasty(settings);
  EXPECT_EQ(Await(hasty.MoveTo(90, -10).Done).Text, "not at rest after 0.001 s");
}

/// Cameras that are lost together, with their network, are not all tried again at once.
TEST_F(AxisControl, ScattersItsTriesToComeBack) {
  auto settings = SettingsFor("Axis");
  settings.FirstPause = settings.LongestPause = 1000s;
  Camera->Faults().Set("refuse");
  int early = 0;
  constexpr int Cameras = 20;
  for (int i = 0; i < Cameras; ++i) {
    CameraControl control(settings);
    Await(control.Connect().Done);
    const auto told = Await(control.MoveBy(5, 5).Done).Text;
    const std::string before = "the next try is in ";
    ASSERT_NE(told.find(before), std::string::npos) << told;
    const double pause = std::stod(told.substr(told.find(before) + before.size()));
    EXPECT_TRUE(pause > 600 && pause <= 1250) << told;
    if (pause < 1000) ++early;
  }
  EXPECT_TRUE(early > 0 && early < Cameras) << early;
}

TEST_F(AxisControl, SeesACameraAsItsSiteHasIt) {
  auto settings = SettingsFor("Axis");
  settings.InvertPan = settings.InvertTilt = true;
  settings.PanLimits = settings.TiltLimits = CameraLimits{-50, 50};
  settings.ZoomLimits = CameraLimits{0, 5000};
  settings.Presets = {{"gate", 2}};
  CameraControl control(settings);
  EXPECT_TRUE(IsDone(Await(control.MoveTo(40, -10).Done).Result));
  Camera->Time().Advance(60s);
  EXPECT_NEAR(Axis->Head().Pan, -40, 0.01);
  EXPECT_NEAR(Axis->Head().Tilt, 10, 0.01);
  EXPECT_TRUE(IsDone(Await(control.ReadPosition().Done).Result));
  EXPECT_EQ(control.State().Position.Pan, 40);
  EXPECT_EQ(control.State().Position.Tilt, -10);

  const auto beyond = Await(control.MoveTo(51, 0).Done);
  EXPECT_EQ(beyond.Result, WishResult::OutOfRange);
  EXPECT_EQ(beyond.Text, "pan: 51 is not between -50 and 50, the limits of this camera");
  EXPECT_TRUE(IsDone(Await(control.MoveBy(20, 0).Done).Result)) << "as far as it may";
  Camera->Time().Advance(60s);
  EXPECT_NEAR(Axis->Head().Pan, -50, 0.01);
  EXPECT_TRUE(IsDone(Await(control.ReadPosition().Done).Result));
  EXPECT_EQ(Await(control.MoveBy(1, 0).Done).Result, WishResult::OutOfRange);
  const auto drive = control.DriveAt({.PanTilt = DriveSpeeds::Head{1, 0}});
  EXPECT_EQ(Await(drive.Wish.Done).Result, WishResult::OutOfRange);
  for (const auto& by : {CameraPlace{.Pan = 200}, CameraPlace{.Tilt = 200}, CameraPlace{.Zoom = 20000}}) {
    const auto work = [](PTZDevice& device) { return std::optional(device.MoveBoth(1, 1)); };
    EXPECT_TRUE(IsDone(Await(control.Perform({.Work = work, .Moves = true}).Done).Result));
    EXPECT_EQ(control.State().Position.Kind, PositionKind::Unknown) << "to be asked for";
    const auto step = control.Perform({.Work = work, .Moves = true, .By = by});
    EXPECT_EQ(Await(step.Done).Result, WishResult::OutOfRange);
  }
  Start(ptzsim::AxisHead::Relative);  // which has presets
  settings.Options = SettingsFor("Axis").Options;
  CameraControl relative(settings);
  ASSERT_TRUE(IsDone(Await(relative.Connect().Done).Result));
  Camera->Log().Clear();
  EXPECT_TRUE(IsDone(Await(relative.GotoPreset("gate").Done).Result));
  EXPECT_EQ(Commands(), std::vector<std::string>{"gotoserverpresetname=Quor-vane%20Preset%202"});
  EXPECT_EQ(Await(relative.GotoPreset("yard").Done).Result, WishResult::Unsupported);
  EXPECT_TRUE(IsDone(Await(relative.SetPosition(1, 2).Done).Result)) << "though nothing goes out for it";
}

TEST_F(AxisControl, TellsSubscribersAndGoesIdle) {
  auto settings = SettingsFor("Axis");
  settings.IdleTime = 0ms;
  CameraControl control(settings);
  std::mutex mutex;
  std::vector<LinkHealth> seen;
  auto subscription = control.Subscribe([&](const CameraState& state) {
    const std::lock_guard lock(mutex);
    if (seen.empty() || seen.back() != state.Link) seen.push_back(state.Link);
  });
  EXPECT_EQ(control.State().Link, LinkHealth::NotConnected);
  for (int i = 0; i < 3; ++i)  // each on a thread of its own
    EXPECT_TRUE(IsDone(Await(control.MoveBy(1, 0).Done).Result));
  Camera->Faults().Set("refuse");
  EXPECT_EQ(Await(control.MoveBy(1, 0).Done).Result, WishResult::NotReached);
  const auto lost = Await(control.MoveBy(1, 0).Done);
  EXPECT_EQ(lost.Result, WishResult::NotReached);
  Camera->Faults().Clear();
  Camera->Log().Clear();
  ASSERT_TRUE(Camera->Log().WaitForRequests(2)) << "it is connected again by itself, and stopped";
  while (control.State().Link != LinkHealth::Up) std::this_thread::yield();
  subscription.reset();
  const std::lock_guard lock(mutex);
  ASSERT_GE(seen.size(), 3U);
  EXPECT_EQ(seen[0], LinkHealth::Connecting);
  EXPECT_EQ(seen[1], LinkHealth::Up);
  EXPECT_EQ(seen[2], LinkHealth::Lost);
}

}  // namespace
}  // namespace ptzd
