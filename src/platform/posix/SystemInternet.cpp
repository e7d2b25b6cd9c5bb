// The verbs of the Windows Internet API over libcurl: what a handle stands for, and what each verb does with
// it. The work behind them is done in `Transfer` (one exchange), `Loop` (waiting for the network),
// `AsyncWorker` (requests whose reply nobody waits for).

#include <algorithm>
#include <atomic>
#include <exception>
#include <limits>
#include <memory>
#include <string>
#include <utility>

#include <ptzd/Logging.h>
#include "platform/CodePages.h"
#include "platform/Internet.h"
#include "platform/RequestText.h"
#include "platform/posix/SystemInternetErrors.h"
#include "platform/posix/SystemInternetHandles.h"
#include "platform/posix/SystemInternetLoop.h"
#include "platform/posix/SystemInternetTransfer.h"
#include "platform/posix/SystemInternetUrl.h"
#include "platform/posix/SystemInternetWorker.h"

namespace ptzd {

namespace internet {

namespace {

constexpr Timeouts DefaultTimeouts = {60000, 30000};

thread_local std::uint32_t LastErrorOfThread = SystemErrorNone;

/// Leaves the reason for `LastError`; true where there is none.
bool Succeeded(std::uint32_t error) {
  LastErrorOfThread = error;
  return error == SystemErrorNone;
}

/// Text as it leaves for a camera.
std::string AnsiText(std::string text) {
  const auto isAscii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
  if (std::ranges::all_of(text, isAscii)) return text;
  const auto bytes = TextToCodePage(text, AnsiCodePage());
  return {bytes.begin(), bytes.end()};
}

/// False for what would end the host within a URL, or is none.
bool IsHost(std::string_view host) {
  return std::ranges::none_of(host, [](char c) {
    return static_cast<unsigned char>(c) <= ' ' || c == 0x7F ||
           std::string_view("/?#@\\%").find(c) != std::string_view::npos;
  });
}

/// A session. It holds nothing of libcurl until its first request.
class Session final : public Node {
 public:
  static constexpr Kind NodeKindOf = Kind::Session;

  Session(std::string agent, bool async) : Agent_(std::move(agent)), IsAsync_(async) {}
  Kind NodeKind() const override { return NodeKindOf; }
  void Closed() override {
    if (AsyncSide_) AsyncWorker::Instance().Close(std::move(AsyncSide_));
  }

  const std::string& Agent() const { return Agent_; }
  bool IsAsync() const { return IsAsync_; }
  Timeouts& Limits() { return Timeouts_; }

  const std::shared_ptr<Channel>& SyncSide() {
    if (!SyncSide_) SyncSide_ = std::make_shared<Channel>(Agent_);
    return SyncSide_;
  }
  const std::shared_ptr<AsyncSession>& AsyncSide() {
    if (!AsyncSide_) AsyncSide_ = std::make_shared<AsyncSession>(Agent_);
    return AsyncSide_;
  }

 private:
  std::string Agent_;
  bool IsAsync_;
  Timeouts Timeouts_ = DefaultTimeouts;
  std::shared_ptr<Channel> SyncSide_;
  std::shared_ptr<AsyncSession> AsyncSide_;
};

/// A server that requests can be opened to; nothing is on the wire yet.
class Connection final : public Node {
 public:
  static constexpr Kind NodeKindOf = Kind::Connection;

  Connection(std::shared_ptr<Session> session, Origin origin, std::uintptr_t context)
      : Parent(std::move(session)), Target(std::move(origin)), Context(context) {}
  Kind NodeKind() const override { return NodeKindOf; }
  /// From the first send on it is closed by the callback.
  bool OutlivesParent() const override { return HasSent; }

  const std::shared_ptr<Session> Parent;
  const Origin Target;
  const std::uintptr_t Context;
  InternetStatusCallback Callback = nullptr;
  std::atomic<bool> HasSent = false;  ///< asynchronously
};

/// A request and, once it is sent, its reply.
class Request final : public Node {
 public:
  static constexpr Kind NodeKindOf = Kind::Request;

