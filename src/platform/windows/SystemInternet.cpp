// The seam over the Windows Internet API, call for call. What stands between the two: handles have numbers of
// our own (the system gives a closed handle's value to the next one, and the status callback may still speak
// of the old one), text is converted, and what the API reports in a misleading way is put right.

#include <algorithm>
#include <array>
#include <exception>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <ptzd/Logging.h>
#include "platform/Internet.h"
#include "platform/ReplyText.h"
#include "platform/RequestText.h"
#include "platform/windows/AnsiText.h"
#include "platform/windows/SystemHeaders.h"
// Behind the header that it needs.
#include <wininet.h>

namespace ptzd {

namespace {

static_assert(InternetFlagAsync == INTERNET_FLAG_ASYNC && InternetFlagReload == INTERNET_FLAG_RELOAD &&
              InternetFlagNoCacheWrite == INTERNET_FLAG_NO_CACHE_WRITE &&
              InternetFlagNoAuth == INTERNET_FLAG_NO_AUTH);
static_assert(InternetOptionConnectTimeout == INTERNET_OPTION_CONNECT_TIMEOUT &&
              InternetOptionReceiveTimeout == INTERNET_OPTION_RECEIVE_TIMEOUT &&
              InternetOptionMaxConnectionsPerServer == INTERNET_OPTION_MAX_CONNS_PER_SERVER &&
              InternetOptionMaxConnectionsPer10Server == INTERNET_OPTION_MAX_CONNS_PER_1_0_SERVER);
static_assert(InternetStatusHandleCreated == INTERNET_STATUS_HANDLE_CREATED &&
              InternetStatusRequestComplete == INTERNET_STATUS_REQUEST_COMPLETE);
static_assert(InternetSchemeUnknown == INTERNET_SCHEME_UNKNOWN &&
              InternetSchemeHttp == INTERNET_SCHEME_HTTP && InternetSchemeHttp == INTERNET_SERVICE_HTTP &&
              SystemErrorUnrecognizedScheme == ERROR_INTERNET_UNRECOGNIZED_SCHEME &&
              SystemErrorIOPending == ERROR_IO_PENDING && SystemErrorOffline == ERROR_FILE_NOT_FOUND);
static_assert(SystemErrorTimeout == ERROR_INTERNET_TIMEOUT &&
              SystemErrorNameNotResolved == ERROR_INTERNET_NAME_NOT_RESOLVED &&
              SystemErrorCancelled == ERROR_INTERNET_OPERATION_CANCELLED &&
              SystemErrorCannotConnect == ERROR_INTERNET_CANNOT_CONNECT &&
              SystemErrorConnectionAborted == ERROR_INTERNET_CONNECTION_ABORTED &&
              SystemErrorConnectionReset == ERROR_INTERNET_CONNECTION_RESET &&
              SystemErrorInvalidResponse == ERROR_HTTP_INVALID_SERVER_RESPONSE);

// Sizes of the buffers for the parts of a URL, in characters; longer parts are refused.
constexpr std::size_t SchemeSize = 32;
constexpr std::size_t HostNameSize = 256;
constexpr std::size_t UserNameSize = 128;
constexpr std::size_t PasswordSize = 128;
constexpr std::size_t UrlPathSize = 2048;

// Asynchronous requests of one session that are written and have no reply, and how long, in milliseconds, one
// may take to be written once others were sent.
constexpr std::size_t MaxUnanswered = 4;
constexpr std::uint64_t WriteWait = 5000;

thread_local std::uint32_t LastErrorOfThread = SystemErrorNone;

/// Leaves the reason for `LastError`; true where there is none.
bool Succeeded(DWORD error) {
  LastErrorOfThread = error;
  return error == ERROR_SUCCESS;
}

/// What the API says after a call. Some failures of the socket layer below come through as they are.
struct Outcome {
  bool Success;
  DWORD Error;  ///< after a success whatever the call left there

