#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <ptzd/DriverFactory.h>
#include <ptzd/PTZContinuousControl.h>
#include <ptzd/PTZDevice2.h>
#include "support/FakeClock.h"
#include "support/Options.h"
#include "support/Script.h"

namespace ptzd::test {

/// A driver on a simulated camera of its make, over real sockets. The camera must find nothing wrong with
/// what it is sent, and see a single connection.
template <class Simulator>
class SimulatedCamera : public testing::Test {
 protected:
  /// A new camera, whose time passes as the test says, in place of the one before.
  void Start(typename Simulator::Options options = {}) {
    CheckLog();
    Driver.reset();
    options.Clock = ptzsim::ClockKind::Manual;
    Camera.emplace(std::move(options));
    Connections = 1;
  }
  /// Its driver, new where the camera is.
  void Connect(const char* progID, const OptionValues& options = {}, const std::string& login = "") {
    if (!Driver) Driver = CreateDriver(progID, {.Clock = &Clock});
    ASSERT_TRUE(Driver->Connect(CameraOptions(options, login + Camera->Addresses().at(0))));
  }
  /// Long enough for any motion to end, and for the driver to ask again.
  void Settle() {
    using namespace std::chrono_literals;
    Camera->Time().Advance(60s);
    Clock.Advance(5000);
  }
  /// That GET requests for these targets are all that the camera was sent.
  void ExpectSent(const std::vector<std::string>& targets) {
    std::string wanted;
    for (const auto& target : targets) wanted += "GET " + target + "\n";
    EXPECT_EQ(Script(Camera->Log()), wanted);
  }
  /// The same for targets with blanks between them; those that do not begin with "/" go on where `path` ends.
  void ExpectSent(const std::string& path, const std::string& script) {
    std::vector<std::string> targets;
    std::istringstream words(script);
    for (std::string word; words >> word;) targets.push_back((word.starts_with('/') ? "" : path) + word);
    ExpectSent(targets);
  }
  /// Does something while the camera cannot be reached. Something has to be sent to it afterwards.
  template <class Do>
  void WhileAway(const Do& something) {
    Camera->Faults().Set("refuse");
    something();
    Camera->Faults().Clear();
    ++Connections;
  }
  PTZDevice2& Device2() { return dynamic_cast<PTZDevice2&>(*Driver); }
  PTZContinuousControl& Continuous() { return dynamic_cast<PTZContinuousControl&>(*Driver); }

  void TearDown() override { CheckLog(); }
  void CheckLog() {
    if (!Camera) return;
    EXPECT_EQ(Camera->Log().Violations(), std::vector<std::string>{});
    EXPECT_EQ(Camera->Log().ConnectionsOpened(), Connections) << "one connection serves all commands";
  }

  /// While a driver sleeps its camera moves on.
  struct SharedClock : FakeClock {
    explicit SharedClock(std::optional<Simulator>& camera) : Camera(camera) {}
    void SleepUntil(TimePoint deadline) override {
      Camera->Time().Advance(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Now()));
      FakeClock::SleepUntil(deadline);
    }
    std::optional<Simulator>& Camera;
  };

  std::optional<Simulator> Camera;
  int Connections = 1;  ///< that the camera should have seen
  SharedClock Clock{Camera};
  std::unique_ptr<PTZDevice> Driver;
};

}  // namespace ptzd::test