  Request(std::shared_ptr<Connection> connection, Message message, std::uint32_t flags,
          std::uintptr_t context)
      : Parent_(std::move(connection)),
        Message_(std::move(message)),
        Flags_(flags),
        Context_(context),
        Timeouts_(Parent_->Parent->Limits()) {}
  ~Request() override {
    if (Async_ && !Async_->Complete) AsyncWorker::Instance().Abandon(Async_);
    Release();
  }
  Kind NodeKind() const override { return NodeKindOf; }
  /// The worker still has it; the callback closes it.
  bool OutlivesParent() const override { return Async_ != nullptr; }

  std::uint32_t Send(Internet& internet, InternetHandle own, std::string headers,
                     std::span<const std::uint8_t> body) {
    if (Transfer_ || Async_) return ErrorIncorrectHandleState;
    if (!IsHost(Parent_->Target.Host)) return ErrorNameNotResolved;
    Message_.Headers = std::move(headers);
    Message_.Body = body;
    return Parent_->Parent->IsAsync() ? SendAsync(internet, own) : SendAndWait();
  }

  /// Null before the reply is there, and for an asynchronous request.
  const Transfer* Reply() const { return Transfer_.get(); }
  /// The same of an asynchronous one, within its callback.
  const Transfer* ReplyNobodyReads() const { return Outcome() == 0 ? Async_->Transfer.get() : nullptr; }
  std::uint32_t Outcome() const {
    return Async_ && Async_->Complete ? Async_->Error : ErrorIncorrectHandleState;
  }

  std::uint32_t WaitForBody(std::uint32_t& available) {
    Loop_->Drive(*Transfer_, &Transfer::HasBody);
    available = static_cast<std::uint32_t>(
        std::min<std::size_t>(Transfer_->Available(), std::numeric_limits<std::uint32_t>::max()));
    return available > 0 ? SystemErrorNone : Transfer_->BodyError();
  }

  std::uint32_t Read(std::span<std::uint8_t> buffer, std::uint32_t& length) {
    std::uint32_t available = 0;
    if (const auto error = WaitForBody(available); error != SystemErrorNone) return error;
    length = static_cast<std::uint32_t>(Transfer_->Read(buffer));
    return SystemErrorNone;
  }

 private:
  Origin OriginOfRequest() const {
    Origin origin = Parent_->Target;
    if ((Flags_ & InternetFlagNoAuth) != 0) {
      origin.Authenticates = false;
      origin.UserName.clear();
      origin.Password.clear();
    }
    return origin;
  }

  std::uint32_t SendAndWait() {
    Channel_ = Parent_->Parent->SyncSide();
    Loop_ = Loop::OfThisThread();
    Transfer_ = Channel_->Take(OriginOfRequest());
    auto error = Transfer_->Prepare(Message_, Timeouts_, true);
    if (error == SystemErrorNone) error = Exchange();
    if (error != SystemErrorNone) Release();
    return error;
  }

  std::uint32_t Exchange() {
    while (true) {
      if (!Loop_->Add(*Transfer_)) return ErrorInternal;
      Loop_->Drive(*Transfer_, &Transfer::HasHeaders);
      if (!Transfer_->NeedsRetry()) return Transfer_->ReplyError();
      Loop_->Remove(*Transfer_);
      Transfer_->PrepareRetry(Message_);
    }
  }

  std::uint32_t SendAsync(Internet& internet, InternetHandle own) {
    auto* worker = StartedWorker();  // first, so that nothing else needs it where there is none
    if (worker == nullptr) return ErrorOutOfMemory;
    Async_ = std::make_shared<AsyncRequest>();
    Async_->Session = Parent_->Parent->AsyncSide();
    Async_->Origin = OriginOfRequest();
    Async_->Message = Message_;
    Async_->Timeouts = Timeouts_;
    Async_->Completed = [&internet, own, context = Context_, callback = Parent_->Callback] {
      if (callback != nullptr && context != 0)
        callback(internet, own, context, InternetStatusRequestComplete);
    };
    Parent_->HasSent = true;
    return worker->Send(Async_) ? SystemErrorIOPending : ErrorShutdown;
  }

  static AsyncWorker* StartedWorker() {
    try {
      return &AsyncWorker::Instance();
    } catch (const std::exception& error) {
      LogMessage(std::string("Asynchronous requests cannot be sent: ") + error.what(), LogLevel::Error);
      return nullptr;
    }
  }

