// Every driver on a camera of its make that misbehaves in every way the simulators know.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <thread>
#ifndef _WIN32
#include <malloc.h>
#endif

#include <ptzd/Error.h>
#include "contract/Subject.h"
#include "platform/Socket.h"
#include "simulated/EveryMake.h"
#include "support/AsyncSends.h"
#include "support/Wine.h"
#include "tests/transport/ForwardingInternet.h"

namespace ptzd {
namespace {

using namespace std::chrono_literals;
using test::Judged;
using test::Make;
using test::Makes;

/// Of cameras that are waited for in vain. All others have the usual time, however busy the machine is.
constexpr std::uint32_t ShortTimeout = 10;  // milliseconds

/// What a driver gets for an answer.
enum class Reply {
  Whole,        ///< all it wants, however it comes
  None,         ///< nothing, or not all of its headers
  Broken,       ///< a body that breaks off; all it wants where a reply has none
  Unreachable,  ///< the same, and no line either
  BadStatus,    ///< all it wants, under a status that says no
  BadBody,      ///< nothing of what it wants, under a status that says yes
  Bad,          ///< neither
  Numbers,      ///< what it wants, with numbers that are none or too large
};

struct Fault {
  const char* Names;  ///< with semicolons between them
  Reply Comes;
  bool Waits = false;    ///< the driver's own time-out ends it
  bool Endless = false;  ///< the limit to how long a reply may take ends it
  const char* NotUnderWine = nullptr;
};

constexpr auto SameBelow = "no other there than natively";
constexpr auto WineReads = "Wine takes the next bytes for it";
// "{}" is the address of a camera of another make.
const Fault Faults[] = {
    {"refuse", Reply::Unreachable},
    {"full-accept-queue", Reply::Unreachable, true, false, "Wine waits as long as the system does"},
    {"close-on-accept", Reply::None, false, false, SameBelow},
    {"silent", Reply::None, true},
    {"close-before-reply", Reply::None},
    {"close-mid-reply=10", Reply::None, false, false, WineReads},
    {"reset-mid-reply=10", Reply::None, false, false, WineReads},
    {"stall-mid-body=0;short-body", Reply::Broken, true, false, SameBelow},
    {"short-body", Reply::Broken, false, false, SameBelow},
    {"chunked-cut", Reply::Broken, false, false, "takes the end for the last chunk"},
    {"endless-headers", Reply::None, false, false, WineReads},
    {"continue", Reply::None, false, false, "takes them as they come, without end"},
    {"endless-body", Reply::Broken, false, true},
    {"endless-body;drip=1", Reply::Broken, false, true, SameBelow},
    {"endless-chunks", Reply::Broken, false, true, SameBelow},
    {"endless-parts", Reply::Broken, false, true, SameBelow},
    {"delay=3", Reply::Whole, false, false, SameBelow},
    {"split=7", Reply::Whole, false, false, SameBelow},
    {"drip=0", Reply::Whole, false, false, SameBelow},
    {"close-after-reply", Reply::Whole, false, false, SameBelow},
    {"close-on-reuse", Reply::Whole},
    {"reset-on-reuse=2", Reply::Whole, false, false, SameBelow},
    {"no-length", Reply::Whole, false, false, SameBelow},
    {"chunked=5", Reply::Whole, false, false, SameBelow},
    {"continue=20", Reply::Whole, false, false, SameBelow},
    {"lf-headers", Reply::Whole, false, false, SameBelow},
    {"control-headers", Reply::Whole, false, false, SameBelow},
    {"long-headers=9000", Reply::BadStatus, false, false, SameBelow},
    {"never-read", Reply::Whole},
    {"garbage", Reply::None, true, false, WineReads},
    {"vanish", Reply::None},
    {"status=503 Busy", Reply::BadStatus},
    {"empty-body", Reply::BadBody},
    {"xml-bomb", Reply::BadBody},
    {"basic=us:pw", Reply::Bad},
    {"answered-by={}", Reply::Bad},
    {"numbers=1e400", Reply::Numbers},
    {"numbers=NaN", Reply::Numbers, false, false, SameBelow},
    {"numbers", Reply::Numbers, false, false, SameBelow},
    {"numbers=FFFFFFFFFFFFFFFFFFFF", Reply::Numbers},
    {"control-body", Reply::Numbers, false, false, SameBelow},
};

/// Ends the process where what it watches never ends.
class Watchdog {
 public:
  explicit Watchdog(std::string what)
      : Thread_([this, what = std::move(what)] {
          std::unique_lock lock(Mutex_);
          if (Changed_.wait_for(lock, ptzsim::RequestLog::Deadline, [this] { return Done_; })) return;
          std::fprintf(stderr, "%s does not end\n", what.c_str());
          std::abort();
        }) {}
  ~Watchdog() {
    {
      const std::lock_guard lock(Mutex_);
      Done_ = true;
    }
    Changed_.notify_all();
    Thread_.join();
  }
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

