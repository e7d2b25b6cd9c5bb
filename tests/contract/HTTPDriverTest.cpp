#include "drivers/kit/HTTPDriver.h"

#include <gtest/gtest.h>

#include <ptzd/Logging.h>
#include "support/FakeClock.h"
#include "support/FakeInternet.h"

namespace ptzd {
namespace {

constexpr DriverData Data;

class Camera : public HTTPDriver {
 public:
  Camera(const Platform& platform, const RequestStyle& style) : HTTPDriver(Data, platform, style) {
    Options_.WriteProperty("Address", std::string("camera1"));
  }
  bool Open() override { return true; }
  bool GoTo(HeadPosition) override { return false; }
  using HTTPDriver::Fetch;
  using HTTPDriver::Request;
};

TEST(HTTPDriver, MakesVaryTheCommonRoutine) {
  const auto isOK = [](std::string_view reply) { return reply == "OK"; };
  const auto isFound = [](std::string_view code) { return code == "200"; };
  struct Row {
    RequestStyle Style;
    test::FakeReply Reply;
    std::optional<std::string> Accepted;
    std::string Log;
    const char* Fault;
  };
  const Row rows[] = {
      {{}, {"pan=1"}, "pan=1", "Requesting /x|Request complete. Reply: pan=1", "the common routine"},
      {{}, {.Answers = false}, {}, "Requesting /x|Request failed. Failed to connect to the HTTP server.", ""},
      {{.TellsWhy = false}, {.Answers = false}, {}, "Requesting /x|Request failed.", "no description"},
      {SendingStyle, {"OK"}, "OK", "Sending: http://camera1/x|Received: OK", "texts of its own"},
      {SendingStyle, {.Answers = false}, {}, "Sending: http://camera1/x", "a failure that is not told"},
      {{.AcceptsStatus = isFound, .Accepts = isOK},
       {"OK", "HTTP/1.1 404 Not Found"},
       {},
       "Requesting /x",
       "the reply of a refused status"},
      {{.Accepts = isOK}, {"NG"}, {}, "Requesting /x|Request complete. Reply: NG", "a refused reply"},
  };
  for (const auto& row : rows) {
    test::FakeInternet net;
    test::FakeClock clock;
    Camera camera({.internet = &net, .clock = &clock}, row.Style);
    net.Replies = {row.Reply};
    std::string log;
    SetLogSink([&](std::string_view line) {
      for (const char* begin :
           {"Requesting ", "Sending: ", "Request complete", "Request failed", "Received: "})
        if (line.starts_with(begin)) log += (log.empty() ? "" : "|") + std::string(line);
    });
    EXPECT_EQ(camera.Request("/x"), row.Accepted) << row.Fault;
    SetLogSink({});
    EXPECT_EQ(log, row.Log) << row.Fault;
  }
}

}  // namespace
}  // namespace ptzd
