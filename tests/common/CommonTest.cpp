#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <thread>

#include <ptzd/Logging.h>
#include "common/Credentials.h"
#include "common/DirectionCalculator.h"
#include "common/TimeDiffMod.h"
#include "platform/DebugOutput.h"

namespace ptzd {
namespace {

TEST(TimeDiff, CountsThroughTheWrapOfThirtyOneBits) {
  EXPECT_EQ(TimeDiff(2147483632, 16), 32);
  EXPECT_EQ(TimeDiff(5, 5), 0);
  EXPECT_EQ(TimeDiff(static_cast<std::int32_t>(0x80000005U), 6), 1);
  EXPECT_EQ(TimeDiff(6, static_cast<std::int32_t>(0x80000005U)), 2147483647);
  EXPECT_EQ(TimeDiff(1, 0), 2147483647);
}

TEST(CalculateDirection, ChoosesAxisOrDiagonal) {
  struct Row {
    float pan, tilt;
    bool diagonals;
    std::int32_t direction;
    float amount;
    const char* fault;
  };
  const float third = static_cast<float>(20 / 1.5);
  const Row rows[] = {
      {0, 0, true, 0, 0, "nothing to do is no direction"},
      {10, 10, true, 9, third, "diagonal amount"},
      {10, 10, false, 8, 10, "a tie goes to pan"},
      {-30, 5, true, 4, 30, "pan dominates"},
      {5, -30, true, 2, 30, "tilt dominates"},
      {-10, 10, true, 5, third, "up left"},
      {10, -10, true, 10, third, "down right"},
      {-10, -10, true, 6, third, "down left"},
      {23, 10, true, 8, 23, "exactly 2.3 times is the axis"},
      {10, 23, true, 1, 23, "exactly 2.3 times is the axis"},
      {22.9F, 10, true, 9, static_cast<float>(32.9F / 1.5), "just below is the diagonal"},
      {-0.0F, -4, false, 2, 4, "minus zero is no direction"},
  };
  for (const auto& row : rows) {
    float amount = -1;
    EXPECT_EQ(CalculateDirection(row.pan, row.tilt, row.diagonals, amount), row.direction) << row.fault;
    EXPECT_FLOAT_EQ(amount, row.amount) << row.fault;
  }
}

TEST(Logging, MasksCredentialsOnTheWayToTheSink) {
  struct Row {
    const char* message;
    const char* seen;
  };
  for (const auto& [message, seen] : {
           Row{"Requesting /axis-cgi/com/ptz.cgi?pan=1", "Requesting /axis-cgi/com/ptz.cgi?pan=1"},
           {"http://root:pa@ss@10.0.0.5:80/x@y", "http://***@10.0.0.5:80/x@y"},
           {"a http://u:p@h/ b http://v@i", "a http://***@h/ b http://***@i"},
           {"/cgi?usr=admin&pwd=geheim&cmd=1 end", "/cgi?usr=***&pwd=***&cmd=1 end"},
           {"/cgi?newpwd=1&pwd=2", "/cgi?newpwd=1&pwd=***"},
           {"mail me@example", "mail me@example"},
           {"driver to root:secret@camera1:8080.", "driver to ***@camera1:8080."},
           {"http://root:pa/s@10.0.0.5/x", "http://***@10.0.0.5/x"},
           {"http://camera1:8080/to?mail=a:b@c", "http://camera1:8080/to?mail=a:b@c"},
           {"http://[::1]:80/a@b", "http://[::1]:80/a@b"},
       })
    EXPECT_EQ(MaskCredentials(message), seen);

  // Of the logins that are held no part is seen, whatever they look like.
  MaskedLogins logins, others;
  logins.Set({{"bob", "se cr\tet/1"}, {"me", "a"}, {"root", "100%"}});
  others.Set({{"me", "a"}, {"bob", "pa@ss"}});
  others.Set({});
  for (const auto& [message, seen] : {
           Row{"http://bob:se cr\tet/1@hPhttp://bob:se cr\tet/1@h/x", "http://***@hPhttp://***@h/x"},
           {"to bob:se%20cr%09et%2f1@h, se+cr%2509et%252F1.", "to ***@h, ***."},
           {"?pwd=se cr\tet/1 usr=me2 pwd=a&pan=1a", "?pwd=*** usr=***2 pwd=***&pan=1a"},
           {"a me@h, me:a@h, me%3Aa%40h", "a me@h, ***@h, ***@h"},
           {"root.PTZ camera=root, /root/x user root: 100%", "root.PTZ camera=***, /root/x user ***: ***"},
           {"group%3Droot%26 100%25 http://h/root", "group%3D***%26 *** http://h/root"},
           {"pa@ss", "pa@ss"},
       })
    EXPECT_EQ(MaskCredentials(message), seen);
  others.Set({{"error", "http"}});
  EXPECT_EQ(MaskCredentials("Request error 6, an error of http"), "Request error 6, an *** of ***");
  others.Set({});

  std::string seen;
  SetLogSink([&](std::string_view message) { seen += message; });
  std::string lines;
  SetLogLineSink([&](const LogLine& line) {
    ((lines += NameOf(line.Level)).append(" ").append(line.Text) += ' ').append(line.DriverClass) += '|';
  });
  LogMessage("http://u:p@h");
  SetLogSink({});
  LogMessage("only a line", LogLevel::Error);
  SetLogLineSink({});
  LogMessage("dropped");
  EXPECT_EQ(seen, "http://***@h");
  EXPECT_EQ(lines, "info http://***@h |error only a line |");
}

#ifndef _WIN32
TEST(DebugOutputDeathTest, IsSeenOnlyWhereItIsWanted) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  const auto debug = [](const char* wanted) {
    setenv("PTZD_DEBUG", wanted, 1);
    DebugOutput("a line");
    std::exit(0);
  };
  EXPECT_EXIT(debug("1"), ::testing::ExitedWithCode(0), "^a line\n$");
  EXPECT_EXIT(debug(""), ::testing::ExitedWithCode(0), "^$");
}
#endif

}  // namespace
}  // namespace ptzd