 private:
  std::mutex Mutex_;
  std::condition_variable Changed_;
  bool Done_ = false;
  std::thread Thread_;
};

/// The system's, which give up as soon as the HTTP layer does.
class ShortSockets final : public Sockets {
 public:
  std::unique_ptr<Socket> Create() override {
    struct Short final : Socket {
      std::unique_ptr<Socket> System = SystemSockets().Create();
      const bool& Waits;
      explicit Short(const bool& waits) : Waits(waits) {}
      std::int32_t Open() override { return System->Open(); }
      std::int32_t Connect(const std::string& address, std::uint16_t port, std::int32_t timeout) override {
        return System->Connect(address, port, Waits ? std::int32_t{ShortTimeout} : timeout);
      }
      std::int32_t Send(std::span<const std::uint8_t> message, std::int32_t timeout) override {
        return System->Send(message, Waits ? std::int32_t{ShortTimeout} : timeout);
      }
    };
    return std::make_unique<Short>(Waits);
  }
  bool Waits = false;
};

/// Ten seconds pass whenever it is looked at, where a reply has no end.
class FaultClock final : public test::CameraClock {
 public:
  TimePoint Now() override {
    if (Runs) Advance(10000);
    return CameraClock::Now();
  }
  bool Runs = false;
};

/// What came of a call.
struct Outcome {
  std::optional<bool> Answer;
  std::optional<Error> Raised;
};
std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
  if (outcome.Raised) return out << outcome.Raised->Number() << " " << outcome.Raised->Description();
  return out << (*outcome.Answer ? "True" : "False");
}

class FaultsTest : public testing::TestWithParam<Make> {
 protected:
  void SetUp() override {
    const auto& make = GetParam();
    Class = FindDriverClass(make.ProgID());
    ASSERT_NE(Class, nullptr);
    Camera = make.Camera();
    const bool isAxis = make.Class == std::string("Axis");
    Other = std::ranges::find(Makes, std::string(isAxis ? "Toshiba2" : "Axis"), &Make::Class)->Camera();
    Start_ = make.Look(*Camera);
    Options = OptionsFor(make, *Camera);
    Driver = test::CreateSubject(*Class, {.Internet = &Net, .Clock = &Clock, .Sockets = &Sockets});
    ASSERT_NE(Driver.Device, nullptr);
  }
  void TearDown() override {
    Set(nullptr);
    if (Driver.Device != nullptr) Driver.Device->Disconnect();
    Driver = {};
    UseSerialPortPool(nullptr);
    EXPECT_TRUE(Sends.WaitForClosed(Sends.Sent())) << "the next test counts what is under way";
  }

  bool IsHTTP() const { return Camera->Addresses()[0].find(':') != std::string::npos && !IsSecubest(); }
  bool IsSecubest() const { return GetParam().Class == std::string("Secubest"); }

  /// From now on the camera does that, or nothing of the kind. False where it means nothing on its line.
  bool Set(const Fault* fault) {
    Camera->Faults().Clear();
    const bool waits = fault != nullptr && fault->Waits;
    Sockets.Waits = waits;
    // A driver that sleeps waits for no camera that may never hear what it is sent.
    Clock.Camera = fault == nullptr ? Camera.get() : nullptr;
    Clock.Runs = fault != nullptr && fault->Endless;
    if (!Net.Sessions.empty())
      for (const auto option : {InternetOptionReceiveTimeout, InternetOptionConnectTimeout})
        Net.SetOption(Net.Sessions[0], option, waits ? ShortTimeout : 5000);
    if (fault == nullptr) return true;
    // What acts on a new connection needs one.
    if (std::string_view(fault->Names) == "close-on-accept") CloseConnections();
    std::istringstream names(fault->Names);
    try {
      for (std::string name; std::getline(names, name, ';');) {
        if (const auto at = name.find("{}"); at != name.npos) name.replace(at, 2, Other->Addresses()[0]);
        Camera->Faults().Set(name);
      }
    } catch (const std::invalid_argument&) {
      return false;
    }
    return true;
  }