  bool Report() const { return Succeeded(Success ? ERROR_SUCCESS : Reason()); }

  /// Of a failure, never 0.
  DWORD Reason() const {
    switch (Error) {
      case ERROR_SUCCESS:
        return ERROR_INTERNET_INTERNAL_ERROR;
      case WSAETIMEDOUT:
        return ERROR_INTERNET_TIMEOUT;
      case WSAECONNRESET:
        return ERROR_INTERNET_CONNECTION_RESET;
      default:
        return Error;
    }
  }
};

/// Makes a call that begins with no error, so that none that is left over passes for its own.
template <typename Function>
Outcome Call(Function function) {
  SetLastError(ERROR_SUCCESS);
  const bool succeeded = function();
  return {succeeded, GetLastError()};
}

/// An open handle of the API. A handle opened under another keeps that one open.
struct Node {
  enum class Kind { Session, Connection, Request };

  Node(Kind nodeKind, HINTERNET handle, std::shared_ptr<Node> parent)
      : NodeKind(nodeKind), Native(handle), Parent(std::move(parent)) {}
  ~Node() { InternetCloseHandle(Native); }
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;

  bool IsUnder(const Node* other) const {
    return this == other || (Parent != nullptr && Parent->IsUnder(other));
  }

  const Kind NodeKind;
  const HINTERNET Native;
  const std::shared_ptr<Node> Parent;
  bool IsAsync = false;                       ///< of a session
  DWORD ReceiveTimeout = 0;                   ///< of a session, in milliseconds; 0: the system's own
  std::vector<InternetHandle> Pending;        ///< of a session: asynchronous requests, the oldest first
  bool CanBeSent = true;                      ///< of a connection: its credentials hold no line break
  InternetStatusCallback Callback = nullptr;  ///< of a connection
};

/// What the status callback needs to know of an asynchronous request, from its opening until the API has done
/// with it.
struct Watch {
  InternetStatusCallback Callback;
  InternetHandle Connection;
  std::uintptr_t Context;  ///< the caller's
  // From the send until completion.
  std::shared_ptr<Node> Session{};  ///< null where it is not under way
  std::uint64_t SentAt = 0;         ///< tick count
  bool IsWritten = false;
  DWORD Error = ERROR_SUCCESS;  ///< from completion on: why the API had no reply
};

class WindowsInternet final : public Internet {
 public:
  InternetHandle OpenSession(const std::string& agent, std::uint32_t flags) override {
    if (HasLineBreakOrNul(agent)) return None(ERROR_INVALID_PARAMETER);
    HINTERNET native = nullptr;
    const auto ansiAgent = AnsiFromText(agent);
    const auto outcome = Call([&] {
      native = InternetOpenA(ansiAgent.c_str(), INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, flags);
      return native != nullptr;
    });
    const auto node = Opened(outcome, Node::Kind::Session, native, nullptr);
    if (node) node->IsAsync = (flags & InternetFlagAsync) != 0;
    return Add(NewHandle(), node);
  }

  bool SetOption(InternetHandle session, std::uint32_t option, std::uint32_t value) override {
    std::shared_ptr<Node> node;
    if (session != 0 && !(node = Find(session, Node::Kind::Session))) return false;
    const bool isSet = SetNativeOption(node ? node->Native : nullptr, option, value).Report();
    if (isSet && node && option == InternetOptionReceiveTimeout) node->ReceiveTimeout = value;
    return isSet;
  }