  void Release() {
    if (!Transfer_) return;
    Loop_->Remove(*Transfer_);
    Channel_->GiveBack(std::move(Transfer_));
  }

  const std::shared_ptr<Connection> Parent_;
  Message Message_;
  const std::uint32_t Flags_;
  const std::uintptr_t Context_;
  const Timeouts Timeouts_;

  std::shared_ptr<Channel> Channel_;
  std::shared_ptr<Loop> Loop_;
  std::unique_ptr<Transfer> Transfer_;
  std::shared_ptr<AsyncRequest> Async_;
};

class CurlInternet final : public Internet {
 public:
  InternetHandle OpenSession(const std::string& agent, std::uint32_t flags) override {
    return Opened(Handles_.Add(std::make_shared<Session>(AnsiText(agent), (flags & InternetFlagAsync) != 0)));
  }

  bool SetOption(InternetHandle session, std::uint32_t option, std::uint32_t value) override {
    if (session == 0) return Succeeded(SetProcessOption(option, value));
    const auto node = Handles_.Find<Session>(session);
    if (!node) return Succeeded(HandleError(session));
    switch (option) {
      case InternetOptionConnectTimeout:
        node->Limits().Connect = value;
        break;
      case InternetOptionReceiveTimeout:
        node->Limits().Receive = value;
        break;
      default:
        return Succeeded(ErrorInvalidOption);
    }
    return Succeeded(SystemErrorNone);
  }

  bool CrackUrl(const std::string& url, UrlComponents& components) override {
    return Succeeded(internet::CrackUrl(url, components));
  }

  InternetHandle Connect(InternetHandle session, const std::string& host, std::uint16_t port,
                         const std::string& userName, const std::string& password, std::int32_t service,
                         std::uint32_t flags, std::uintptr_t context) override {
    const auto node = Handles_.Find<Session>(session);
    if (!node) return None(HandleError(session));
    if (service != InternetSchemeHttp || host.empty()) return None(ErrorInvalidParameter);
    Origin origin{AnsiText(host), port, AnsiText(userName), AnsiText(password), false};
    if (host.find(':') != std::string::npos && !host.starts_with('[')) origin.Host = "[" + host + "]";
    origin.Authenticates =
        (flags & InternetFlagNoAuth) == 0 && !(origin.UserName.empty() && origin.Password.empty());
    return Opened(Handles_.Add(std::make_shared<Connection>(node, std::move(origin), context), session));
  }

  void SetStatusCallback(InternetHandle connection, InternetStatusCallback callback) override {
    const auto node = Handles_.Find<Connection>(connection);
    if (node) node->Callback = callback;
    Succeeded(node ? SystemErrorNone : HandleError(connection));
  }

  InternetHandle OpenRequest(InternetHandle connection, const std::string& verb, const std::string& object,
                             std::uint32_t flags, std::uintptr_t context) override {
    const auto node = Handles_.Find<Connection>(connection);
    if (!node) return None(HandleError(connection));
    const auto& target = node->Target;
    for (const auto* text :
         {&node->Parent->Agent(), &target.Host, &target.UserName, &target.Password, &object})
      if (HasLineBreakOrNul(*text)) return None(ErrorInvalidParameter);
    if (verb != "GET" && verb != "POST") return None(ErrorInvalidParameter);
    Message message;
    message.Posts = verb == "POST";
    message.FollowsRedirects = (flags & InternetFlagNoRedirect) == 0;
    message.Object = RequestTarget(object);
    const auto handle =
        Handles_.Add(std::make_shared<Request>(node, std::move(message), flags, context), connection);
    if (node->Parent->IsAsync() && node->Callback != nullptr && node->Context != 0)
      node->Callback(*this, connection, node->Context, InternetStatusHandleCreated);
    return Opened(handle);
  }

  bool SendRequest(InternetHandle request, const std::string& headers,
                   std::span<const std::uint8_t> body) override {
    const auto node = Handles_.Find<Request>(request);
    if (!node) return Succeeded(HandleError(request));
    if (!AreHeaderLines(headers)) return Succeeded(ErrorInvalidParameter);
    return Succeeded(node->Send(*this, request, AnsiText(headers), body));
  }

