// The gateway's server against clients that speak by hand, as badly as they like.

#include "gateway/web/Server.h"

#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/write.hpp>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <set>
#include <thread>

#include "gateway/web/WebSocket.h"

namespace ptzgate {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
using std::chrono::milliseconds;

/// What the gate's thread tells the test's.
class Events {
 public:
  void Tell(std::string event) {
    const std::lock_guard lock(Mutex_);
    Told_.push_back(std::move(event));
    More_.notify_all();
  }
  /// Waits for one and takes it and what came before. False if it never comes.
  bool Await(const std::string& event) {
    std::unique_lock lock(Mutex_);
    for (;;) {
      while (!Told_.empty()) {
        const auto told = std::move(Told_.front());
        Told_.pop_front();
        if (told == event) return true;
      }
      if (More_.wait_for(lock, std::chrono::seconds(30)) == std::cv_status::timeout) return false;
    }
  }

 private:
  std::mutex Mutex_;
  std::condition_variable More_;
  std::deque<std::string> Told_;
};

/// A client; over TLS when it has a context.
class Client {
 public:
  explicit Client(const tcp::endpoint& server, asio::ssl::context* tls = nullptr) : Socket_(Context_) {
    Socket_.connect(server);
    if (!tls) return;
    Secure_ = std::make_unique<asio::ssl::stream<tcp::socket&>>(Socket_, *tls);
    Secure_->handshake(asio::ssl::stream_base::client);
  }

  /// What cannot be sent any more is not missed.
  void Say(const std::string& text) {
    error_code ignored;
    Secure_ ? asio::write(*Secure_, asio::buffer(text), ignored)
            : asio::write(Socket_, asio::buffer(text), ignored);
  }
  /// All until the server closes.
  std::string Rest() {
    error_code end;
    Secure_ ? asio::read(*Secure_, asio::dynamic_buffer(Inbox_), end)
            : asio::read(Socket_, asio::dynamic_buffer(Inbox_), end);
    EXPECT_TRUE(end == asio::error::eof) << end.message();
    return std::exchange(Inbox_, {});
  }
  /// As much as ends so; shorter when the server closed.
  std::string Until(const std::string& mark) {
    error_code end;
    auto buffer = asio::dynamic_buffer(Inbox_);
    const auto size = Secure_ ? asio::read_until(*Secure_, buffer, mark, end)
                              : asio::read_until(Socket_, buffer, mark, end);
    auto text = Inbox_.substr(0, size);
    Inbox_.erase(0, size);
    return text;
  }
  std::string Bytes(std::size_t count) {
    error_code end;
    if (Inbox_.size() < count)
      asio::read(Socket_, asio::dynamic_buffer(Inbox_), asio::transfer_exactly(count - Inbox_.size()), end);
    auto text = Inbox_.substr(0, count);
    Inbox_.erase(0, text.size());
    return text;
  }
  std::string Answer(const std::string& request) {
    Say(request);
    return Rest();
  }
  void Close() { Socket_.close(); }
  void Reset() {
    Socket_.set_option(asio::socket_base::linger(true, 0));
    Socket_.close();
  }
  void SayNoMore() { Socket_.shutdown(tcp::socket::shutdown_send); }
  std::string PeerName() {
    const std::unique_ptr<X509, void (*)(X509*)> certificate(
        SSL_get1_peer_certificate(Secure_->native_handle()), X509_free);
    std::array<char, 100> name{};
    X509_NAME_get_text_by_NID(X509_get_subject_name(certificate.get()), NID_commonName, name.data(),
                              name.size());
    return name.data();
  }

 private:
  asio::io_context Context_;
  tcp::socket Socket_;
  std::unique_ptr<asio::ssl::stream<tcp::socket&>> Secure_;
  std::string Inbox_;
};

int StatusOf(const std::string& answer) { return answer.size() < 12 ? 0 : std::atoi(answer.c_str() + 9); }
std::string BodyOf(const std::string& answer) {
  const auto end = answer.find("\r\n\r\n");
  return end == answer.npos ? "" : answer.substr(end + 4);
}
std::string Get(const std::string& path, const std::string& headers = "Connection: close\r\n") {
  return "GET " + path + " HTTP/1.1\r\nHost: gate\r\n" + headers + "\r\n";
}

class WebTest : public testing::Test {
 public:
  ~WebTest() override { Stop(); }

