#include "transport/HTTPClient.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#ifndef _WIN32
#include "support/Environment.h"
#endif
#include "support/Errors.h"
#include "tests/transport/Camera.h"
#include "tests/transport/ForwardingInternet.h"

namespace ptzd {
namespace {

using test::Camera;
using test::ErrorOf;

constexpr auto NoServer = "13104 Failed to connect to the HTTP server.";
constexpr auto BodyBroke = "13106 InternetQueryDataAvailable returned failure";
constexpr auto BodyShort = "13106 Disconnected while recieving data";

/// Has no body, whatever length it announces.
const std::string NotModified = "HTTP/1.1 304 Not Modified\r\nContent-Length: 9";

/// For cameras that fall silent. All others have the usual time, however busy the machine is.
constexpr std::int32_t ShortTimeout = 250;
bool IsWaitedOut(std::string_view fault) {
  return fault.starts_with("silent") || fault.starts_with("stall") || fault.starts_with("endless-headers");
}

std::string TextOf(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

std::string CodeOf(const HTTPClient& client) {
  std::string reason;
  const auto code = client.GetResultCode(reason);
  return code + (code.empty() ? "" : " " + reason);
}

class HTTPClientTest : public ::testing::Test {
 protected:
  /// Fetches and notes what came of it.
  void Get(const std::string& url, const std::string& headers = {}, const std::string& postData = {}) {
    Body_.clear();
    Error_ = ErrorOf([&] { Body_ = TextOf(Client_->GetResource(url, headers, postData)); });
    EXPECT_FALSE(Client_->Working());
    EXPECT_EQ(SystemInternet().OpenHandles(), HandlesOfClient_);
  }

  void TearDown() override {
    Client_.reset();
    EXPECT_EQ(SystemInternet().OpenHandles(), HandlesBefore_);
    EXPECT_TRUE(Camera_.AllConnectionsClose()) << "a connection outlives the client";
  }

  Camera Camera_;
  std::size_t HandlesBefore_ = SystemInternet().OpenHandles();
  std::unique_ptr<HTTPClient> Client_ = std::make_unique<HTTPClient>();
  std::size_t HandlesOfClient_ = SystemInternet().OpenHandles();
  std::string Body_, Error_;
};

TEST_F(HTTPClientTest, OutcomeOfEachFault) {
  struct Row {
    std::vector<const char*> faults;
    std::string error;
    std::string body;
    const char* code;
    const char* notUnderWine = nullptr;
  };
  const std::string& body = Camera::Body;
  for (const auto& [faults, error, expectedBody, code, notUnderWine] : {
           Row{{}, "", body, "200 OK\r"},
           {{"refuse"}, NoServer, "", ""},
           {{"close-on-accept"}, NoServer, "", ""},
           {{"close-before-reply"}, NoServer, "", ""},
           {{"close-mid-reply=10"}, NoServer, "", ""},
           {{"silent"}, NoServer, "", ""},
           {{"endless-headers", "drip=1"}, NoServer, "", "", "waits as long as anything comes"},
           {{"stall-mid-body"}, BodyBroke, "", ""},
           {{"stall-mid-body=0"}, BodyBroke, "", ""},  // the headers came
           {{"reset-mid-reply"}, BodyBroke, "", "", "may take the reset for an end"},
           {{"chunked-cut"}, BodyBroke, "", "", "takes the end for the last chunk"},
           {{"close-mid-reply"}, BodyShort, "", "200 OK\r"},
           {{"short-body=1"}, BodyShort, "", "200 OK\r"},
           {{"empty-body", "short-body"}, BodyShort, "", "200 OK\r"},
           {{"long-body"}, "", body, "200 OK\r", "hands it all on and waits for more"},
           {{"chunked"}, "", body, "200 OK\r"},
           {{"chunked", "split=1"}, "", body, "200 OK\r"},
           {{"no-length"}, "", body, "200 OK\r"},
           {{"empty-body"}, "", "", "200 OK\r"},
           {{"no-content"}, "", "", ""},  // a block of one line has no line end left
           {{"bare-body"}, "", body, "", "takes its first line for the status line"},
           {{"no-reason"}, "", body, "", "makes a status line of its own"},
           {{"status=404 Not Found"}, "", body, "404 Not Found\r"},
           {{"status=301 Moved"}, "", body, "301 Moved\r"},  // to nowhere
           {{"status=600 Odd"}, "", body, ""},
           {{"long-headers=900"}, "", body, "200 OK\r"},  // 1 KB
           {{"long-headers=1900"}, "", body, ""},         // 2 KB
           {{"long-headers=250000"}, "", body, ""},       // 250 KB
           {{"long-headers=262000"}, NoServer, "", "", "has no limit"},
       }) {
    std::string name;
    for (const auto* fault : faults) name += std::string(fault) + " ";
    SCOPED_TRACE(name);
    if (test::LeftOutUnderWine(name, notUnderWine)) continue;
    Client_ = std::make_unique<HTTPClient>();
    for (const auto* fault : faults) Camera_.Faults().Set(fault);
    if (IsWaitedOut(name)) Client_->Timeout(ShortTimeout);
    Get(Camera_.URL());
    EXPECT_EQ(Error_, error);
    EXPECT_EQ(Body_.size(), expectedBody.size());
    EXPECT_TRUE(Body_ == expectedBody);
    EXPECT_EQ(CodeOf(*Client_), code);
    Camera_.Faults().Clear();
  }
  EXPECT_EQ(Camera_.Log().Violations(), std::vector<std::string>{});
}

TEST_F(HTTPClientTest, HeadersOfTheLastReplyOnly) {
  Get(Camera_.URL());
  EXPECT_EQ(Client_->GetHeader(), "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 2000");
  EXPECT_EQ(Client_->GetHeader("Content-Type"), "");
  EXPECT_EQ(Client_->LastResponse(), std::string(1024, '\0'));

  Camera_.Faults().Set("next=1,status=404 Gone");
  Get(Camera_.URL());
  EXPECT_EQ(Client_->GetHeader().substr(0, 17), "HTTP/1.1 404 Gone");
  Camera_.Faults().Set("long-headers=2048");
  Get(Camera_.URL());
  EXPECT_EQ(Client_->GetHeader().find("404"), std::string::npos) << "the old block must be gone";
}

TEST_F(HTTPClientTest, RepliesInOtherWords) {
  struct Row {
    std::string reply, error, body, headers;
    const char* notUnderWine = nullptr;
  };
  const std::string headers = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nX: 1";
  const std::string umlauts(1500, '\xFC');  // 1500 bytes, and more than 2048 in UTF-8
  std::string umlautsAsText;
  for (int i = 0; i < 1500; ++i) umlautsAsText += "\xC3\xBC";
  for (const auto& [reply, error, body, expectedHeaders, notUnderWine] : {
           Row{"HTTP/1.1 200 OK\nContent-Length: 2\nX: 1\n\nok", "", "ok", headers},
           {"HTTP/1.1 200 OK\nContent-Length: 2\r\nX: 1\n\r\nok", "", "ok", headers},
           {"HTTP/1.1 200 OK\r\nContent-Length: 9\r\nTransfer-Encoding: Chunked\r\n\r\n2\r\nok\r\n0\r\n\r\n",
            "", "ok", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\nTransfer-Encoding: Chunked"},
           {"HTTP/1.1 404 " + umlauts + "\r\nContent-Length: 2\r\n\r\nok", "", "ok",
            "HTTP/1.1 404 " + umlautsAsText + "\r\nContent-Length: 2"},
           {"HTTP/1.1 200 OK\r\nContent-Length: 4294967298\r\n\r\nok", "13106 The reply has more than 16 MB",
            "", ""},
           {"ok", "", "ok", "HTTP/1.0 200 OK", "takes its first line for the status line"},
           {NotModified + "\r\n\r\n", "", "", NotModified},
       }) {
    SCOPED_TRACE(reply);
    if (test::LeftOutUnderWine(reply, notUnderWine)) continue;
    Client_ = std::make_unique<HTTPClient>();
    Camera_.Faults().Set("close-after-reply");
    Camera_.AnswerWith(reply);
    Get(Camera_.URL());
    EXPECT_EQ(Error_, error);
    EXPECT_EQ(Body_, body);
    EXPECT_EQ(Client_->GetHeader(), expectedHeaders);
  }
}

TEST_F(HTTPClientTest, BytesOnTheWire) {
  const auto sent = [&](const std::string& headers, const std::string& postData) {
    Camera_.Log().Clear();
    Get(Camera_.URL("/axis-cgi/com/ptz.cgi?continuouspantiltmove=-5,5"), headers, postData);
    std::istringstream raw(Camera_.Log().Requests().at(0).Raw);
    std::string line, requestLine;
    std::vector<std::string> lines;
    std::getline(raw, requestLine);
    while (std::getline(raw, line) && line != "\r") {
      // Wine leaves these away as it likes.
      const bool isWines = line.starts_with("Connection:") || line.starts_with("Cache-Control:");
      if (!isWines || !test::UnderWine()) lines.push_back(line);
    }
    std::ranges::sort(lines);  // their order is the platform's
    std::string text = requestLine + "\n";
    for (const auto& header : lines) text += header + "\n";
    return text + "\r\n" + std::string(std::istreambuf_iterator<char>(raw), {});
  };
  const std::string host = "Host: 127.0.0.1:" + std::to_string(Camera_.Port()) + "\r\n";
  const std::string target = "/axis-cgi/com/ptz.cgi?continuouspantiltmove=-5,5 HTTP/1.1\r\n";
  const std::string agent = "User-Agent: Qelto HTTP Client Object\r\n";

  const std::string always = test::UnderWine() ? "" : "Cache-Control: no-cache\r\nConnection: Keep-Alive\r\n";

  EXPECT_EQ(sent("", ""), "GET " + target + always + host + agent + "\r\n");
  EXPECT_EQ(sent("X-One: 1\r\nAccept: text/plain\r\n", "\xC3\xA4=1"),
            "POST " + target + "Accept: text/plain\r\n" + always + "Content-Length: 3\r\n" + host + agent +
                "X-One: 1\r\n\r\n\xE4=1");
  if (!test::UnderWine()) {  // which adds its own all the same
    EXPECT_EQ(sent("cache-control: no-store\r\nUser-Agent: Other\r\nX-None: \r\n", ""),
              "GET " + target + "Connection: Keep-Alive\r\n" + host +
                  "User-Agent: Other\r\nX-None:\r\ncache-control: no-store\r\n\r\n");
  }
  // Nothing of the request before is left over.
  EXPECT_EQ(sent("", ""), "GET " + target + always + host + agent + "\r\n");
  EXPECT_EQ(Camera_.Log().ConnectionsOpened(), 1);
}

TEST_F(HTTPClientTest, TargetsLeaveAsTheyStand) {
  struct Row {
    const char* object;
    const char* target;
    const char* notUnderWine = nullptr;
  };
  for (const auto& [object, target, notUnderWine] : {
           Row{"", "/"},
           {"?a=1", "/?a=1"},
           {"/a b?c d", "/a%20b?c%20d"},
           {"/a/../b/./c//d", "/a/../b/./c//d", "resolves the dots"},
           {"/%41%zz%", "/%41%zz%"},
           {"/%2Fa%c3?%3Db=%3d", "/%2Fa%c3?%3Db=%3d"},
           {"/after/a/query", "/after/a/query"},
           {"/x?y?z=[1]{2}|<3>\"^`'", "/x?y?z=[1]{2}|<3>\"^`'"},
           {"/x?a\\b", "/x?a\\b", "turns the backslash round"},
           {"/x?", "/x?"},
           {"/x?a=1#b", "/x?a=1#b"},
           {"/x#%2F?", "/x#%2F?"},
           {"/\xC3\xA4?\xE2\x82\xAC", "/\xE4?\x80"},  // code page 1252
           {"/plain?after=all", "/plain?after=all"},
       }) {
    if (test::LeftOutUnderWine(object, notUnderWine)) continue;
    Camera_.Log().Clear();
    Get(Camera_.URL(object));
    const auto raw = Camera_.Log().Requests().at(0).Raw;
    EXPECT_EQ(raw.substr(0, raw.find('\r')), std::string("GET ") + target + " HTTP/1.1");
  }
}

TEST_F(HTTPClientTest, NothingBadReachesTheWire) {
  using namespace std::string_literals;
  constexpr auto noSession = "13101 Failed to initialise the HTTP session";
  constexpr auto noRequest = "13102 Failed to initialise the HTTP request";
  const auto url = Camera_.URL();
  const auto port = ":" + std::to_string(Camera_.Port()) + "/";
  struct Row {
    std::string url, headers, error;
  };
  for (const auto& [address, headers, error] : {
           Row{"", "", noSession},
           {"127.0.0.1" + port, "", noSession},
           {"https://127.0.0.1" + port, "", noSession},
           {"ftp://127.0.0.1" + port, "", noSession},
           {"http://127.0.0.1:99999/", "", noSession},
           {url + "a\r\nX-Smuggled: 1", "", noRequest},
           {url + "a\nb", "", noRequest},
           {url + "a\0b"s, "", noRequest},
           {Camera_.URL("/", "u:p%0D%0AX: 1"), "", noRequest},
           {url, "X-One: 1\nX-Smuggled: 1", noRequest},
           {url, "X-One: 1\r\rX", noRequest},
           {url, "X-One: \0"s, noRequest},
       }) {
    Get(address, headers);
    EXPECT_EQ(Error_, error) << address << headers;
  }
  EXPECT_EQ(Camera_.Log().ConnectionsOpened(), 0);
}

TEST_F(HTTPClientTest, OneConnectionForManyCommands) {
  for (int i = 0; i < 20; ++i) Get(Camera_.URL(), "", i % 3 == 0 ? "a=1" : "");
  EXPECT_EQ(Camera_.Log().ConnectionsOpened(), 1);

  if (test::LeftOutUnderWine("a new agent", "its connections are the process's")) return;

  // A new agent is a new session.
  Client_->UserAgent("Other Agent");
  Get(Camera_.URL());
  EXPECT_EQ(Camera_.Log().Requests().back().Header("User-Agent"), "Other Agent");
  EXPECT_EQ(Camera_.Log().ConnectionsOpened(), 2);
  EXPECT_TRUE(Camera_.Log().WaitForClosed(1));
}

TEST_F(HTTPClientTest, KeptConnectionClosedByTheCamera) {
  for (const auto* fault : {"close-after-reply", "close-on-reuse"})
    for (const auto* postData : {"", "a=1"}) {
      SCOPED_TRACE(std::string(fault) + " " + postData);
      Client_->UserAgent("");
      Camera_.Log().Clear();
      Camera_.Faults().Set(std::string("next=1,") + fault);
      Get(Camera_.URL("/1"), "", postData);
      Get(Camera_.URL("/2"), "", postData);
      EXPECT_EQ(Error_, "");
      EXPECT_EQ(Body_, Camera::Body);
      const std::string verb = *postData == '\0' ? "GET" : "POST";
      EXPECT_EQ(Camera_.Requests(), verb + " /1\n" + verb + " /2\n");
    }
}

TEST_F(HTTPClientTest, KeptConnectionClosedAgainAndAgain) {
  Camera_.Faults().Set("close-on-reuse");
  for (int i = 0; i < 15; ++i) {
    Get(Camera_.URL());
    EXPECT_EQ(Error_, "") << "request " << i;
  }
  EXPECT_EQ(Camera_.Log().Requests().size(), 15U);
}

TEST_F(HTTPClientTest, KeptConnectionWithBytesWaiting) {
  if (test::UnderWine()) GTEST_SKIP() << "Wine reads whatever comes as the answer";
  const std::string headers =
      "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nX: " + std::string(100, 'x') + "\r\n\r\n";
  for (const std::string stray : {"\r\nstray", "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nno"}) {
    SCOPED_TRACE(stray);
    // The client has the headers when the rest comes, and then reads just the body.
    Camera_.Faults().Set("split=" + std::to_string(headers.size()));
    Camera_.Faults().Set("pause=20");
    Camera_.AnswerWith(headers + "ok" + stray);
    Get(Camera_.URL("/1"));
    EXPECT_EQ(Body_, "ok");
    Camera_.Faults().Clear();
    Camera_.AnswerWith("");
    Get(Camera_.URL("/2"));
    EXPECT_EQ(Error_, "");
    EXPECT_EQ(Body_, Camera::Body);
  }
  EXPECT_EQ(Camera_.Requests(), "GET /1\nGET /2\nGET /1\nGET /2\n");
}

TEST_F(HTTPClientTest, NotSentAgainOnceTheCameraMayHaveActed) {
  Camera_.Faults().Set("close-before-reply");
  Get(Camera_.URL());
  EXPECT_EQ(Error_, NoServer);
  EXPECT_EQ(Camera_.Log().Requests().size(), 1U);
}

TEST_F(HTTPClientTest, CookiesStayWithTheSession) {
  Camera_.Faults().Set("cookie");
  Get(Camera_.URL("/1"));
  Get(Camera_.URL("/2"));
  EXPECT_EQ(CodeOf(*Client_), "200 OK\r");
  EXPECT_EQ(Camera_.Log().Requests().at(1).Header("Cookie"), "session=4711");
  if (test::LeftOutUnderWine("a new agent", "its cookies are the process's")) return;
  Client_->UserAgent("");
  Get(Camera_.URL("/3"));
  EXPECT_EQ(CodeOf(*Client_), "403 Forbidden\r");
}

TEST_F(HTTPClientTest, Redirects) {
  struct Row {
    const char* object;
    std::string location;
    const char* postData;
    const char* error;
    const char* requests;
    const char* notUnderWine = nullptr;
  };
  for (const auto& [object, location, postData, error, requests, notUnderWine] : {
           Row{"/old", "/new?x=1", "", "", "GET /old\nGET /new?x=1\n"},
           {"/old\xC3\xA4", Camera_.URL("/new"), "", "", "GET /old\xE4\nGET /new\n"},
           {"/old", "/new", "a=1", "", "POST /old\nGET /new\n"},
           {"/old", "ftp://127.0.0.1/", "", NoServer, "GET /old\n", "hands the redirect itself on"},
           {"/old", "file:///etc/passwd", "", NoServer, "GET /old\n", "hands the redirect itself on"},
       }) {
    SCOPED_TRACE(location);
    if (test::LeftOutUnderWine(location, notUnderWine)) continue;
    Camera_.Log().Clear();
    Camera_.Faults().Set("at=old,redirect=" + location);
    Get(Camera_.URL(object), "", postData);
    EXPECT_EQ(Error_, error);
    EXPECT_EQ(Camera_.Requests(), requests);
    if (Error_.empty()) {
      EXPECT_EQ(Body_, Camera::Body);
      EXPECT_EQ(CodeOf(*Client_), "200 OK\r");
    }
    Camera_.Faults().Clear();
  }
}

// A login that was agreed on is used from then on without asking again.
TEST_F(HTTPClientTest, Logins) {
  struct Row {
    const char* fault;
    const char* login;
    const char* code;
    std::size_t requests;  // of the first; all later ones need one
    const char* notUnderWine = nullptr;
  };
  constexpr auto noDigest = "answers no Digest challenge";
  for (const auto& [fault, login, code, requests, notUnderWine] : {
           Row{"basic=us:p:w@d", "us:p%3Aw%40d", "200 OK\r", 2},
           {"basic=us:p:w@d", "us:p:w@d", "200 OK\r", 2, "ends the login at the first @"},
           {"basic=us:p", "", "401 Unauthorized\r", 1},
           {"basic=us:p", "us:wrong", "401 Unauthorized\r", 2},
           {"basic=us:", "us", "200 OK\r", 2},
           {"digest=us:p:w@d", "us:p%3Aw%40d", "200 OK\r", 2, noDigest},
           {"digest=us:p", "", "401 Unauthorized\r", 1},
           {"digest-stale=us:p", "us:p", "200 OK\r", 3, noDigest},
       }) {
    SCOPED_TRACE(std::string(fault) + " as " + login);
    if (test::LeftOutUnderWine(fault, notUnderWine)) continue;
    Client_->UserAgent("");
    Camera_.Log().Clear();
    Camera_.Faults().Set(fault);
    Get(Camera_.URL("/a b\xC3\xA4%2F?c=d&e#f", login));
    EXPECT_EQ(CodeOf(*Client_), code);
    EXPECT_EQ(Error_, "");
    EXPECT_EQ(Body_ == Camera::Body, code == std::string("200 OK\r"));
    EXPECT_EQ(Camera_.Log().Requests().size(), requests);
    for (int later = 0; later < 2; ++later) {
      Camera_.Log().Clear();
      Get(Camera_.URL("/f", login), "", "g=h");
      EXPECT_EQ(CodeOf(*Client_), code);
      if (!test::UnderWine()) {  // which is asked again at another path
        EXPECT_EQ(Camera_.Log().Requests().size(), 1U);
      }
    }
    EXPECT_EQ(Camera_.Log().Violations(), std::vector<std::string>{});
    Camera_.Faults().Clear();
  }
}

#ifndef _WIN32
TEST_F(HTTPClientTest, Proxies) {
  const std::string proxy = Camera_.URL(), port = ":" + std::to_string(Camera_.Port());
  struct Row {
    const char* variable;  // that names the proxy
    std::pair<const char*, const char*> exceptions;
    std::string host;
    bool asksProxy;
    const char* object = "/a?b=1#c";
  };
  const std::string itself = "0.0.0.0" + port;  // the camera, by an address that is not the loopback's
  for (const auto& [variable, exceptions, host, asksProxy, object] : {
           Row{"http_proxy", {"no_proxy", nullptr}, "camera.invalid", true},
           {"http_proxy", {"no_proxy", nullptr}, "camera.invalid", true, "/%2Fplain"},
           {"all_proxy", {"no_proxy", nullptr}, itself, true},
           {"ALL_PROXY", {"no_proxy", nullptr}, itself, true},
           {"http_proxy", {"no_proxy", nullptr}, "127.0.0.1" + port, false},
           {"http_proxy", {"no_proxy", nullptr}, "localhost" + port, false},
           {"http_proxy", {"no_proxy", "a.invalid"}, "127.0.0.1" + port, false},
           {"http_proxy", {"no_proxy", "a.invalid"}, "localhost" + port, false},
           {"http_proxy", {"no_proxy", "a.invalid,0.0.0.0"}, itself, false},
           {"http_proxy", {"NO_PROXY", "a.invalid,0.0.0.0"}, itself, false},
           {"http_proxy", {"NO_PROXY", "*"}, itself, false},
       }) {
    SCOPED_TRACE(std::string(variable) + " to " + host);
    const test::Environment environment{
        {"http_proxy", nullptr}, {"https_proxy", nullptr},  {"HTTPS_PROXY", nullptr},
        {"all_proxy", nullptr},  {"ALL_PROXY", nullptr},    {"no_proxy", nullptr},
        {"NO_PROXY", nullptr},   {variable, proxy.c_str()}, exceptions};
    Client_->UserAgent("");
    Camera_.Log().Clear();
    const auto url = "http://" + host + object;
    Get(url);
    EXPECT_EQ(Error_, "");
    EXPECT_EQ(Camera_.Requests(), "GET " + (asksProxy ? url : object) + "\n");
  }
}
#endif

TEST_F(HTTPClientTest, CredentialsStayHomeUnlessAskedFor) {
  Get(Camera_.URL("/", "us:secret"));
  EXPECT_EQ(Camera_.Log().Requests().at(0).Header("Authorization"), "");
}

// A camera that was restarted knows nothing of the nonce it gave out.
TEST_F(HTTPClientTest, DigestAfterTheCameraForgot) {
  if (test::UnderWine()) GTEST_SKIP() << "Wine answers no Digest challenge";
  Camera_.Faults().Set("digest=us:p");
  Get(Camera_.URL("/", "us:p"));
  Camera_.Restart();
  Get(Camera_.URL("/", "us:p"));
  EXPECT_EQ(CodeOf(*Client_), "200 OK\r");
  EXPECT_TRUE(Body_ == Camera::Body) << "alone, without the refusal's";
}

TEST_F(HTTPClientTest, LargeBody) {
  Camera_.Faults().Set("oversized=10");
  std::int32_t last = 0;
  bool grows = true;
  Client_->Progress = [&](std::int32_t received, std::int32_t total, bool&) {
    grows = grows && received > last && total == 10 * 1024 * 1024;
    last = received;
  };
  Get(Camera_.URL());
  EXPECT_EQ(Body_.size(), 10U * 1024 * 1024);
  EXPECT_TRUE(grows);
  EXPECT_EQ(last, 10 * 1024 * 1024);
}

TEST_F(HTTPClientTest, ProgressTellsAnUnknownLengthAndCancels) {
  Camera_.Faults().Set("chunked");
  std::int32_t total = 0;
  Client_->Progress = [&](std::int32_t, std::int32_t announced, bool& cancel) {
    total = announced;
    cancel = true;
  };
  Get(Camera_.URL());
  EXPECT_EQ(total, -1);
  EXPECT_EQ(Error_, "13107 Download cancelled");
  // What is left of the cancelled body does not get into the next one.
  Client_->Progress = nullptr;
  Camera_.Faults().Clear();
  Get(Camera_.URL());
  EXPECT_EQ(Body_, Camera::Body);
}

TEST_F(HTTPClientTest, AnotherRequestFromProgress) {
  std::string inner;
  Client_->Progress = [&](std::int32_t, std::int32_t, bool&) {
    Client_->Progress = nullptr;
    inner = TextOf(Client_->GetResource(Camera_.URL("/inner"), "", ""));
  };
  Camera_.Faults().Set("at=outer,oversized=1");
  Get(Camera_.URL("/outer"));
  EXPECT_EQ(inner, Camera::Body);
  EXPECT_EQ(Body_.size(), 1024U * 1024);
}

TEST(HTTPClientOptions, TimeoutsAreTheSyncSessionsAndComeBackWithTheAgent) {
  using Options = std::vector<test::ForwardingInternet::OptionSet>;
  test::ForwardingInternet internet;
  HTTPClient client(internet);
  const auto first = internet.Sessions.at(0);
  EXPECT_EQ(internet.Options, (Options{{first, InternetOptionReceiveTimeout, 5000},
                                       {first, InternetOptionConnectTimeout, 10000}}));
  internet.Options.clear();
  client.Timeout(1234);
  EXPECT_EQ(internet.Options, (Options{{first, InternetOptionReceiveTimeout, 1234}}));
  internet.Options.clear();
  client.SetMaxConnections(50);  // of the process
  EXPECT_EQ(internet.Options, (Options{{0, InternetOptionMaxConnectionsPer10Server, 50},
                                       {0, InternetOptionMaxConnectionsPerServer, 50}}));
  internet.Options.clear();
  client.UserAgent("Agent");
  const auto second = internet.Sessions.at(2);
  EXPECT_EQ(internet.Options, (Options{{second, InternetOptionReceiveTimeout, 5000},
                                       {second, InternetOptionConnectTimeout, 10000}}));
}

TEST(HTTPClientOptions, FullAcceptQueueEndsWithTheConnectTimeout) {
  if (test::UnderWine()) GTEST_SKIP() << "Wine waits as long as the system does, over two minutes";
  Camera camera;
  camera.Faults().Set("full-accept-queue");
  test::ForwardingInternet internet;
  internet.ConnectTimeout = ShortTimeout;
  HTTPClient client(internet);
  EXPECT_EQ(ErrorOf([&] { client.GetResource(camera.URL(), "", ""); }), NoServer);
}

class DownloadTest : public HTTPClientTest {
 protected:
  void SetUp() override { std::filesystem::remove(File_); }
  void TearDown() override {
    std::filesystem::remove(File_);
    HTTPClientTest::TearDown();
  }
  void Write(const std::string& text) { std::ofstream(File_, std::ios::binary) << text; }
  std::string Read() {
    std::ifstream file(File_, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  std::string Download() {
    return ErrorOf([&] { Client_->DownloadResource(Camera_.URL(), File_.string(), "", ""); });
  }

  std::filesystem::path File_ = std::filesystem::temp_directory_path() /
                                (std::string("ptzd-download-") + std::to_string(Camera_.Port()) + ".bin");
};

TEST_F(DownloadTest, OutcomeOfEachFault) {
  constexpr auto truncated = "13106 Download file truncated";
  const std::string& body = Camera::Body;
  struct Row {
    const char* fault;
    std::string before, error, after;
  };
  for (const auto& [fault, before, error, after] : {
           Row{nullptr, "", "", body},
           {nullptr, "shorter", "", body},
           {nullptr, body + "tail", "", body + "tail"},  // a longer file keeps its tail
           {"short-body=1", "", truncated, body},
           {"short-body=10", std::string(5000, 'o'), "", body + std::string(3000, 'o')},
           {"stall-mid-body=1000", "", truncated, body.substr(0, 1000)},
           {"no-length", "", "", body},
           {"chunked", "", "", body},
           {"chunked-cut=1000", "", "", body.substr(0, 1000)},  // no length known, so nothing to miss
           {"empty-body", "", "", ""},
           {"silent", "old", NoServer, "old"},
       }) {
    SCOPED_TRACE(std::string(fault == nullptr ? "healthy" : fault) + " over " +
                 std::to_string(before.size()));
    std::filesystem::remove(File_);
    if (!before.empty()) Write(before);
    Client_->UserAgent("");
    if (fault != nullptr) Camera_.Faults().Set(fault);
    if (fault != nullptr && IsWaitedOut(fault)) Client_->Timeout(ShortTimeout);
    EXPECT_EQ(Download(), error);
    EXPECT_TRUE(Read() == after) << Read().size() << " bytes";
    EXPECT_FALSE(Client_->Working());
    EXPECT_EQ(SystemInternet().OpenHandles(), HandlesOfClient_);
    Camera_.Faults().Clear();
  }
}

TEST_F(DownloadTest, AnnouncedLengths) {
  Camera_.Faults().Set("close-after-reply");
  Camera_.AnswerWith("HTTP/1.1 200 OK\r\nContent-Length: 4294967298\r\n\r\nok");
  Client_->Progress = [](std::int32_t, std::int32_t total, bool&) { EXPECT_EQ(total, INT32_MAX); };
  EXPECT_EQ(Download(), "13106 Download file truncated");
  Camera_.AnswerWith(NotModified + "\r\n\r\n");
  EXPECT_EQ(Download(), "");
}

TEST_F(DownloadTest, PathThatCannotBeWrittenIsRefusedBeforeTheRequest) {
  File_ = std::filesystem::temp_directory_path() / "ptzd-no-such-folder" / "file";
  EXPECT_EQ(Download(), "75 Path/File access error: " + File_.string());
  EXPECT_EQ(Camera_.Log().ConnectionsOpened(), 0);
}

TEST_F(DownloadTest, CancelledFromProgress) {
  Client_->Progress = [](std::int32_t received, std::int32_t total, bool& cancel) {
    EXPECT_GT(received, 0);
    EXPECT_EQ(total, 2000);
    cancel = true;
  };
  EXPECT_EQ(Download(), "13107 Download cancelled");
  EXPECT_FALSE(Client_->Working());
}

}  // namespace
}  // namespace ptzd
