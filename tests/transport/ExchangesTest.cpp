// What is told of the exchanges with a camera.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include <ptzd/DriverFactory.h>
#include "common/Credentials.h"
#include "simulators/engine/TCPServer.h"
#include "support/Errors.h"
#include "support/Exchanges.h"
#include "support/FakeClock.h"
#include "support/FakeSerialPort.h"
#include "support/Options.h"
#include "tests/transport/Camera.h"
#include "transport/HTTPClient.h"

namespace ptzd {
namespace {

using test::Camera;

class ExchangesTest : public ::testing::Test {
 protected:
  HTTPClient NewClient() const {
    return HTTPClient(SystemInternet(), SystemClock(), {Told_, "QVPTZ.Test", 7});
  }

  Camera Camera_;
  std::shared_ptr<test::Exchanges> Told_ = std::make_shared<test::Exchanges>();
};

/// What came of an exchange: status, reason, size of the reply, error, and the error's text.
std::string Outcome(const Exchange& told) {
  return std::to_string(told.StatusCode) + " " + told.Reason + ", " + std::to_string(told.ReplySize) + ", " +
         std::to_string(told.ErrorNumber) + (told.ErrorText.empty() ? "" : " " + told.ErrorText);
}

struct Row {
  const char* Fault;
  const char* Blocking;
  const char* Async;  ///< null where nobody reads on and so sees no difference
  LinkFailure Failure = LinkFailure::Nothing;
};

TEST_F(ExchangesTest, TellWhatCameOfARequest) {
  const Row rows[] = {
      {"", "200 OK, 2000, 0", "200 OK, 0, 0"},
      {"basic=root:topsecret", "401 Unauthorized, ", "401 Unauthorized, 0, 0"},
      {"status=500 Internal error", "500 Internal error, 2000, 0", "500 Internal error, 0, 0"},
      {"long-headers=5000", "200 OK, 2000, 0", "200 OK, 0, 0"},
      {"short-body", "200 OK, 2000, 13106 Disconnected while recieving data", nullptr},
      {"close-before-reply",
       "0 , 0, 13104 Failed to connect to the HTTP server. The connection ended without a reply in HTTP.",
       "0 , 0, 13104 The HTTP server did not answer. The connection ended without a reply in HTTP.",
       LinkFailure::Closed},
      {"refuse",
       "0 , 0, 13104 Failed to connect to the HTTP server. The connection was refused or could not be made.",
       "0 , 0, 13104 The HTTP server did not answer. The connection was refused or could not be made.",
       LinkFailure::NotConnected},
  };
  std::size_t count = 0;
  for (const auto& [fault, blocking, async, failure] : rows) {
    SCOPED_TRACE(fault);
    if (*fault != '\0') Camera_.Faults().Set(fault);
    auto client = NewClient();
    test::NumberOf([&] { client.GetResource(Camera_.URL("/a?b=c"), "", ""); });
    ASSERT_EQ(Told_->Ends().size(), ++count);
    const auto told = Told_->Ends().back();
    EXPECT_TRUE(Outcome(told).starts_with(blocking)) << Outcome(told);
    EXPECT_EQ(told.Method + " " + told.URL, "GET " + Camera_.URL("/a?b=c"));
    EXPECT_EQ("http://" + told.Where + "/", Camera_.URL());
    EXPECT_EQ(told.DriverClass, "QVPTZ.Test");
    EXPECT_EQ(told.DriverObject, 7U);
    EXPECT_TRUE(told.Awaited);
    EXPECT_EQ(told.HadConnection, std::string(fault) != "refuse");
    EXPECT_EQ(told.Failure, failure);
    if (told.ReplySize >= Camera::Body.size()) {
      EXPECT_EQ(told.ReplyBeginning, Camera::Body.substr(0, Exchange::MaxBeginning));
    }
    if (async != nullptr) {
      client.GetResourceAsync(Camera_.URL("/d"), "", "");
      ASSERT_EQ(Told_->Beginnings().back().URL, Camera_.URL("/d"));
      ASSERT_TRUE(Told_->WaitForEnds(++count));
      const auto end = Told_->Ends().back();
      EXPECT_EQ(Outcome(end), async);
      EXPECT_EQ(end.HadConnection, std::string(fault) != "refuse");
      EXPECT_EQ(end.Failure, failure);
      EXPECT_FALSE(end.Awaited);
      EXPECT_EQ(end.Number, Told_->Beginnings().back().Number);
      EXPECT_GT(end.Number, told.Number);
    }
    Camera_.Faults().Clear();
  }
}

TEST_F(ExchangesTest, TellBodiesAndWhatIsNeverSent) {
  auto client = NewClient();
  client.GetResource(Camera_.URL(), "", "one=\xC3\xA9");
  EXPECT_EQ(Told_->Ends().back().Method, "POST");
  EXPECT_EQ(Told_->Ends().back().Sent, (Bytes{'o', 'n', 'e', '=', 0xE9}));
  EXPECT_EQ(test::NumberOf([&] { client.GetResourceAsync("ftp://10.0.0.5/", "", ""); }), 13101);
  EXPECT_EQ(Told_->Ends().back().ErrorNumber, 13101);
  EXPECT_TRUE(Told_->Beginnings().empty());
}

TEST_F(ExchangesTest, TellTheWholeReplyToWhoWantsIt) {
  Camera_.AnswerWith("HTTP/1.1 200 OK\r\nContent-Type: x/y\r\nContent-Length: 4\r\n\r\na\r\n\xE9");
  auto client = NewClient();
  for (const std::size_t wanted : {0, 3, 100}) {
    Told_->Wanted = wanted;
    client.GetResource(Camera_.URL(), "", "");
    const auto told = Told_->Ends().back();
    EXPECT_EQ(std::string(told.Reply.begin(), told.Reply.end()), std::string("a\r\n\xE9").substr(0, wanted));
    EXPECT_EQ(told.ReplyHeaders.starts_with("Content-Type: x/y\r\n"), wanted > 0) << told.ReplyHeaders;
  }
}

TEST_F(ExchangesTest, TellNoLogin) {
  MaskedLogins held;
  held.Set({{"operator1", "s3cretword"}});
  Told_->Wanted = 1000;
  // Where the part that is told ends, the password in the reply would be cut.
  const std::string before(Exchange::MaxBeginning - 4, 'b');
  Camera_.AnswerWith("HTTP/1.1 403 Not for s3cretword\r\nContent-Length: 518\r\n\r\n" + before +
                     "s3cretword");
  auto client = NewClient();
  const auto url = Camera_.URL("/x?usr=me&pwd=mine&key=s3cretword", "operator1:s3cretword");
  client.GetResource(url, "", "pass=s3cretword");
  client.GetResourceAsync(url, "", "pass=s3cretword");
  ASSERT_TRUE(Told_->WaitForEnds(2));
  for (const auto& told : Told_->Ends()) {
    EXPECT_EQ(told.URL, Camera_.URL("/x?usr=***&pwd=***&key=***", "***"));
    EXPECT_EQ(std::string(told.Sent.begin(), told.Sent.end()), "pass=***");
    EXPECT_EQ(told.Reason, "Not for ***");
  }
  EXPECT_EQ(Told_->Ends()[0].ReplyBeginning, before + "***");
  const auto reply = Told_->Ends()[0].Reply;
  EXPECT_EQ(std::string(reply.begin(), reply.end()), before + "***");
  EXPECT_EQ(Told_->Beginnings().at(0).URL, Told_->Ends()[1].URL);
}

// What nobody answered is not told as answered.
TEST_F(ExchangesTest, TellWhatIsGivenUp) {
  Camera_.Faults().Set("silent");
  {
    auto client = NewClient();
    for (int i = 0; i < 8; ++i) client.GetResourceAsync(Camera_.URL("/" + std::to_string(i)), "", "");
    ASSERT_TRUE(Camera_.Log().WaitForRequests(8));
    ASSERT_TRUE(Told_->WaitForEnds(4)) << "the oldest are given up";
    EXPECT_EQ(Outcome(Told_->Ends()[0]), "0 , 0, 13107 The request was given up before it was answered.");
  }
  if (test::UnderWine()) Camera_.Restart();
  ASSERT_TRUE(Told_->WaitForEnds(8));
  for (const auto& told : Told_->Ends()) {
    EXPECT_EQ(told.StatusCode, 0);
    EXPECT_NE(told.ErrorNumber, 0);
  }
}

TEST_F(ExchangesTest, TellFramesOfASerialLine) {
  test::FakeClock clock;
  test::FakeSerialPorts ports(clock);
  const Platform platform{.Clock = &clock, .Exchanges = Told_};
  const auto driver = CreateDriver("QVPTZ.Pelco", platform);
  ASSERT_TRUE(driver->Connect(test::CameraOptions({{"COMPort", 1}}, "")));
  EXPECT_TRUE(Told_->Ends().empty());
  driver->PresetGoto(0);
  ports.Line.FramesUntilUnplugged = 0;
  EXPECT_EQ(test::NumberOf([&] { driver->PresetGoto(1); }), SerialErrorDevice);
  EXPECT_FALSE(driver->Connect(test::CameraOptions({{"COMPort", 1}}, "")));

  const auto told = Told_->Ends();
  ASSERT_EQ(told.size(), 3U);
  EXPECT_EQ(told[0].Sent, (Bytes{0xFF, 1, 0, 7, 0, 1, 9}));
  EXPECT_EQ(Outcome(told[0]), "0 , 0, 0");
  EXPECT_EQ(told[1].Sent, (Bytes{0xFF, 1, 0, 7, 0, 2, 10}));
  EXPECT_EQ(Outcome(told[1]), "0 , 0, 57 unplugged");
  EXPECT_EQ(told[2].Sent, Bytes{}) << "it could not be opened";
  EXPECT_EQ(Outcome(told[2]), "0 , 0, 8002 unplugged");
  EXPECT_EQ(told[2].Failure, LinkFailure::NotConnected);
  for (const auto& each : told) {
    EXPECT_EQ(each.Where, "COM1");
    EXPECT_EQ(each.Link, ExchangeLink::Serial);
    EXPECT_EQ(each.DriverClass, "QVPTZ.Pelco");
    EXPECT_EQ(each.DriverObject, told[0].DriverObject);
  }
  const auto another = CreateDriver("QVPTZ.Pelco", platform);
  EXPECT_FALSE(another->Connect(test::CameraOptions({{"COMPort", 1}}, "")));
  EXPECT_GT(Told_->Ends().back().DriverObject, told[0].DriverObject);
}

TEST_F(ExchangesTest, TellMessagesOverTCP) {
  ptzsim::RequestLog log;
  ptzsim::FaultSwitches faults;
  ptzsim::TCPServer unit(
      [](std::string& received) -> std::optional<ptzsim::Message> {
        if (received.empty()) return std::nullopt;
        return ptzsim::Message{.Raw = std::exchange(received, {})};
      },
      {}, log, faults);
  test::FakeClock clock;
  const auto driver = CreateDriver("QVPTZ.Secubest", {.Clock = &clock, .Exchanges = Told_});
  ASSERT_TRUE(driver->Connect(test::CameraOptions({}, unit.Address())));
  ASSERT_EQ(Told_->Ends().size(), 1U);
  EXPECT_EQ(Told_->Ends()[0].Sent, Bytes{});
  EXPECT_EQ(Told_->Ends()[0].Link, ExchangeLink::TCP);
  EXPECT_EQ(Outcome(Told_->Ends()[0]), "0 , 0, 0");
  driver->Move(DirectionLeft, 5);
  ASSERT_EQ(Told_->Ends().size(), 3U) << "a start and a stop";
  EXPECT_EQ(Told_->Ends()[1].Sent.size(), 21U);
  EXPECT_EQ(Told_->Ends()[1].Where, unit.Address());
  EXPECT_EQ(Outcome(Told_->Ends()[2]), "0 , 0, 0");

  ASSERT_TRUE(log.WaitForConnections(1));
  unit.CloseConnections(true);
  ASSERT_TRUE(log.WaitForClosed(1));
  driver->Move(DirectionLeft, 5);
  EXPECT_NE(Told_->Ends().back().ErrorNumber, 0) << "the driver does not say so";
  EXPECT_FALSE(Told_->Ends().back().ErrorText.empty());
  EXPECT_FALSE(Told_->Ends().back().Sent.empty());

  faults.Set("refuse");
  EXPECT_EQ(test::NumberOf([&] { driver->Connect(test::CameraOptions({}, unit.Address())); }), 17001);
  EXPECT_TRUE(Told_->Ends().back().ErrorText.starts_with("Unable to connect to the server: "));
}

TEST(DescribeTest, LineForPeople) {
  using namespace std::chrono_literals;
  const Exchange http{.Where = "h:80", .Method = "GET", .URL = "http://h/a", .Took = 1ms};
  const auto with = [](Exchange exchange, const auto& change) {
    change(exchange);
    return Describe(exchange);
  };
  const Exchange line{.Link = ExchangeLink::Serial, .Where = "COM1", .Took = 340us};
  const std::pair<std::string, std::string> rows[] = {
      {with(http,
            [](auto& e) { e.StatusCode = 401, e.Reason = "Unauthorized", e.ReplySize = 9, e.Took = 12ms; }),
       "GET http://h/a -> 401 Unauthorized, 9 bytes, 12 ms"},
      {with(http,
            [](auto& e) { e.StatusCode = 200, e.ReplySize = 3, e.ErrorNumber = 13106, e.ErrorText = "cut"; }),
       "GET http://h/a -> 200, 3 bytes, error 13106: cut, 1.0 ms"},
      {with(http,
            [](auto& e) {
              e.Method = "POST", e.Sent = {'a', '=', 0xE9, '\n'}, e.ErrorNumber = 6, e.ErrorText = "x";
            }),
       "POST http://h/a \"a=\xC3\xA9\\n\" -> error 6: x, 1.0 ms"},
      {with(http, [](auto& e) { e.Awaited = false, e.StatusCode = 204, e.Reason = "No\rX"; }),
       "GET http://h/a -> 204 No\\rX, 1.0 ms"},
      {with(http, [](auto& e) { e.Awaited = false, e.Took = {}; }), "GET http://h/a, handed over"},
      {with(line,
            [](auto& e) {
              e.Sent = {0xFF, 1, 0xA0};
            }),
       "COM1: FF 01 A0 -> sent, 0.3 ms"},
      {with(line, [](auto& e) { e.ErrorNumber = 8002, e.ErrorText = "no port"; }),
       "COM1: opening -> error 8002: no port, 0.3 ms"},
      {with(line, [](auto& e) { e.Link = ExchangeLink::TCP, e.Where = "h:7777"; }),
       "h:7777: opening -> open, 0.3 ms"},
  };
  for (const auto& [told, expected] : rows) EXPECT_EQ(told, expected);
}

}  // namespace
}  // namespace ptzd