  bool CrackUrl(const std::string& url, UrlComponents& components) override {
    const auto ansiUrl = AnsiFromText(url);
    std::array<char, SchemeSize> scheme{};
    std::array<char, HostNameSize> hostName{};
    std::array<char, UserNameSize> userName{};
    std::array<char, PasswordSize> password{};
    std::array<char, UrlPathSize> urlPath{};
    std::vector<char> extraInfo(std::max<std::size_t>(ansiUrl.size(), 1));

    URL_COMPONENTSA parts{};
    parts.dwStructSize = sizeof parts;
    const auto lend = [](auto& buffer, LPSTR& text, DWORD& length) {
      text = buffer.data();
      length = static_cast<DWORD>(buffer.size());
    };
    lend(scheme, parts.lpszScheme, parts.dwSchemeLength);
    lend(hostName, parts.lpszHostName, parts.dwHostNameLength);
    lend(userName, parts.lpszUserName, parts.dwUserNameLength);
    lend(password, parts.lpszPassword, parts.dwPasswordLength);
    lend(urlPath, parts.lpszUrlPath, parts.dwUrlPathLength);
    lend(extraInfo, parts.lpszExtraInfo, parts.dwExtraInfoLength);
    if (!Call([&] { return InternetCrackUrlA(ansiUrl.c_str(), 0, 0, &parts); }).Report()) return false;

    const auto textOf = [](const char* text, DWORD length) { return TextFromAnsi({text, length}); };
    components.Scheme = textOf(parts.lpszScheme, parts.dwSchemeLength);
    components.SchemeNumber = parts.nScheme;
    components.HostName = textOf(parts.lpszHostName, parts.dwHostNameLength);
    components.Port = parts.nPort;
    components.UserName = textOf(parts.lpszUserName, parts.dwUserNameLength);
    components.Password = textOf(parts.lpszPassword, parts.dwPasswordLength);
    components.UrlPath = textOf(parts.lpszUrlPath, parts.dwUrlPathLength);
    components.ExtraInfo = textOf(parts.lpszExtraInfo, parts.dwExtraInfoLength);
    return true;
  }

  InternetHandle Connect(InternetHandle session, const std::string& host, std::uint16_t port,
                         const std::string& userName, const std::string& password, std::int32_t service,
                         std::uint32_t flags, std::uintptr_t) override {
    const auto parent = Find(session, Node::Kind::Session);
    if (!parent) return 0;
    // The API would speak FTP for service 1.
    if (service != InternetSchemeHttp || host.empty() || HasLineBreakOrNul(host))
      return None(ERROR_INVALID_PARAMETER);
    const auto handle = NewHandle();
    const auto ansiHost = AnsiFromText(host), ansiUser = AnsiFromText(userName),
               ansiPassword = AnsiFromText(password);
    HINTERNET native = nullptr;
    const auto outcome = Call([&] {
      native = InternetConnectA(parent->Native, ansiHost.c_str(), port, ansiUser.c_str(),
                                ansiPassword.c_str(), static_cast<DWORD>(service), flags, handle);
      return native != nullptr;
    });
    const auto node = Opened(outcome, Node::Kind::Connection, native, parent);
    if (node) node->CanBeSent = !HasLineBreakOrNul(userName) && !HasLineBreakOrNul(password);
    return Add(handle, node);
  }

  void SetStatusCallback(InternetHandle connection, InternetStatusCallback callback) override {
    const auto node = Find(connection, Node::Kind::Connection);
    if (!node) return;
    if (callback != nullptr) StayLoaded();
    node->Callback = callback;
    Call([&] {
      return InternetSetStatusCallbackA(node->Native, callback != nullptr ? OnStatus : nullptr) !=
             INTERNET_INVALID_STATUS_CALLBACK;
    }).Report();
  }

