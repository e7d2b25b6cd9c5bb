#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#ifndef _WIN32
#include <sys/epoll.h>
#include <sys/resource.h>
#endif

#include <ptzd/Logging.h>
#include "support/Errors.h"
#include "tests/transport/Camera.h"
#include "tests/transport/ForwardingInternet.h"
#include "transport/HTTPClient.h"
#include "transport/HTTPClientHelper.h"

static std::atomic<int> Waits = 0;
#ifndef _WIN32
/// In the place of the system's: a thread that comes here again and again keeps a processor busy.
extern "C" int epoll_wait(int epoll, epoll_event* events, int most, int time) {
  ++Waits;
  return epoll_pwait(epoll, events, most, time, nullptr);
}
#endif

namespace ptzd {
namespace {

using test::Camera;

/// Counts the requests whose handles the status callback has closed, by its last log text.
class CompletionCounter {
 public:
  CompletionCounter() {
    SetLogSink([this](std::string_view message) {
      if (!message.starts_with("Closed session handle")) return;
      const std::lock_guard lock(Mutex_);
      ++Count_;
      // On Windows the end of a session may close the connection while its last request completes.
#ifndef _WIN32
      AllClosed_ = AllClosed_ && message == "Closed session handle 1";
#endif
      Changed_.notify_all();
    });
  }
  ~CompletionCounter() { SetLogSink({}); }

  /// False when so many requests never complete.
  bool WaitFor(int count) {
    std::unique_lock lock(Mutex_);
    return Changed_.wait_for(lock, ptzsim::RequestLog::Deadline, [&] { return Count_ >= count; }) &&
           AllClosed_;
  }

 private:
  std::mutex Mutex_;
  std::condition_variable Changed_;
  int Count_ = 0;
  bool AllClosed_ = true;
};

/// Lines to be compared: under Wine in no order, since each request is sent by whichever thread comes first.
std::vector<std::string> InOrder(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  if (test::UnderWine()) std::ranges::sort(lines);
  return lines;
}

class AsyncTest : public ::testing::Test {
 protected:
  void TearDown() override {
    Client_.reset();
    EXPECT_EQ(AsyncHandles().Count(), 0U);
    EXPECT_EQ(SystemInternet().OpenHandles(), HandlesBefore_);
    EXPECT_TRUE(Camera_.AllConnectionsClose()) << "a connection outlives the client";
  }

  /// What no reply came to ends with its session; under Wine when the camera closes, or with the time-out.
  void EndWaiting() {
    Client_.reset();
    if (test::UnderWine()) Camera_.Restart();
  }