  std::optional<std::uint64_t> QueryContentLength(InternetHandle request) override {
    std::optional<std::uint64_t> length;
    const auto reply = FindReply(request);
    if (reply) length = reply->Reply()->ContentLength();
    if (reply) Succeeded(length ? SystemErrorNone : ErrorHeaderNotFound);
    return length;
  }

  std::uint32_t QueryOutcome(InternetHandle request) override {
    const auto node = Handles_.Find<Request>(request);
    return node ? node->Outcome() : SystemErrorCancelled;  // who closes it gives it up
  }

  bool QueryRawHeaders(InternetHandle request, std::span<char> buffer, std::uint32_t& length) override {
    const auto node = Handles_.Find<Request>(request);
    if (!node) return Succeeded(HandleError(request));
    const auto* reply = node->Reply() != nullptr ? node->Reply() : node->ReplyNobodyReads();
    if (reply == nullptr) return Succeeded(ErrorIncorrectHandleState);
    const auto& headers = reply->Headers();
    length = static_cast<std::uint32_t>(headers.size());
    if (headers.size() >= buffer.size()) return Succeeded(ErrorInsufficientBuffer);
    buffer[headers.copy(buffer.data(), headers.size())] = '\0';
    return Succeeded(SystemErrorNone);
  }

  bool QueryDataAvailable(InternetHandle request, std::uint32_t& available) override {
    available = 0;
    const auto reply = FindReply(request);
    return reply && Succeeded(reply->WaitForBody(available));
  }

  bool Read(InternetHandle request, std::span<std::uint8_t> buffer, std::uint32_t& length) override {
    length = 0;
    const auto reply = FindReply(request);
    return reply && Succeeded(reply->Read(buffer, length));
  }

  bool GetLastResponseInfo(std::span<char>, std::uint32_t& length) override {
    length = 0;  // HTTP has no response text beside the reply
    return Succeeded(SystemErrorNone);
  }

  bool CloseHandle(InternetHandle handle) override {
    return Succeeded(Handles_.Remove(handle) ? SystemErrorNone : ErrorInvalidHandle);
  }

  std::uint32_t LastError() override { return LastErrorOfThread; }
  std::size_t OpenHandles() override { return Handles_.Count(); }

 private:
  static InternetHandle None(std::uint32_t error) {
    Succeeded(error);
    return 0;
  }

  static InternetHandle Opened(InternetHandle handle) {
    Succeeded(SystemErrorNone);
    return handle;
  }

  /// Why a handle did not name what was looked for.
  std::uint32_t HandleError(InternetHandle handle) const {
    return Handles_.Contains(handle) ? ErrorIncorrectHandleType : ErrorInvalidHandle;
  }

  /// A request whose reply is there.
  std::shared_ptr<Request> FindReply(InternetHandle request) const {
    auto node = Handles_.Find<Request>(request);
    if (!node) Succeeded(HandleError(request));
    if (node && node->Reply() == nullptr) {
      Succeeded(ErrorIncorrectHandleState);
      node.reset();
    }
    return node;
  }

  static std::uint32_t SetProcessOption(std::uint32_t option, std::uint32_t value) {
    if (option != InternetOptionMaxConnectionsPerServer && option != InternetOptionMaxConnectionsPer10Server)
      return ErrorInvalidOption;
    Loop::MaxConnectionsPerServer(static_cast<long>(value));
    return SystemErrorNone;
  }

  /// Path and query as they stand, but for spaces, which would end the target.
  static std::string RequestTarget(const std::string& object) {
    auto target = AnsiText(object);
    if (!target.starts_with('/')) target.insert(0, 1, '/');
    for (auto at = target.find(' '); at != std::string::npos; at = target.find(' ', at))
      target.replace(at, 1, "%20");
    return target;
  }

  HandleTable Handles_;
};

}  // namespace

}  // namespace internet

Internet& SystemInternet() {
  // Never destroyed: drivers may be, after it, in the order of destruction.
  static Internet& internet = *new internet::CurlInternet;
  return internet;
}

}  // namespace ptzd