  InternetHandle OpenRequest(InternetHandle connection, const std::string& verb, const std::string& object,
                             std::uint32_t flags, std::uintptr_t context) override {
    const auto parent = Find(connection, Node::Kind::Connection);
    if (!parent) return 0;
    if (!parent->CanBeSent || HasLineBreakOrNul(verb) || HasLineBreakOrNul(object))
      return None(ERROR_INVALID_PARAMETER);
    // Not every system hands a session's receive time-out down to its requests.
    if (const auto timeout = parent->Parent->ReceiveTimeout; timeout != 0)
      SetNativeOption(parent->Native, InternetOptionReceiveTimeout, timeout);

    // The API calls back with the context that it was given, which is the handle here, and never with 0.
    const auto handle = NewHandle();
    if (parent->Callback != nullptr && context != 0) {
      const std::lock_guard lock(Mutex_);
      Watches_[handle] = {parent->Callback, connection, context};
    }
    const auto ansiVerb = AnsiFromText(verb), ansiObject = AnsiFromText(object);
    HINTERNET native = nullptr;
    const auto outcome = Call([&] {
      native = HttpOpenRequestA(parent->Native, ansiVerb.c_str(), ansiObject.c_str(), "HTTP/1.1", nullptr,
                                nullptr, flags, handle);
      return native != nullptr;
    });
    if (!outcome.Success) {
      const std::lock_guard lock(Mutex_);
      Watches_.erase(handle);
    }
    return Add(handle, Opened(outcome, Node::Kind::Request, native, parent));
  }

  bool SendRequest(InternetHandle request, const std::string& headers,
                   std::span<const std::uint8_t> body) override {
    const auto node = Find(request, Node::Kind::Request);
    if (!node) return false;
    if (!AreHeaderLines(headers)) return Succeeded(ERROR_INVALID_PARAMETER);
    const bool isAsync = node->Parent->Parent->IsAsync;
    const auto ansiHeaders = AnsiFromText(headers);
    auto* bytes = body.empty() ? nullptr : const_cast<std::uint8_t*>(body.data());  // it is only read
    if (isAsync) {
      SetPending(request, node->Parent->Parent);
      GiveUpOldest(*node->Parent->Parent);
    }
    const auto outcome = Call([&] {
      return HttpSendRequestA(node->Native, ansiHeaders.empty() ? nullptr : ansiHeaders.c_str(),
                              static_cast<DWORD>(ansiHeaders.size()), bytes, static_cast<DWORD>(body.size()));
    });
    if (isAsync) {
      // No callback follows a failure, and none is sure to follow a success.
      if (outcome.Success)
        Complete(request, ERROR_SUCCESS);
      else if (outcome.Error != ERROR_IO_PENDING)
        TakePending(request);
    } else if (outcome.Success && !HasReply(node->Native)) {
      return Succeeded(ERROR_HTTP_INVALID_SERVER_RESPONSE);
    }
    return outcome.Report();
  }

  std::optional<std::uint64_t> QueryContentLength(InternetHandle request) override {
    const auto node = Find(request, Node::Kind::Request);
    if (!node) return std::nullopt;
    std::string value;
    if (QueryLine(node->Native, HTTP_QUERY_TRANSFER_ENCODING, value).Success && IsChunked(value)) {
      Succeeded(ERROR_HTTP_HEADER_NOT_FOUND);
      return std::nullopt;
    }
    // As text, since a number would be of 32 bits.
    if (!QueryLine(node->Native, HTTP_QUERY_CONTENT_LENGTH, value).Report()) return std::nullopt;
    return LengthFromText(value);
  }

  std::uint32_t QueryOutcome(InternetHandle request) override {
    DWORD error = ERROR_INTERNET_OPERATION_CANCELLED;  // who closes it gives it up
    {
      const std::lock_guard lock(Mutex_);
      const auto watch = Watches_.find(request);
      if (watch != Watches_.end()) error = watch->second.Error;
    }
    const auto node = error == ERROR_SUCCESS ? Find(request, Node::Kind::Request) : nullptr;
    return node && !HasStatus(node->Native) ? ERROR_HTTP_INVALID_SERVER_RESPONSE : error;
  }

  bool QueryRawHeaders(InternetHandle request, std::span<char> buffer, std::uint32_t& length) override {
    const auto node = Find(request, Node::Kind::Request);
    if (!node) return false;
    auto size = static_cast<DWORD>(buffer.size());
    const auto outcome = Call([&] {
      return HttpQueryInfoA(node->Native, HTTP_QUERY_RAW_HEADERS_CRLF, buffer.data(), &size, nullptr);
    });
    length = size;
    return outcome.Report();
  }