  template <class Do>
  Outcome Attempt(const std::string& what, const Do& call) {
    const Watchdog watchdog(std::string(GetParam().Class) + ", " + what);
    try {
      return {.Answer = call(), .Raised = {}};
    } catch (const Error& error) {
      return {.Answer = {}, .Raised = error};
    }
  }
  Outcome Connect(const std::string& when) {
    return Attempt(when + ": Connect", [&] { return Driver.Device->Connect(Options); });
  }
  Outcome MoveTo(const std::string& when, float pan, float tilt) {
    return Attempt(when + ": MoveTo",
                   [&] { return Driver.Device->MoveTo(pan, GetParam().Its.EightWays ? 0 : tilt); });
  }
  Outcome Read(const std::string& when, test::Pose& at) {
    return Attempt(when + ": Pan and Tilt", [&] {
      const auto pan = Driver.Device->Pan();
      at = {pan, Driver.Device->Tilt()};
      return true;
    });
  }
  Outcome Swing(const std::string& when, float pan, float tilt) {
    return Attempt(when + ": ContinuousMove and its stop", [&] {
      Driver.Continuous->ContinuousMove(pan, tilt);
      if (Class->Data->StopsBySpeedZero)
        Driver.Continuous->StopContinuous();
      else
        Driver.Continuous->ContinuousMove(0, 0);
      return true;
    });
  }
  void CloseConnections() {
    Camera->Faults().Set("refuse");
    Camera->Faults().Clear();
  }
  void Settle() {
    Camera->Time().Advance(60s);
    Clock.Advance(6000);  // long enough for the driver to ask again
  }
  /// Takes the fault away and connects anew, which must work on the same object.
  void Recover(const std::string& when) {
    Set(nullptr);
    if (!GetParam().Its.Answers) {  // what nobody waited for may still be on its way
      CloseConnections();
      EXPECT_TRUE(Sends.WaitForClosed(Sends.Sent()));
      CloseConnections();
      EXPECT_TRUE(Camera->Log().WaitForClosed(Camera->Log().ConnectionsOpened()));
    }
    Settle();
    const auto outcome = Connect("after " + when);
    EXPECT_TRUE(outcome.Answer.value_or(false)) << "after " << when << ": " << outcome;
  }
  /// What may be raised: a number that hosts know, and why.
  static void ExpectKnown(const Outcome& outcome) {
    if (!outcome.Raised) return;
    const auto number = outcome.Raised->Number();
    const bool known = number == ErrorOverflow || number == 9 || number == ErrorTypeMismatch ||
                       (number >= 17001 && number <= 17006) || (number >= 13101 && number <= 13107) ||
                       (number >= 8000 && number < 8100) || number == SerialErrorDevice;
    EXPECT_TRUE(known && !outcome.Raised->Description().empty()) << outcome;
  }

  void TryConnect(const Fault& fault);
  void TryMove(const Fault& fault);
  void TryRead(const Fault& fault);
  void TrySwing(const Fault& fault);

  const DriverClass* Class = nullptr;
  FaultClock Clock;
  test::AsyncSends Sends;
  test::ForwardingInternet Net;
  ShortSockets Sockets;
  std::unique_ptr<ptzsim::Simulator> Camera, Other;
  Bytes Options;
  test::Subject Driver;

