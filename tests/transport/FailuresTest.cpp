// What the client makes of each call of the HTTP layer that fails, which no server can bring about at will.

#include <gtest/gtest.h>

#include <functional>

#include "support/Errors.h"
#include "support/FakeClock.h"
#include "support/FakeInternet.h"
#include "transport/HTTPClient.h"
#include "transport/HTTPClientHelper.h"

namespace ptzd {
namespace {

using test::ErrorOf;
using test::NumberOf;

struct FailingInternet : test::FakeInternet {
  int SessionsLeft = 2;
  bool Connects = true, Opens = true, Available = true, Reads = true;
  std::uint32_t ErrorAfterQuery = 0, ErrorAfterRead = 0;

  InternetHandle OpenSession(const std::string& agent, std::uint32_t flags) override {
    return SessionsLeft-- > 0 ? FakeInternet::OpenSession(agent, flags) : 0;
  }
  InternetHandle Connect(InternetHandle session, const std::string& host, std::uint16_t port,
                         const std::string& user, const std::string& password, std::int32_t service,
                         std::uint32_t flags, std::uintptr_t context) override {
    return Connects ? FakeInternet::Connect(session, host, port, user, password, service, flags, context) : 0;
  }
  InternetHandle OpenRequest(InternetHandle connection, const std::string& verb, const std::string& object,
                             std::uint32_t flags, std::uintptr_t context) override {
    return Opens ? FakeInternet::OpenRequest(connection, verb, object, flags, context) : 0;
  }
  bool SendRequest(InternetHandle request, const std::string& headers,
                   std::span<const std::uint8_t> body) override {
    const bool sent = FakeInternet::SendRequest(request, headers, body);
    Error = Replies.empty() && !sent ? SendError : FakeInternet::LastError();
    return sent;
  }
  bool QueryDataAvailable(InternetHandle request, std::uint32_t& available) override {
    FakeInternet::QueryDataAvailable(request, available);
    Error = ErrorAfterQuery;
    return Available;
  }
  bool Read(InternetHandle request, std::span<std::uint8_t> buffer, std::uint32_t& length) override {
    FakeInternet::Read(request, buffer, length);
    Error = ErrorAfterRead;
    return Reads;
  }
  std::uint32_t LastError() override { return Error; }
  std::uint32_t Error = 0;
};

TEST(HTTPClientFailures, EveryFailedCallHasItsNumberAndText) {
  struct Row {
    std::function<void(FailingInternet&)> Break;
    const char* Error;
  };
  const test::FakeReply silence{.Answers = false};
  const Row rows[] = {
      {[](auto& net) { net.Connects = false; }, "13101 Failed to initialise the HTTP session"},
      {[](auto& net) { net.Opens = false; }, "13102 Failed to initialise the HTTP request"},
      {[&](auto& net) { net.Replies = {silence}, net.SendError = 2; }, "13102 Windows is in offline mode."},
      {[&](auto& net) { net.Replies = {silence}; }, "13104 Failed to connect to the HTTP server."},
      {[](auto& net) { net.Available = false; }, "13106 InternetQueryDataAvailable returned failure"},
      {[](auto& net) { net.ErrorAfterQuery = 12; }, "13106 GetLastError returned 12"},
      {[](auto& net) { net.ErrorAfterQuery = 997; }, ""},
      {[](auto& net) { net.Reads = false; }, "13106 Disconnected while recieving data"},
      {[](auto& net) { net.ErrorAfterRead = 997; }, "13106 GetLastError returned 997"},
  };
  for (const auto& row : rows) {
    FailingInternet net;
    net.Replies = {test::FakeReply{"body"}};
    HTTPClient client(net);
    row.Break(net);
    EXPECT_EQ(ErrorOf([&] { client.GetResource("http://camera1/", "", ""); }), row.Error);
    EXPECT_FALSE(client.Working()) << row.Error;
    EXPECT_EQ(net.OpenHandles(), 2U) << row.Error;
  }
  for (const int sessions : {0, 1}) {
    FailingInternet net;
    net.SessionsLeft = sessions;
    EXPECT_EQ(ErrorOf([&] { HTTPClient client(net); }), "5 ");
    EXPECT_EQ(net.OpenHandles(), 0U);
  }
}

TEST(HTTPClientFailures, BodyWithoutEnd) {
  struct EndlessInternet : test::FakeInternet {
    test::FakeClock Clock;
    std::uint32_t Piece = 0;
    std::int64_t Milliseconds = 0;
    std::optional<std::uint64_t> QueryContentLength(InternetHandle) override { return std::nullopt; }
    bool QueryDataAvailable(InternetHandle, std::uint32_t& available) override {
      Clock.Advance(Milliseconds);
      available = Piece;
      return true;
    }
    bool Read(InternetHandle, std::span<std::uint8_t> buffer, std::uint32_t& length) override {
      length = static_cast<std::uint32_t>(buffer.size());
      return true;
    }
  };
  struct Row {
    std::uint32_t Piece;
    std::int64_t Milliseconds;
    const char* Error;
  };
  for (const auto& [piece, milliseconds, error] :
       {Row{1024 * 1024, 1, "13106 The reply has more than 16 MB"},
        Row{1, 4000, "13106 The reply took more than 30 seconds"}}) {
    EndlessInternet net;
    net.Piece = piece;
    net.Milliseconds = milliseconds;
    HTTPClient client(net, net.Clock);
    EXPECT_EQ(ErrorOf([&] { client.GetResource("http://camera1/", "", ""); }), error);
  }
}

TEST(HTTPClientFailures, AsynchronousSendsThatFailLeaveNothingBehind) {
  struct Refusing : FailingInternet {
    bool SendRequest(InternetHandle, const std::string&, std::span<const std::uint8_t>) override {
      Error = SendError;
      return false;
    }
  };
  struct Row {
    std::uint32_t SystemError;
    const char* Error;
  };
  for (const auto& [systemError, expected] : {Row{12029, "13104 Failed to connect to the HTTP server"},
                                              Row{2, "13102 Windows is in offline mode."}}) {
    Refusing net;
    net.SendError = systemError;
    HTTPClient client(net);
    const auto pending = AsyncHandles().Count();
    EXPECT_EQ(ErrorOf([&] { client.GetResourceAsync("http://camera1/", "", "body"); }), expected);
    EXPECT_EQ(AsyncHandles().Count(), pending);
    EXPECT_EQ(net.OpenHandles(), 2U);
  }
}

TEST(AsyncHandleCollection, ContextsStartAgainAndSkipThoseInUse) {
  AsyncHandleCollection handles(0x0FFFFFFF);
  handles.Add(1, 11);
  handles.Add(3, 33);
  EXPECT_EQ(handles.NextContext(), 0x10000000);
  EXPECT_EQ(handles.NextContext(), 2);
  EXPECT_EQ(handles.NextContext(), 4);
  handles.Add(3, 34);
  EXPECT_EQ(handles.Remove(3), 34U) << "the newer one";
  EXPECT_EQ(handles.Remove(3), std::nullopt);
}

TEST(AppendBytes, TakesBytesOnly) {
  Variant body = Bytes{1, 2};
  AppendBytes(body, Bytes{3});
  AppendBytes(body, Bytes{});
  EXPECT_EQ(body, Variant(Bytes{1, 2, 3}));
  Variant text = std::string("12");
  EXPECT_EQ(NumberOf([&] { AppendBytes(text, Bytes{3}); }), 13);
  EXPECT_EQ(NumberOf([&] { AppendBytes(body, text); }), 13);
  EXPECT_EQ(body, Variant(Bytes{1, 2, 3}));
}

}  // namespace
}  // namespace ptzd