  bool QueryDataAvailable(InternetHandle request, std::uint32_t& available) override {
    available = 0;
    const auto node = Find(request, Node::Kind::Request);
    if (!node) return false;
    DWORD count = 0;
    const auto outcome = Call([&] { return InternetQueryDataAvailable(node->Native, &count, 0, 0); });
    if (!outcome.Report()) return false;
    available = count;
    ReportLeftOver(outcome);
    return true;
  }

  bool Read(InternetHandle request, std::span<std::uint8_t> buffer, std::uint32_t& length) override {
    length = 0;
    const auto node = Find(request, Node::Kind::Request);
    if (!node) return false;
    INTERNET_BUFFERSA descriptor{};
    descriptor.dwStructSize = sizeof descriptor;
    descriptor.lpvBuffer = buffer.data();
    descriptor.dwBufferLength = static_cast<DWORD>(buffer.size());
    const auto outcome = Call([&] { return InternetReadFileExA(node->Native, &descriptor, IRF_ASYNC, 0); });
    if (!outcome.Report()) return false;
    length = descriptor.dwBufferLength;
    ReportLeftOver(outcome);
    return true;
  }

  bool GetLastResponseInfo(std::span<char> buffer, std::uint32_t& length) override {
    std::vector<char> ansi(buffer.size());
    DWORD code = 0;
    auto ansiLength = static_cast<DWORD>(ansi.size());
    const auto outcome = Call([&] { return InternetGetLastResponseInfoA(&code, ansi.data(), &ansiLength); });
    length = ansiLength;
    return outcome.Report() && Store(TextFromAnsi({ansi.data(), ansiLength}), buffer, length);
  }

  /// Asynchronous requests under way outlive their session: what a driver sent last, a stop perhaps, still
  /// reaches the camera.
  bool CloseHandle(InternetHandle handle) override {
    std::vector<std::shared_ptr<Node>> closed;  // the API is called after the lock is released
    {
      const std::lock_guard lock(Mutex_);
      const auto entry = Nodes_.find(handle);
      if (entry == Nodes_.end()) return Succeeded(ERROR_INVALID_HANDLE);
      const auto node = entry->second;
      closed.push_back(node);
      Nodes_.erase(entry);
      if (node->NodeKind != Node::Kind::Request) CloseUnder(node.get(), closed);
    }
    closed.clear();
    return Succeeded(ERROR_SUCCESS);
  }

  std::uint32_t LastError() override { return LastErrorOfThread; }

  std::size_t OpenHandles() override {
    const std::lock_guard lock(Mutex_);
    return Nodes_.size();
  }

 private:
  static InternetHandle None(DWORD error) {
    Succeeded(error);
    return 0;
  }

  static Outcome SetNativeOption(HINTERNET native, DWORD option, DWORD value) {
    return Call([&] { return InternetSetOptionA(native, option, &value, sizeof value); });
  }

  static Outcome QueryNumber(HINTERNET native, DWORD item, DWORD& value) {
    DWORD size = sizeof value;
    return Call(
        [&] { return HttpQueryInfoA(native, item | HTTP_QUERY_FLAG_NUMBER, &value, &size, nullptr); });
  }

  /// A line of the reply's header, of no more characters than any of use has.
  static Outcome QueryLine(HINTERNET native, DWORD item, std::string& value) {
    value.resize(256);
    auto size = static_cast<DWORD>(value.size());
    const auto outcome = Call([&] { return HttpQueryInfoA(native, item, value.data(), &size, nullptr); });
    value.resize(outcome.Success ? size : 0);
    return outcome;
  }

  static bool HasStatus(HINTERNET native) {
    DWORD status = 0;
    return QueryNumber(native, HTTP_QUERY_STATUS_CODE, status).Success && status != 0;
  }