 private:
  test::Pose Start_;
  float Step_ = 10;
};

void FaultsTest::TryConnect(const Fault& fault) {
  const auto& data = *Class->Data;
  Set(&fault);
  const auto outcome = Connect(fault.Names);
  ExpectKnown(outcome);
  const bool connected = outcome.Answer.value_or(false);
  EXPECT_EQ(Driver.Device->Connected(), connected) << outcome;
  const bool asks = IsHTTP() && data.AsksToConnect;
  const bool hears = fault.Comes == Reply::Whole || !asks;
  const bool lost =
      fault.Comes == Reply::None || fault.Comes == Reply::Unreachable || fault.Comes == Reply::Broken;
  if (data.ConnectsUnheard && !outcome.Raised) {
    EXPECT_TRUE(connected);
  } else if (hears && fault.Comes != Reply::Unreachable) {
    EXPECT_TRUE(connected) << outcome;
  } else if (lost) {
    EXPECT_FALSE(connected);
  }
  Recover("a failed Connect");
}

void FaultsTest::TryMove(const Fault& fault) {
  const auto& its = GetParam().Its;
  const auto rule = Class->Data->MoveTo;
  auto& device = *Driver.Device;
  const test::Pose before{device.Pan(), device.Tilt()};
  const float tilt = its.EightWays ? 0 : -10;
  Set(&fault);
  Camera->Log().Clear();
  const float target = std::fabs(before.Pan - 20) < 8 ? -20.0F : 20.0F;  // never where it is
  const auto outcome = MoveTo(fault.Names, target, tilt);
  ExpectKnown(outcome);
  const auto sent = Camera->Log().Requests();
  test::Pose after;
  const bool told = Read(fault.Names, after).Answer.has_value();
  const bool refused =
      (its.Replies == Judged::Status && (fault.Comes == Reply::BadStatus || fault.Comes == Reply::Bad)) ||
      (its.Replies == Judged::Body && (fault.Comes == Reply::BadBody || fault.Comes == Reply::Bad));
  const bool hasBody = sent.empty() || sent.back().Status != 204;
  const bool lost = fault.Comes == Reply::None || fault.Comes == Reply::Unreachable ||
                    (fault.Comes == Reply::Broken && hasBody);
  const bool taken = !its.Answers || !(refused || lost);
  if (outcome.Raised) {
    EXPECT_FALSE(fault.Comes == Reply::Whole) << outcome;
  } else if (fault.Comes != Reply::Numbers) {
    const bool tells = rule == MemberRule::Outcome || rule == MemberRule::OutcomeIfConnected;
    const bool fails = rule == MemberRule::Fails || rule == MemberRule::FailsIfConnected;
    EXPECT_EQ(*outcome.Answer, tells ? taken : !fails);
    const bool goes = taken || its.KeepsTarget;
    if (told) {
      EXPECT_NEAR(std::remainder(after.Pan - (goes ? target : before.Pan), 360), 0, its.PanWithin);
      EXPECT_NEAR(after.Tilt, goes ? tilt : before.Tilt, its.TiltWithin);
    }
  }
  EXPECT_TRUE(std::isfinite(after.Pan) && std::isfinite(after.Tilt));

  // The next good one, on the same connection where somebody waits for the answers.
  if (its.Answers)
    Set(nullptr), Settle();
  else
    Recover(fault.Names);
  // Towards the middle, away from the ends, and not where the last one went.
  const auto looked = GetParam().Look(*Camera);
  const double right = its.FromStart ? looked.Pan - Start_.Pan : device.Pan();
  Step_ = 29 - Step_;
  const auto pan = device.Pan() + (right > 0 ? -Step_ : Step_);
  Camera->Log().Clear();
  const auto next = MoveTo(std::string("after ") + fault.Names, pan, -5);
  EXPECT_EQ(next.Answer, rule != MemberRule::Fails && rule != MemberRule::FailsIfConnected) << next;
  EXPECT_TRUE(Camera->Log().WaitForRequests(1));
  Settle();
  const auto looks = GetParam().Look(*Camera);
  EXPECT_TRUE(looks.Pan != looked.Pan || looks.Tilt != looked.Tilt) << "the camera has not moved";
  EXPECT_EQ(Camera->Log().Violations(), std::vector<std::string>{});
  Recover(fault.Names);
}

void FaultsTest::TryRead(const Fault& fault) {
  const auto& its = GetParam().Its;
  test::Pose before, after, again;
  ASSERT_FALSE(Read("before", before).Raised);
  Clock.Advance(6000);
  Set(&fault);
  const auto outcome = Read(fault.Names, after);
  ExpectKnown(outcome);
  const bool heard = fault.Comes == Reply::Whole || fault.Comes == Reply::Numbers;
  if (outcome.Raised) {
    EXPECT_NE(fault.Comes, Reply::Whole) << outcome;
  } else if (!heard && !its.ReadsAnyBody) {
    EXPECT_NEAR(after.Pan, before.Pan, its.PanWithin);
    EXPECT_NEAR(after.Tilt, before.Tilt, its.TiltWithin);
  }
  EXPECT_TRUE(std::isfinite(after.Pan) && std::isfinite(after.Tilt));
  Set(nullptr);
  Clock.Advance(6000);
  EXPECT_FALSE(Read(std::string("after ") + fault.Names, again).Raised);
  if (Class->Data->Source() == PositionSource::Camera || !heard) {
    EXPECT_NEAR(again.Pan, before.Pan, its.PanWithin);
    EXPECT_NEAR(again.Tilt, before.Tilt, its.TiltWithin);
  }
  Recover(fault.Names);
}

void FaultsTest::TrySwing(const Fault& fault) {
  if (Driver.Continuous == nullptr) return;
  Set(&fault);
  const auto outcome = Swing(fault.Names, -12, 9);
  ExpectKnown(outcome);
  EXPECT_FALSE(outcome.Raised && IsHTTP()) << outcome;
  if (GetParam().Its.Answers)
    Set(nullptr), Settle();
  else
    Recover(fault.Names);
  Camera->Log().Clear();
  EXPECT_FALSE(Swing(std::string("after ") + fault.Names, 6, 5).Raised);
  EXPECT_TRUE(Camera->Log().WaitForRequests(2));
  const auto state = Camera->State();
  Settle();
#ifdef _WIN32
  // WinINet keeps no order among asynchronous sends, so that the stop may have come before the motion.
  if (Sends.Sent() > 0) return Recover(fault.Names);
#endif
  EXPECT_EQ(Camera->State(), state) << "the camera has not stopped";
  EXPECT_EQ(Camera->Log().Violations(), std::vector<std::string>{});
  Recover(fault.Names);
}

TEST_P(FaultsTest, HasTheOutcomeThatItsDataSays) {
  ASSERT_TRUE(Driver.Device->Connect(Options));
  int rows = 0;
  for (const auto& fault : Faults) {
    SCOPED_TRACE(fault.Names);
    if (!Set(&fault) || test::LeftOutUnderWine(fault.Names, fault.NotUnderWine)) continue;
    const auto handles = SystemInternet().OpenHandles();
    Recover("nothing");
    TryConnect(fault);
    TryMove(fault);
    TryRead(fault);
    TrySwing(fault);
    EXPECT_EQ(SystemInternet().OpenHandles(), handles);
    rows += Driver.Continuous == nullptr ? 3 : 4;
  }
  RecordProperty("rows", rows);
}

#ifndef _WIN32
std::size_t OpenDescriptors() {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

TEST_P(FaultsTest, LeavesNothingBehind) {
  ASSERT_TRUE(Driver.Device->Connect(Options));
  const auto meet = [&](int times) {
    for (int i = 0; i < times; ++i)
      for (const auto* name : {"refuse", "close-before-reply", "close-mid-reply=10", "chunked-cut",
                               "endless-headers", "numbers=1e400", "vanish"}) {
        const Fault fault{name, Reply::None};
        if (!Set(&fault)) continue;
        Connect(name);
        MoveTo(name, 20, -10);
        Recover(name);
        Camera->Log().Clear();
      }
    Set(nullptr);
    CloseConnections();
    EXPECT_TRUE(Sends.WaitForClosed(Sends.Sent()));
  };
  meet(1);
  const auto descriptors = OpenDescriptors();
  const auto memory = mallinfo2().uordblks;
  meet(6);
  EXPECT_LE(OpenDescriptors(), descriptors + 4);
  EXPECT_LE(mallinfo2().uordblks, memory + 64 * 1024);
}
#endif

INSTANTIATE_TEST_SUITE_P(Catalogue, FaultsTest, testing::ValuesIn(Makes), [](const auto& make) {
  return std::string(make.param.Class) + make.param.Its.Variant;
});

}  // namespace
}  // namespace ptzd
