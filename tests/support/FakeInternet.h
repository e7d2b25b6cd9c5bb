#pragma once

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/Internet.h"

namespace ptzd::test {

/// A request as it would go out.
struct SentRequest {
  std::string Verb, Host, Object, Headers, Body;
  std::uint16_t Port = 0;
};

/// What the other side does with a request.
struct FakeReply {
  std::string Body;
  std::string StatusLine = "HTTP/1.1 200 OK";
  bool Answers = true;
};

/// Stands in for the system's HTTP layer: notes every request and answers it at once from what the test
/// prepared. Completes asynchronous requests inside `SendRequest`.
class FakeInternet : public Internet {
 public:
  std::vector<SentRequest> Sent;
  std::map<std::uint32_t, std::uint32_t> OptionsSet;
  std::uint32_t SendError = 12029;
  /// Answers every request; by default with the queued replies, then with an empty 200.
  std::function<FakeReply(const SentRequest&)> Answer = [this](const SentRequest&) {
    if (Replies.empty()) return FakeReply{};
    auto reply = Replies.front();
    Replies.pop_front();
    return reply;
  };
  std::deque<FakeReply> Replies;

  /// The objects of all requests since the last call, one a line; a body follows its object after a blank.
  std::string TakeSent() {
    std::string lines;
    for (const auto& request : Sent)
      lines += request.Object + (request.Body.empty() ? "" : " " + request.Body) + "\n";
    Sent.clear();
    if (!lines.empty()) lines.pop_back();
    return lines;
  }

  InternetHandle OpenSession(const std::string&, std::uint32_t) override { return Add({}); }
  bool SetOption(InternetHandle, std::uint32_t option, std::uint32_t value) override {
    OptionsSet[option] = value;
    return true;
  }
  bool CrackUrl(const std::string& url, UrlComponents& components) override {
    return SystemInternet().CrackUrl(url, components);
  }
  InternetHandle Connect(InternetHandle, const std::string& host, std::uint16_t port, const std::string&,
                         const std::string&, std::int32_t service, std::uint32_t,
                         std::uintptr_t context) override {
    if (host.empty() || service != InternetSchemeHttp) return 0;
    return Add({.Request = {.Host = host, .Port = port}, .Context = context});
  }
  void SetStatusCallback(InternetHandle connection, InternetStatusCallback callback) override {
    Nodes_.at(connection).Callback = callback;
  }
  InternetHandle OpenRequest(InternetHandle connection, const std::string& verb, const std::string& object,
                             std::uint32_t, std::uintptr_t context) override {
    auto node = Nodes_.at(connection);
    node.Request.Verb = verb;
    node.Request.Object = object;
    if (node.Callback) node.Callback(*this, connection, context, InternetStatusHandleCreated);
    return Add(std::move(node));
  }
  bool SendRequest(InternetHandle request, const std::string& headers,
                   std::span<const std::uint8_t> body) override {
    auto& node = Nodes_.at(request);
    node.Request.Headers = headers;
    node.Request.Body.assign(body.begin(), body.end());
    Sent.push_back(node.Request);
    node.Reply = Answer(node.Request);
    if (node.Callback) {
      node.Callback(*this, request, node.Context, InternetStatusRequestComplete);
      Error_ = SystemErrorIOPending;
      return false;
    }
    Error_ = node.Reply.Answers ? 0 : SendError;
    return node.Reply.Answers;
  }
  std::optional<std::uint64_t> QueryContentLength(InternetHandle request) override {
    return static_cast<std::uint64_t>(Nodes_.at(request).Reply.Body.size());
  }
  std::uint32_t QueryOutcome(InternetHandle request) override {
    return Nodes_.at(request).Reply.Answers ? 0 : SendError;
  }
  bool QueryRawHeaders(InternetHandle request, std::span<char> buffer, std::uint32_t& length) override {
    const auto block = Nodes_.at(request).Reply.StatusLine + "\r\nServer: fake\r\n\r\n";
    length = static_cast<std::uint32_t>(block.size());
    if (block.size() >= buffer.size()) return false;
    block.copy(buffer.data(), block.size());
    return true;
  }
  bool QueryDataAvailable(InternetHandle request, std::uint32_t& available) override {
    available = static_cast<std::uint32_t>(Nodes_.at(request).Reply.Body.size());
    Error_ = 0;
    return true;
  }
  bool Read(InternetHandle request, std::span<std::uint8_t> buffer, std::uint32_t& length) override {
    auto& body = Nodes_.at(request).Reply.Body;
    length = static_cast<std::uint32_t>(std::min(buffer.size(), body.size()));
    std::copy_n(body.begin(), length, buffer.begin());
    body.erase(0, length);
    return true;
  }
  bool GetLastResponseInfo(std::span<char>, std::uint32_t& length) override {
    length = 0;
    return true;
  }
  bool CloseHandle(InternetHandle handle) override { return Nodes_.erase(handle) != 0; }
  std::uint32_t LastError() override { return Error_; }
  std::size_t OpenHandles() override { return Nodes_.size(); }

 private:
  struct Node {
    SentRequest Request;
    FakeReply Reply;
    InternetStatusCallback Callback = nullptr;
    std::uintptr_t Context = 0;
  };

  InternetHandle Add(Node node) {
    Nodes_.emplace(++LastHandle_, std::move(node));
    return LastHandle_;
  }

  std::map<InternetHandle, Node> Nodes_;
  InternetHandle LastHandle_ = 0;
  std::uint32_t Error_ = 0;
};

}  // namespace ptzd::test