 protected:
  void Begin(ServerSettings settings = {}) {
    settings.Log = [this](const std::string& line) { Told.Tell("log " + line); };
    Server_ =
        std::make_unique<Server>(Context_, std::move(settings), [this](const auto& call) { Handle(call); });
    Server_->WhenConnectionGone([this](std::uint64_t number) {
      const bool isHolder = !Held.empty() && Held.back()->Connection() == number;
      Told.Tell(isHolder ? "holder's connection gone" : "connection gone");
    });
    Where = {asio::ip::make_address(Server_->Endpoints()[0].Host), Server_->Endpoints()[0].Port};
    Gate_ = std::thread([this] { Context_.run(); });
  }
  /// The thread ends by itself: nothing that the server began is left.
  void Stop() {
    if (!Gate_.joinable()) return;
    OnGate([this] {
      Server_->Stop();
      Work_.reset();
    });
    Gate_.join();
    Held.clear();
  }
  template <typename Work>
  void OnGate(Work work) {
    asio::post(Context_, std::move(work));
  }
  std::string Answer(const std::string& request) { return Client(Where).Answer(request); }

  void Handle(const std::shared_ptr<Call>& call) {
    const auto& request = call->Asked();
    if (request.Path == "/hold") {
      call->WhenGone([this] { Told.Tell("gone"); });
      Held.push_back(call);
      Told.Tell("held");
    } else if (request.Path == "/throw") {
      throw std::runtime_error("thrown");
    } else if (request.Path == "/split") {
      call->Answer({.Headers = {{"Location", "a\r\nSet-Cookie: b"}}});
    } else if (request.Path == "/stream") {
      const auto stream = call->BeginStream({.Headers = {{"Content-Type", "text/plain"}}, .Body = "one,"});
      stream->WhenGone([this] { Told.Tell("stream gone"); });
      stream->Send("");
      stream->Send("two");
    } else if (request.Path == "/flood") {
      const auto stream = call->BeginStream({});
      stream->WhenGone([this, stream] { Told.Tell("stream gone"); });
      Flood(stream);
    } else if (request.Path == "/socket") {
      if (const auto socket = call->AcceptWebSocket()) Attach(socket);
    } else if (request.Path != "/forget") {
      nlohmann::json seen{
          {"method", request.Method}, {"path", request.Path},       {"segments", request.Segments()},
          {"query", request.Query},   {"body", request.Body},       {"host", request.Host},
          {"head", request.IsHead},   {"near", request.IsLoopback}, {"secure", request.IsSecure}};
      call->Answer({.Headers = {{"Content-Type", "application/json"}}, .Body = seen.dump()});
    }
  }
  void Flood(const std::shared_ptr<Stream>& stream) {
    if (!stream->Send(std::string(65536, 'x'))) return Told.Tell("dropped");
    OnGate([this, stream] { Flood(stream); });
  }
  void Attach(const std::shared_ptr<WebSocket>& socket) {
    socket->WhenGone([this] { Told.Tell("socket gone"); });
    socket->WhenMessage([this, socket](const std::string& text) {
      if (text == "close") return socket->Close(4001, "as you wish");
      if (text == "throw") throw std::runtime_error("thrown");
      if (text == "much") {
        socket->Send(std::string(8 << 20, 'x'));
        return Told.Tell(socket->Send("after") ? "sent" : "dropped");
      }
      if (text == "flood") {
        while (socket->Send(std::string(60000, 'x'))) continue;
        return Told.Tell("dropped");
      }
      socket->Send("echo " + text);
    });
  }

  Events Told;
  tcp::endpoint Where;
  std::vector<std::shared_ptr<Call>> Held;
  std::unique_ptr<Server> Server_;