  /// A server that closes without an answer may show as a success without status and body.
  static bool HasReply(HINTERNET native) {
    DWORD available = 0;
    if (HasStatus(native)) return true;
    return InternetQueryDataAvailable(native, &available, 0, 0) && available != 0;
  }

  /// An error that a successful call leaves behind goes on to the caller, who takes it for a broken transfer.
  /// "Would block" is not one: the socket layer leaves it behind while more of a chunked body is on its way.
  static void ReportLeftOver(const Outcome& outcome) {
    if (outcome.Error != WSAEWOULDBLOCK) Succeeded(outcome.Error);
  }

  static bool Store(const std::string& text, std::span<char> buffer, std::uint32_t& length) {
    length = static_cast<std::uint32_t>(text.size());
    if (text.size() >= buffer.size()) return Succeeded(ERROR_INSUFFICIENT_BUFFER);
    *std::ranges::copy(text, buffer.begin()).out = '\0';
    return true;
  }

  /// The API's threads run through this module once more after the last callback that anyone counts, so it
  /// must not leave the process from then on.
  static void StayLoaded() {
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                       reinterpret_cast<LPCWSTR>(&OnStatus), &module);
  }

  static std::shared_ptr<Node> Opened(const Outcome& outcome, Node::Kind kind, HINTERNET native,
                                      std::shared_ptr<Node> parent) {
    if (!outcome.Report()) return nullptr;
    return std::make_shared<Node>(kind, native, std::move(parent));
  }

  InternetHandle NewHandle() {
    const std::lock_guard lock(Mutex_);
    return ++LastHandle_;
  }

  InternetHandle Add(InternetHandle handle, std::shared_ptr<Node> node) {
    if (!node) return 0;
    const std::lock_guard lock(Mutex_);
    Nodes_.emplace(handle, std::move(node));
    return handle;
  }

  /// Null, with the reason left, for a handle that is not open or stands for something else.
  std::shared_ptr<Node> Find(InternetHandle handle, Node::Kind kind) const {
    const std::lock_guard lock(Mutex_);
    const auto entry = Nodes_.find(handle);
    if (entry != Nodes_.end() && entry->second->NodeKind == kind) return entry->second;
    Succeeded(entry == Nodes_.end() ? ERROR_INVALID_HANDLE : ERROR_INTERNET_INCORRECT_HANDLE_TYPE);
    return nullptr;
  }

  bool IsPending(InternetHandle request) const {
    const auto watch = Watches_.find(request);
    return watch != Watches_.end() && watch->second.Session != nullptr;
  }

  void CloseUnder(const Node* above, std::vector<std::shared_ptr<Node>>& closed) {
    std::set<const Node*> kept;
    for (const auto& [handle, node] : Nodes_)
      if (IsPending(handle)) kept.insert({node.get(), node->Parent.get()});
    std::erase_if(Nodes_, [&](const auto& entry) {
      const auto& node = entry.second;
      if (kept.contains(node.get()) || !node->IsUnder(above)) return false;
      closed.push_back(node);
      return true;
    });
  }

  void SetPending(InternetHandle request, const std::shared_ptr<Node>& session) {
    const std::lock_guard lock(Mutex_);
    const auto watch = Watches_.find(request);
    if (watch == Watches_.end()) return;
    watch->second.Session = session;
    watch->second.SentAt = GetTickCount64();
    session->Pending.push_back(request);
  }

  void SetWritten(InternetHandle request) {
    std::shared_ptr<Node> session;
    {
      const std::lock_guard lock(Mutex_);
      const auto watch = Watches_.find(request);
      if (watch == Watches_.end() || watch->second.Session == nullptr) return;
      watch->second.IsWritten = true;
      session = watch->second.Session;
    }
    GiveUpOldest(*session);
  }

