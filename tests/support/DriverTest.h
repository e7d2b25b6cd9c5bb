#pragma once

// What the tests of drivers work with: a camera that is played to the driver, a clock, options and errors.

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
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
template <class Driver>
class DriverTest : public testing::Test {
 protected:
  std::string Sent() { return Net.TakeSent(); }

  FakeInternet Net;
  FakeClock Time{0x7FFFFFFF - 2000};  // the tick count wraps while a position is good
  Driver Camera{{.internet = &Net, .clock = &Time}};
  PTZDevice& Device = Camera;
};

}  // namespace ptzd::test