 private:
  asio::io_context Context_{1};
  asio::executor_work_guard<asio::io_context::executor_type> Work_{Context_.get_executor()};
  std::thread Gate_;
};

TEST_F(WebTest, TellsAFaceWhatWasAsked) {
  Begin();
  const auto answer = Answer(
      "POST http://other:81/cameras/hall%2F1/a%20b?x=1&y=%C3%BC+z&x=2&flag HTTP/1.1\r\nHost: gate\r\n"
      "Connection: close\r\nTransfer-Encoding: chunked\r\n\r\n3;ext=1\r\nabc\r\n2\r\nde\r\n0\r\nHost: "
      "trailer\r\n\r\n");
  EXPECT_EQ(StatusOf(answer), 200);
  EXPECT_EQ(nlohmann::json::parse(BodyOf(answer)), nlohmann::json::parse(R"({
    "method": "POST", "path": "/cameras/hall/1/a b", "segments": ["cameras", "hall/1", "a b"], "body": "abcde",
    "query": [["x", "1"], ["y", "ü z"], ["x", "2"], ["flag", ""]], "host": "other:81", "head": false, "near": true,
    "secure": false})"));
  for (const auto* header :
       {"Server: ptzgate", "X-Content-Type-Options: nosniff", "Referrer-Policy: no-referrer",
        "Connection: close", "Content-Type: application/json"}) {
    EXPECT_NE(answer.find(std::string(header) + "\r\n"), answer.npos) << header;
  }
  EXPECT_EQ(answer.find("Strict-Transport"), answer.npos);
}

TEST_F(WebTest, RefusesWhatIsNotInOrder) {
  ServerSettings settings;
  settings.Limits.HeaderBytes = 1000;
  settings.Limits.BodyBytes = 100;
  Begin(settings);
  const std::string post = "POST /x HTTP/1.1\r\nHost: gate\r\n";
  std::string manyHeaders;
  for (int i = 0; i < 100; ++i) manyHeaders += "X-Header: something\r\n";
  const std::pair<std::string, int> rows[] = {
      {"\x16\x03\x01 not HTTP\r\n\r\n", 400},
      {"GET / HTTP/1.1\r\n\r\n", 400},
      {"GET / HTTP/1.1\r\nHost: a\r\nHost: b\r\n\r\n", 400},
      {"GET / HTTP/1.1\nHost: a\n\n", 400},
      {Get("/a b"), 400},
      {Get("/%zz"), 400},
      {Get("/%4"), 400},
      {Get("/?q=%"), 400},
      {Get("/a%00b"), 400},
      {Get("/?q=%c0%af"), 400},
      {Get("http://gate\"><b>/"), 400},
      {Get("/a/%2e%2e/b"), 400},
      {Get("nowhere"), 400},
      {Get("/", "Bad Header: x\r\n"), 400},
      {post + "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 400},
      {post + "Content-Length: 5\r\nContent-Length: 6\r\n\r\nabcdef", 400},
      {post + "Content-Length: -1\r\n\r\n", 400},
      {post + "Transfer-Encoding: chunked\r\n\r\nnot a size\r\n", 400},
      {post + "Transfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n", 501},
      {"POST / HTTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 400},
      {"BREW /pot HTTP/1.1\r\nHost: gate\r\n\r\n", 501},
      {"CONNECT gate:80 HTTP/1.1\r\nHost: gate\r\n\r\n", 501},
      {"GET / HTTP/3.0\r\n\r\n", 505},
      {Get("/" + std::string(2000, 'a')), 414},
      {Get("/", manyHeaders), 431},
      {Get("/", "X: " + std::string(2000, 'a') + "\r\n"), 431},
      {post + "Expect: miracles\r\nContent-Length: 5\r\n\r\n", 417},
      {post + "Expect: 100-continue\r\nContent-Length: 101\r\n\r\n", 413},
      {post + "Content-Length: 99999999999999999999999\r\n\r\n", 400},
      {post + "Transfer-Encoding: chunked\r\n\r\nffff\r\n" + std::string(300, 'x'), 413},
  };
  for (const auto& [request, status] : rows) {
    const auto answer = Answer(request);
    EXPECT_EQ(StatusOf(answer), status) << request << "\n->\n" << answer;
    EXPECT_NE(answer.find("Content-Type: application/problem+json\r\n"), answer.npos) << request;
    const auto problem = nlohmann::json::parse(BodyOf(answer), nullptr, false);
    ASSERT_TRUE(problem.is_object()) << answer;
    EXPECT_EQ(problem["status"], status);
    EXPECT_NE(problem["detail"], "");
  }
}

TEST_F(WebTest, ConnectionsAreKeptAndRequestsMayFollowAtOnce) {
  Begin();
  Client client(Where);
  client.Say("\r\n" + Get("/1", "") + "HEAD /2 HTTP/1.1\r\nHost: gate\r\n\r\n" +
             "POST /3 HTTP/1.1\r\nHost: gate\r\nContent-Length: 2\r\n\r\nhi" +
             "GET /4 HTTP/1.0\r\nConnection: keep-alive\r\n\r\n" + Get("/5"));
  client.SayNoMore();
  const auto answers = client.Rest();
  std::vector<std::string> seen;
  for (std::size_t at = 0; (at = answers.find("\"path\":\"", at)) != answers.npos; ++at)
    seen.push_back(answers.substr(at + 8, 2));
  EXPECT_EQ(seen, (std::vector<std::string>{"/1", "/3", "/4", "/5"})) << "the one of HEAD has no body\n"
                                                                      << answers;
  EXPECT_NE(answers.find("Connection: keep-alive\r\n"), answers.npos);

  Client careful(Where);
  careful.Say(
      "POST / HTTP/1.1\r\nHost: gate\r\nExpect: 100-continue\r\nConnection: close\r\nContent-Length: "
      "2\r\n\r\n");
  EXPECT_EQ(careful.Until("\r\n\r\n"), "HTTP/1.1 100 Continue\r\n\r\n");
  EXPECT_EQ(StatusOf(careful.Answer("hi")), 200);
}

TEST_F(WebTest, DoesNotWaitForTheSlow) {
  ServerSettings settings;
  settings.Limits.HeaderTimeout = settings.Limits.BodyTimeout = settings.Limits.IdleTimeout =
      milliseconds(100);
  Begin(settings);
  EXPECT_EQ(Answer(""), "");
  EXPECT_EQ(StatusOf(Answer("GET / HTT")), 408);
  EXPECT_EQ(StatusOf(Answer("POST / HTTP/1.1\r\nHost: gate\r\nContent-Length: 5\r\n\r\nabc")), 408);
  EXPECT_EQ(StatusOf(Answer(Get("/", ""))), 200) << "and closes when nothing follows";
}

TEST_F(WebTest, NoticesThatAPeerHasGoneBeforeItsAnswer) {
  Begin();
  const std::pair<const char*, void (*)(Client&)> rows[] = {
      {"FIN", [](Client& client) { client.SayNoMore(); }},
      {"RST", [](Client& client) { client.Reset(); }},
      {"more requests than are kept", [](Client& client) { client.Say(std::string(600'000, '\n')); }},
  };
  for (const auto& [name, leave] : rows) {
    Client client(Where);
    client.Say(Get("/hold", "") + Get("/next", ""));
    ASSERT_TRUE(Told.Await("held")) << name;
    leave(client);
    EXPECT_TRUE(Told.Await("gone")) << name;
    EXPECT_TRUE(Told.Await("holder's connection gone")) << name;
  }
  Client waiting(Where);
  waiting.Say(Get("/hold", "") + Get("/next"));
  ASSERT_TRUE(Told.Await("held"));
  OnGate([this] {
    for (const auto& call : Held) call->Answer({.Body = "late"});
    for (const auto& call : Held) call->Answer({.Body = "twice"});
  });
  const auto answers = waiting.Rest();
  EXPECT_LT(answers.find("late"), answers.find("/next"));
  EXPECT_EQ(answers.find("twice"), answers.npos);

  Client left(Where);
  left.Say(Get("/hold", ""));
  ASSERT_TRUE(Told.Await("held"));
  Stop();
  EXPECT_TRUE(Told.Await("gone")) << "the server stops";
}

TEST_F(WebTest, AFaceThatFailsIsAnswered500) {
  Begin();
  const std::pair<const char*, const char*> rows[] = {
      {"/throw", "log a handler failed: thrown"},
      {"/forget", "log a request was not answered: GET /forget"},
      {"/split", "log a handler gave a response that HTTP does not allow, of status 200"},
  };
  for (const auto& [path, line] : rows) {
    const auto answers = Answer(Get(path, "") + Get("/next"));
    EXPECT_EQ(StatusOf(answers), 500) << path;
    EXPECT_NE(answers.find("\"/next\""), answers.npos) << path;
    EXPECT_EQ(answers.find("Set-Cookie"), answers.npos);
    EXPECT_TRUE(Told.Await(line)) << line;
  }
}

TEST_F(WebTest, StreamsEndProperlyAndSlowReadersAreDropped) {
  Begin();
  EXPECT_EQ(BodyOf(Answer(Get("/stream"))), "4\r\none,\r\n3\r\ntwo\r\n0\r\n\r\n");
  EXPECT_EQ(BodyOf(Answer("GET /stream HTTP/1.0\r\n\r\n")), "one,two");
  EXPECT_EQ(BodyOf(Answer("HEAD /stream HTTP/1.1\r\nHost: gate\r\nConnection: close\r\n\r\n")), "");
  EXPECT_TRUE(Told.Await("stream gone")) << "of HEAD";
  Client slow(Where);
  slow.Say(Get("/flood", ""));
  EXPECT_TRUE(Told.Await("dropped"));
  EXPECT_TRUE(Told.Await("stream gone"));
}

/// A client's frame; its mask is all zeroes.
std::string Frame(char kind, const std::string& text) {
  std::string frame{static_cast<char>(0x80 | kind)};
  if (text.size() < 126) {
    frame += static_cast<char>(0x80 | text.size());
  } else {
    frame += {static_cast<char>(0xfe), static_cast<char>(text.size() >> 8), static_cast<char>(text.size())};
  }
  return frame + std::string(4, '\0') + text;
}
constexpr char Text = 1, Binary = 2, Goodbye = 8, Ping = 9, Pong = 10;
const std::string Upgrade =
    "Connection: keep-alive, Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
    "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n";

std::string ShortFrame(Client& client) {
  const auto head = client.Bytes(2);
  return head.size() < 2 ? "" : head + client.Bytes(static_cast<unsigned char>(head[1]));
}
std::string CloseFrame(unsigned code, const std::string& reason) {
  return std::string{static_cast<char>(0x80 | Goodbye), static_cast<char>(reason.size() + 2),
                     static_cast<char>(code >> 8), static_cast<char>(code)} +
         reason;
}

TEST_F(WebTest, WebSocketsCarryMessagesWithinLimits) {
  ServerSettings settings;
  settings.Limits.MessageBytes = 1000;
  settings.Limits.MessagesPerSecond = 0.001;
  settings.Limits.MessageBurst = 3;
  Begin(settings);
  const std::string echo(
      "\x81\x06"
      "echo a",
      8);
  struct Row {
    std::string Said, Heard;
    bool IsTold = true;
  } const rows[] = {
      {Frame(Text, "a") + Frame(Ping, "p") + Frame(Text, "a"), echo + "\x8a\x01p" + echo},
      {Frame(Text, "close"), CloseFrame(4001, "as you wish"), false},
      {Frame(Goodbye, std::string("\x03\xe8", 2)), CloseFrame(1000, "")},
      {Frame(Text, "throw"), CloseFrame(1011, "this should not have happened")},
      {Frame(Binary, "a"), CloseFrame(1003, "the messages here are text")},
      {Frame(Text, "\xff"), CloseFrame(1007, "")},
      {Frame(Text, std::string(1001, 'a')), CloseFrame(1009, "")},
      {Frame(Text, "a") + Frame(Text, "a") + Frame(Text, "a") + Frame(Text, "a"),
       echo + echo + echo + CloseFrame(1008, "too many messages")},
  };
  for (const auto& [said, heard, isTold] : rows) {
    Client client(Where);
    client.Say(Get("/socket", Upgrade) + said);
    const auto head = client.Until("\r\n\r\n");
    EXPECT_EQ(StatusOf(head), 101);
    EXPECT_NE(head.find("Sec-WebSocket-Accept: s3pPLMBiTxaQ9kYGzzhZRbK+xOo=\r\n"), head.npos);
    EXPECT_EQ(client.Bytes(heard.size()), heard);
    client.Close();
    EXPECT_TRUE(Told.Await(isTold ? "socket gone" : "connection gone")) << heard;
  }
  EXPECT_EQ(StatusOf(Answer(Get("/socket"))), 426);
  EXPECT_EQ(StatusOf(Answer(Get("/socket",
                                "Connection: close, upgrade\r\nUpgrade: websocket\r\n"
                                "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: short\r\n"))),
            400);
}

TEST_F(WebTest, WhatIsToldFirstMayBeLong) {
  Begin();
  Client client(Where);
  client.Say(Get("/socket", Upgrade) + Frame(Text, "much"));
  EXPECT_TRUE(Told.Await("sent"));
  EXPECT_GT(client.Until("after").size(), 8U << 20);
}

TEST_F(WebTest, AWebSocketThatIsSilentOrSlowIsDropped) {
  ServerSettings settings;
  settings.Limits.WebSocketIdle = milliseconds(200);
  Begin(settings);
  Client client(Where);
  client.Say(Get("/socket", Upgrade));
  client.Until("\r\n\r\n");
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(ShortFrame(client).substr(0, 1), "\x89") << "a ping";
    client.Say(Frame(Pong, ""));
  }
  client.Say(Frame(Text, "alive"));
  EXPECT_EQ(ShortFrame(client).substr(2), "echo alive");
  EXPECT_TRUE(Told.Await("socket gone")) << "no pong any more";

  Client slow(Where);
  slow.Say(Get("/socket", Upgrade) + Frame(Text, "flood"));
  EXPECT_TRUE(Told.Await("dropped"));
  EXPECT_TRUE(Told.Await("socket gone"));

  Client left(Where);
  left.Say(Get("/socket", Upgrade) + Frame(Text, "here"));
  left.Until("echo here");
  Stop();
  EXPECT_TRUE(Told.Await("socket gone")) << "the server stops";
}

TEST_F(WebTest, CountsRequestsAndConnectionsByAddress) {
  ServerSettings settings;
  settings.Limits.RequestsPerSecond = 0.01;
  settings.Limits.RequestBurst = 2;
  settings.Limits.ConnectionsPerAddress = 1;
  settings.IsUrgent = [](const Request& request) { return request.Path == "/stop"; };
  Begin(settings);
  Client client(Where);
  client.Say(Get("/1", "") + Get("/2", "") + Get("/3", ""));
  EXPECT_EQ(StatusOf(client.Until("}")), 200);
  EXPECT_EQ(StatusOf(client.Until("}")), 200);
  const auto refused = client.Until("}");
  EXPECT_EQ(StatusOf(refused), 429);
  EXPECT_NE(refused.find("Retry-After: 100\r\n"), refused.npos);
  EXPECT_EQ(StatusOf(Answer("")), 503) << "one more connection";
  EXPECT_EQ(StatusOf(client.Answer(Get("/stop"))), 200);
  client.Close();
  EXPECT_TRUE(Told.Await("connection gone"));
}

TEST_F(WebTest, SpeaksTLSWithACertificateThatMayChange) {
  const auto folder = std::filesystem::path(testing::TempDir()) / ("web" + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  const auto make = [&folder](const std::string& name) {
    CertificateFiles files{folder / (name + ".crt"), folder / (name + ".key")};
    const std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)> key(EVP_EC_gen("P-256"), EVP_PKEY_free);
    const std::unique_ptr<X509, void (*)(X509*)> certificate(X509_new(), X509_free);
    X509_set_version(certificate.get(), X509_VERSION_3);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600);
    X509_set_pubkey(certificate.get(), key.get());
    auto* subject = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
    X509_set_issuer_name(certificate.get(), subject);
    X509_sign(certificate.get(), key.get(), EVP_sha256());
    const auto write = [](const std::string& file, const auto& put) {
      const std::unique_ptr<FILE, int (*)(FILE*)> stream(fopen(file.c_str(), "w"), fclose);
      put(stream.get());
    };
    write(files.Chain, [&](FILE* stream) { PEM_write_X509(stream, certificate.get()); });
    write(files.Key, [&](FILE* stream) {
      PEM_write_PrivateKey(stream, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    });
    return files;
  };
  const auto first = make("first"), second = make("second");
  Begin({});
  Server_->UseCertificate(ReadCertificate(first));

  asio::ssl::context tls(asio::ssl::context::tls_client);
  {
    Client client(Where, &tls);
    EXPECT_EQ(client.PeerName(), "first");
    const auto answer = client.Answer(Get("/x") + Get("/not read"));
    EXPECT_EQ(nlohmann::json::parse(BodyOf(answer))["secure"], true);
    EXPECT_NE(answer.find("Strict-Transport-Security: max-age="), answer.npos);
  }
  Client waiting(Where, &tls);
  waiting.Say(Get("/hold", ""));
  ASSERT_TRUE(Told.Await("held"));
  waiting.Close();
  EXPECT_TRUE(Told.Await("gone"));

  OnGate([&, this] {
    try {
      Server_->UseCertificate(ReadCertificate({second.Chain, first.Key}));
    } catch (const std::runtime_error& error) {
      Told.Tell(std::string(error.what()).substr(0, first.Key.size() + 2));
    }
    Server_->UseCertificate(ReadCertificate(second));
    Told.Tell("changed");
  });
  EXPECT_TRUE(Told.Await(first.Key + ": "));
  ASSERT_TRUE(Told.Await("changed"));
  EXPECT_EQ(Client(Where, &tls).PeerName(), "second");
  SSL_CTX_set_max_proto_version(tls.native_handle(), TLS1_1_VERSION);
  SSL_CTX_set_cipher_list(tls.native_handle(), "ALL@SECLEVEL=0");
  EXPECT_THROW(Client(Where, &tls), boost::system::system_error);
  std::filesystem::remove_all(folder);
}

TEST_F(WebTest, ListensWhereItIsTold) {
  const int inherited = socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_EQ(listen(inherited, 5), 0);
  Begin({.Listen = {{.Host = "localhost"}, {.Socket = inherited}}});
  const auto endpoints = Server_->Endpoints();
  ASSERT_GE(endpoints.size(), 2u);
  const tcp::endpoint given(asio::ip::address_v4::loopback(), endpoints.back().Port);
  EXPECT_EQ(StatusOf(Client(given).Answer(Get("/"))), 200);

  asio::io_context context;
  const auto error = [&context](const ServerSettings& settings) {
    try {
      Server(context, settings, [](const auto&) {});
    } catch (const std::runtime_error& refusal) {
      return std::string(refusal.what());
    }
    return std::string("none");
  };
  EXPECT_EQ(error({.Listen = {{.Host = "127.0.0.1", .Port = given.port()}}}),
            "cannot listen on 127.0.0.1 port " + std::to_string(given.port()) + ": Address already in use");
  EXPECT_EQ(error({.Listen = {{.Socket = 9999}}}), "socket 9999 is not one of TCP that listens");
}

}  // namespace
}  // namespace ptzgate