  /// True for the one that finds the request still pending.
  bool TakePending(InternetHandle request, DWORD error = ERROR_SUCCESS) {
    std::shared_ptr<Node> session;  // the API is called after the lock is released
    const std::lock_guard lock(Mutex_);
    const auto watch = Watches_.find(request);
    if (watch == Watches_.end() || watch->second.Session == nullptr) return false;
    session = std::move(watch->second.Session);
    watch->second.Error = error;
    std::erase(session->Pending, request);
    return true;
  }

  /// Gives up the oldest that a camera does not answer, since they would use up connections, and what could
  /// not be written in time, since it would be replayed when the camera comes back.
  void GiveUpOldest(const Node& session) {
    std::vector<InternetHandle> given;
    {
      const std::lock_guard lock(Mutex_);
      const auto now = GetTickCount64();
      const auto isWritten = [&](InternetHandle request) { return Watches_.at(request).IsWritten; };
      auto written = static_cast<std::size_t>(std::ranges::count_if(session.Pending, isWritten));
      for (const auto request : session.Pending) {
        if (isWritten(request)) {
          if (written <= MaxUnanswered) continue;
          --written;
        } else if (request == session.Pending.back() || now - Watches_.at(request).SentAt < WriteWait) {
          continue;
        }
        given.push_back(request);
      }
    }
    for (const auto request : given) Complete(request, ERROR_INTERNET_OPERATION_CANCELLED);
  }

  void Notify(InternetHandle request, std::uint32_t status) {
    Watch watch{};
    {
      const std::lock_guard lock(Mutex_);
      const auto entry = Watches_.find(request);
      if (entry == Watches_.end()) return;
      watch = entry->second;
    }
    const bool isOfConnection = status == InternetStatusHandleCreated;
    watch.Callback(*this, isOfConnection ? watch.Connection : request, watch.Context, status);
  }

  /// Every request that was sent is complete once, whatever the API reports.
  void Complete(InternetHandle request, DWORD error) {
    if (TakePending(request, error)) Notify(request, InternetStatusRequestComplete);
  }

  void HandleStatus(InternetHandle request, DWORD status, const void* information) {
    switch (status) {
      case INTERNET_STATUS_REQUEST_COMPLETE: {
        const auto* result = static_cast<const INTERNET_ASYNC_RESULT*>(information);
        const bool failed = result != nullptr && result->dwResult == 0;
        if (failed)
          LogMessage("Asynchronous request failed, error " + std::to_string(result->dwError),
                     LogLevel::Error);
        Complete(request, failed ? Outcome{false, result->dwError}.Reason() : ERROR_SUCCESS);
        break;
      }
      case INTERNET_STATUS_REQUEST_SENT:
        SetWritten(request);
        Notify(request, status);
        break;
      case INTERNET_STATUS_HANDLE_CLOSING: {
        Complete(request, ERROR_INTERNET_OPERATION_CANCELLED);
        Notify(request, status);
        const std::lock_guard lock(Mutex_);
        Watches_.erase(request);
        break;
      }
      default:
        Notify(request, status);
    }
  }

  /// Runs on the API's threads, and on the caller's for what happens within a call.
  static void CALLBACK OnStatus(HINTERNET, DWORD_PTR context, DWORD status, LPVOID information, DWORD) {
    try {
      static_cast<WindowsInternet&>(SystemInternet()).HandleStatus(context, status, information);
    } catch (const std::exception& error) {
      // The API's own code is above; nothing may be thrown through it.
      OutputDebugStringA(error.what());
    }
  }

  mutable std::mutex Mutex_;
  std::unordered_map<InternetHandle, std::shared_ptr<Node>> Nodes_;
  std::unordered_map<InternetHandle, Watch> Watches_;
  InternetHandle LastHandle_ = 0;
};

}  // namespace

Internet& SystemInternet() {
  // Never destroyed: a request may complete while the process ends.
  static Internet& internet = *new WindowsInternet;
  return internet;
}

}  // namespace ptzd
