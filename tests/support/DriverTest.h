#pragma once

// What the tests of drivers work with: a camera that is played to the driver, a clock, options and errors.

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "support/Errors.h"
#include "support/FakeClock.h"
#include "support/FakeInternet.h"
#include "support/Garbled.h"
#include "support/Options.h"
#include "support/RequestLines.h"

namespace ptzd::test {

/// A driver over the fake HTTP layer.
template <class Driver, class Web = FakeInternet>
class DriverTest : public testing::Test {
 protected:
  std::string Sent() { return Net.TakeSent(); }
  /// A new driver in place of the one before.
  void Renew() { Owned.emplace(Platform{.Internet = &Net, .Clock = &Time}); }

  Web Net;
  FakeClock Time{0x7FFFFFFF - 2000};  // the tick count wraps while a position is good
  std::optional<Driver> Owned{std::in_place, Platform{.Internet = &Net, .Clock = &Time}};
  Driver& Camera = *Owned;
  PTZDevice& Device = Camera;
};

}  // namespace ptzd::test