  Camera Camera_;
  CompletionCounter Completions_;
  std::size_t HandlesBefore_ = SystemInternet().OpenHandles();
  std::unique_ptr<HTTPClient> Client_ = std::make_unique<HTTPClient>();
};

TEST_F(AsyncTest, OneConnectionForCommandsOneAfterTheOther) {
  for (int i = 1; i <= 5; ++i) {
    Client_->GetResourceAsync(Camera_.URL("/" + std::to_string(i)), "X-One: 1", i % 2 == 0 ? "a=1" : "");
    EXPECT_FALSE(Client_->Working());
    ASSERT_TRUE(Completions_.WaitFor(i));
  }
  EXPECT_EQ(Camera_.Requests(), "GET /1\nPOST /2\nGET /3\nPOST /4\nGET /5\n");
  EXPECT_EQ(Camera_.Log().Requests().back().Header("X-One"), "1");
  EXPECT_EQ(Camera_.Log().ConnectionsOpened(), 1);
}

// Each is written when the one before is answered, over the connection that this gave back. A few more open
// where the machine is so busy that an answer takes its time.
TEST_F(AsyncTest, CommandsInARowDoNotOvertakeOneAnother) {
  if (test::UnderWine()) GTEST_SKIP() << "each request is sent by whichever thread comes first";
  Camera_.Faults().Set("delay=5");
  for (int i = 0; i < 40; ++i) Client_->GetResourceAsync(Camera_.URL(), "", "");
  ASSERT_TRUE(Completions_.WaitFor(40));
  EXPECT_LE(Camera_.Log().ConnectionsOpened(), 20);
}

// A stop must not queue behind the replies that a camera holds back, and those that never come must not use
// up the descriptors of the process.
TEST_F(AsyncTest, SilentCameraGetsEveryCommandInOrderAndKeepsFour) {
  Camera_.Faults().Set("silent");
  std::string expected;
  for (int i = 0; i < 12; ++i) {
    const auto target = "/move" + std::to_string(i);
    Client_->GetResourceAsync(Camera_.URL(target), "", "");
    expected += "GET " + target + "\n";
  }
  ASSERT_TRUE(Camera_.Log().WaitForRequests(12));
  EXPECT_EQ(InOrder(Camera_.Requests()), InOrder(expected));
  EXPECT_TRUE(Completions_.WaitFor(8)) << "the oldest are given up";
  EndWaiting();
  EXPECT_TRUE(Completions_.WaitFor(12));
}

// The newest may be a stop, and is tried after the client is gone too; what it stops is not replayed.
TEST_F(AsyncTest, OfWhatCannotBeWrittenOnlyTheNewestIsStillTried) {
  if (test::UnderWine()) GTEST_SKIP() << "the system tries all, each on its own";
  Camera_.Faults().Set("full-accept-queue");
  for (const auto* target : {"/move1", "/move2", "/stop"})
    Client_->GetResourceAsync(Camera_.URL(target), "", "");
  Client_.reset();
  EXPECT_TRUE(Completions_.WaitFor(2));
  // When this one is through, the stop is knocking; the camera would refuse it while its listener changes.
  Camera other;
  HTTPClient().GetResourceAsync(other.URL(), "", "");
  EXPECT_TRUE(Completions_.WaitFor(3));
  Camera_.Faults().Clear();
  EXPECT_TRUE(Completions_.WaitFor(4));
  ASSERT_TRUE(Camera_.Log().WaitForRequests(1));
  EXPECT_EQ(Camera_.Requests(), "GET /stop\n");
}

TEST_F(AsyncTest, WhatIsSentJustBeforeClosingStillArrives) {
  Camera_.Faults().Set("silent");  // so that each command comes over a connection of its own, in their order
  std::string expected;
  for (int i = 0; i < 20; ++i) {
    const auto target = "/" + std::to_string(i);
    Client_->GetResourceAsync(Camera_.URL(target), "", "a=1");
    expected += "POST " + target + "\n";
  }
  Client_.reset();
  ASSERT_TRUE(Camera_.Log().WaitForRequests(20));
  EXPECT_EQ(InOrder(Camera_.Requests()), InOrder(expected));
  EndWaiting();
  EXPECT_TRUE(Completions_.WaitFor(20));
}

// Those that still have to go wait for the answers before them, over the one connection.
TEST_F(AsyncTest, ClosingDoesNotHurryWhatIsStillToBeSent) {
  if (test::UnderWine()) GTEST_SKIP() << "each request is sent by whichever thread comes first";
  Camera_.Faults().Set("delay=5");
  std::string expected;
  for (int i = 0; i < 20; ++i) {
    Client_->GetResourceAsync(Camera_.URL("/" + std::to_string(i)), "", "");
    expected += "GET /" + std::to_string(i) + "\n";
  }
  Client_.reset();
  ASSERT_TRUE(Camera_.Log().WaitForRequests(20));
  EXPECT_EQ(Camera_.Requests(), expected);
  EXPECT_LE(Camera_.Log().ConnectionsOpened(), 10);
  EXPECT_TRUE(Completions_.WaitFor(20));
}

// Bodies beyond what a socket takes at once leave completely, whatever else goes on.
TEST_F(AsyncTest, LargeBodiesArriveWhole) {
  const std::string body(3 << 20, 'p');
  for (int i = 0; i < 3; ++i) Client_->GetResourceAsync(Camera_.URL(), "", body);
  Client_.reset();
  EXPECT_TRUE(Completions_.WaitFor(3));
  ASSERT_TRUE(Camera_.Log().WaitForRequests(3));
  for (const auto& request : Camera_.Log().Requests()) EXPECT_TRUE(request.Body == body);
  EXPECT_EQ(Camera_.Log().Violations(), std::vector<std::string>{});
}

TEST_F(AsyncTest, OneCameraDoesNotDelayAnother) {
  Camera other;
  Camera_.Faults().Set("full-accept-queue");
  HTTPClient otherClient;
  Client_->GetResourceAsync(Camera_.URL("/stuck"), "", "");
  otherClient.GetResourceAsync(other.URL("/free"), "", "");
  EXPECT_TRUE(Completions_.WaitFor(1));
  EXPECT_EQ(other.Requests(), "GET /free\n");
  Camera_.Faults().Clear();
  EXPECT_TRUE(Completions_.WaitFor(2));
}

TEST_F(AsyncTest, FailuresAreNotTheCallersAndLeaveNothing) {
  int completed = 0;
  for (const auto* fault :
       {"refuse", "close-before-reply", "close-on-accept", "chunked-cut", "status=404 Not Found"}) {
    SCOPED_TRACE(fault);
    Camera_.Faults().Set(fault);
    EXPECT_EQ(test::ErrorOf([&] { Client_->GetResourceAsync(Camera_.URL(), "", ""); }), "");
    EXPECT_TRUE(Completions_.WaitFor(++completed));
    Camera_.Faults().Clear();
  }
  EXPECT_EQ(test::ErrorOf([&] { Client_->GetResourceAsync("nowhere", "", ""); }),
            "13101 Failed to initialise the HTTP session");
  EXPECT_EQ(test::ErrorOf([&] { Client_->GetResourceAsync(Camera_.URL("/\r\n"), "", ""); }),
            "13102 Failed to initialise the HTTP request");
  EXPECT_FALSE(Client_->Working());
}

TEST_F(AsyncTest, ASilentCameraIsNotWaitedForForEver) {
  if (test::UnderWine()) GTEST_SKIP() << "Wine heeds a connection's time-out alone";
  Camera_.Faults().Set("silent");
  test::ForwardingInternet internet;
  internet.AsyncReceiveTimeout = 250;
  HTTPClient client(internet);
  const int waits = Waits;
  client.GetResourceAsync(Camera_.URL(), "", "");
  EXPECT_TRUE(Completions_.WaitFor(1));
  EXPECT_LT(Waits - waits, 100);
}

TEST_F(AsyncTest, LoginIsAgreedOnBeforeTheNextCommand) {
  if (test::UnderWine()) GTEST_SKIP() << "Wine answers no Digest challenge";
  Camera_.Faults().Set("digest=us:p");
  for (const auto* target : {"/1", "/2", "/3"})
    Client_->GetResourceAsync(Camera_.URL(target, "us:p"), "", "");
  EXPECT_TRUE(Completions_.WaitFor(3));
  Camera_.Restart();  // and it knows nothing of that any more
  Client_->GetResourceAsync(Camera_.URL("/4", "us:p"), "", "");
  EXPECT_TRUE(Completions_.WaitFor(4));
  std::string accepted;
  for (const auto& request : Camera_.Log().Requests())
    if (request.Status == 200) accepted += request.Target;
  EXPECT_EQ(accepted, "/1/2/3/4");
}

TEST_F(AsyncTest, StopWithALoginDoesNotWaitForASilentCamera) {
  if (test::UnderWine()) GTEST_SKIP() << "logins are the process's";
  int completed = 0;
  for (const auto* login : {"basic=us:p", "digest=us:p"})
    for (const auto* silence : {"after=2,silent", "after=1,silent"}) {  // once it is agreed on, or asked for
      SCOPED_TRACE(std::string(login) + " " + silence);
      Camera_.Log().Clear();
      Camera_.Faults().Set(login);
      Camera_.Faults().Set(silence);
      for (const auto* target : {"/", "/move", "/stop"})
        Client_->GetResourceAsync(Camera_.URL(target, "us:p"), "", "");
      ASSERT_TRUE(Camera_.Log().WaitForRequests(4)) << "the first was asked for its login";
      EXPECT_EQ(Camera_.Requests(), "GET /\nGET /\nGET /move\nGET /stop\n");
      EXPECT_EQ(Camera_.Log().Requests().back().Status, 200);
      Client_ = std::make_unique<HTTPClient>();
      ASSERT_TRUE(Completions_.WaitFor(completed += 3));
      Camera_.Faults().Clear();
    }
}

TEST_F(AsyncTest, ClientsSendingAtOnceLoseNothing) {
  constexpr int clients = 3, commands = 150;
  std::vector<std::thread> threads;
  for (int client = 0; client < clients; ++client)
    threads.emplace_back([&, client] {
      HTTPClient own;
      for (int i = 0; i < commands; ++i)
        own.GetResourceAsync(Camera_.URL("/" + std::to_string(client) + "/" + std::to_string(i)), "", "");
    });
  for (auto& thread : threads) thread.join();
  EXPECT_TRUE(Completions_.WaitFor(clients * commands));
  ASSERT_TRUE(Camera_.Log().WaitForRequests(clients * commands));

  std::set<std::string> targets;
  for (const auto& request : Camera_.Log().Requests()) targets.insert(request.Target);
  EXPECT_EQ(targets.size(), std::size_t{clients * commands});
}

[[noreturn]] void ExitWithSendsInFlight() {
  static Camera silent, stuck, lively;
#ifndef _WIN32  // which gives nothing any time then
  static const struct AtTheEnd {
    ~AtTheEnd() {  // behind the worker, which is younger
      if (lively.Requests() != "GET /1\nGET /2\nGET /stop\n") std::_Exit(1);
    }
  } atTheEnd;
#endif
  silent.Faults().Set("silent");
  stuck.Faults().Set("full-accept-queue");
  HTTPClient client, other, third;
  for (const auto* target : {"/1", "/2", "/stop"}) {
    client.GetResourceAsync(silent.URL(), "", "");
    other.GetResourceAsync(stuck.URL(), "", "");
    third.GetResourceAsync(lively.URL(target), "", "");
  }
  std::exit(0);
}

TEST(AsyncExitDeathTest, ProcessEndsWithSendsInFlight) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(ExitWithSendsInFlight(), ::testing::ExitedWithCode(0), "");
}

// Windows has no worker of ours, and the sanitizer of addresses cannot do without descriptors.
#if !defined _WIN32 && !defined __SANITIZE_ADDRESS__
[[noreturn]] void ExitAfterSendsWithoutDescriptors() {
  Camera camera;
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit none{0, limit.rlim_max};
  const auto send = [&](const char* body) {
    HTTPClient client;
    return test::ErrorOf([&] { client.GetResourceAsync(camera.URL(), "", body); });
  };
  setrlimit(RLIMIT_NOFILE, &none);
  bool asExpected = true;
  for (const auto* body : {"", "a=1"})
    asExpected = asExpected && send(body) == "13104 Failed to connect to the HTTP server";
  asExpected = asExpected && AsyncHandles().Count() == 0 && SystemInternet().OpenHandles() == 0;
  setrlimit(RLIMIT_NOFILE, &limit);
  asExpected = asExpected && send("").empty() && camera.Log().WaitForRequests(1);
  std::exit(asExpected ? 0 : 1);
}

TEST(AsyncExitDeathTest, SendFailsWhereTheWorkerCannotStart) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(ExitAfterSendsWithoutDescriptors(), ::testing::ExitedWithCode(0), "");
}
#endif

}  // namespace
}  // namespace ptzd
