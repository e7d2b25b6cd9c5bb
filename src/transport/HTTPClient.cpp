#include "transport/HTTPClient.h"

#include <algorithm>
#include <array>
#include <functional>
#include <limits>
#include <utility>

#include <ptzd/Error.h>
#include <ptzd/Logging.h>
#include "common/Credentials.h"
#include "common/Numbers.h"
#include "platform/CodePages.h"
#include "platform/RequestText.h"
#include "transport/HTTP.h"
#include "transport/HTTPClientHelper.h"
#include "transport/HTTPHandles.h"
#include "transport/StringEncoding.h"

namespace ptzd {

namespace {

constexpr std::string_view DefaultAgent = "Qelto HTTP Client Object";
constexpr std::size_t HeaderBufferSize = 2048;
constexpr std::size_t LastResponseSize = 1024;

void TellFailure(const Error& error, OpenExchange* told, std::uint32_t systemError) {
  LogMessage("Request error " + Text(error.Number()) + ", " + error.Description(), LogLevel::Error);
  if (told == nullptr) return;
  told->Fail(error.Number(), error.Description() + ReasonOf(systemError));
  told->TakeFailure(FailureOf(systemError));
  told->TellEnded();
}

}  // namespace

/// Where a request goes, and with whose credentials.
struct HTTPClient::Target {
  UrlComponents Url;
  std::string UserName, Password;
  std::uint32_t AuthFlag;
  bool Clean;  ///< nothing in it could end a line of the request early

  std::string Where() const {
    return Url.HostName.empty() ? "" : Url.HostName + ":" + std::to_string(Url.Port);
  }
};

class HTTPClient::WorkingScope {
 public:
  explicit WorkingScope(std::int16_t& count) : Count_(count) {
    if (Count_ == std::numeric_limits<std::int16_t>::max()) Raise(ErrorOverflow);
    ++Count_;
  }
  ~WorkingScope() { --Count_; }
  WorkingScope(const WorkingScope&) = delete;
  WorkingScope& operator=(const WorkingScope&) = delete;

 private:
  std::int16_t& Count_;
};

HTTPClient::HTTPClient(Internet& internet, Clock& clock, Teller teller)
    : Internet_(internet), Clock_(clock), Teller_(std::move(teller)) {
  Initialise();
}

HTTPClient::~HTTPClient() { Terminate(); }

void HTTPClient::Initialise() {
  const auto agent = AgentText_.empty() ? std::string(DefaultAgent) : AgentText_;
  SyncSession_ = Internet_.OpenSession(agent, 0);
  if (SyncSession_ == 0) Fail(ErrorInvalidCall, "");
  AsyncSession_ = Internet_.OpenSession(agent, InternetFlagAsync);
  if (AsyncSession_ == 0) {
    Internet_.CloseHandle(std::exchange(SyncSession_, 0));
    Fail(ErrorInvalidCall, "");
  }
  // The asynchronous session keeps the system's own time-outs.
  Internet_.SetOption(SyncSession_, InternetOptionReceiveTimeout, DefaultReceiveTimeout);
  Internet_.SetOption(SyncSession_, InternetOptionConnectTimeout, DefaultConnectTimeout);
}

void HTTPClient::Terminate() {
  if (SyncSession_ == 0) return;
  Internet_.CloseHandle(std::exchange(SyncSession_, 0));
  Internet_.CloseHandle(std::exchange(AsyncSession_, 0));
}

void HTTPClient::UserAgent(const std::string& newUserAgent) {
  AgentText_ = newUserAgent;
  Terminate();
  Initialise();
}

void HTTPClient::Timeout(std::int32_t newTimeout) {
  Internet_.SetOption(SyncSession_, InternetOptionReceiveTimeout, static_cast<std::uint32_t>(newTimeout));
}

void HTTPClient::ConnectTimeout(std::int32_t newTimeout) {
  Internet_.SetOption(SyncSession_, InternetOptionConnectTimeout, static_cast<std::uint32_t>(newTimeout));
}

void HTTPClient::SetMaxConnections(std::int32_t count) {
  Internet_.SetOption(0, InternetOptionMaxConnectionsPer10Server, static_cast<std::uint32_t>(count));
  Internet_.SetOption(0, InternetOptionMaxConnectionsPerServer, static_cast<std::uint32_t>(count));
}

HTTPClient::Target HTTPClient::Aim(const std::string& address, const std::string& sendHeaders) const {
  Target target;
  target.Url = CrackUrl(address, Internet_);
  target.UserName = PercentDecode(target.Url.UserName);
  target.Password = PercentDecode(target.Url.Password);
  target.AuthFlag = target.UserName.empty() && target.Password.empty() ? InternetFlagNoAuth : 0;
  target.Clean = !HasLineBreakOrNul(address) && !HasLineBreakOrNul(target.UserName) &&
                 !HasLineBreakOrNul(target.Password) && !HasLineBreakOrNul(AgentText_) &&
                 AreHeaderLines(sendHeaders);
  return target;
}

void HTTPClient::Open(Handles& handles, InternetHandle session, const Target& target,
                      const std::string& postData, std::uint32_t asyncFlag, std::uintptr_t context) {
  const auto& url = target.Url;
  handles.Connection = Internet_.Connect(session, url.HostName, url.Port, target.UserName, target.Password,
                                         url.SchemeNumber, target.AuthFlag | asyncFlag, context);
  if (handles.Connection == 0) Fail(HTTPErrorNoSession, "Failed to initialise the HTTP session");
  LogStep([&] { return "Got session handle: " + std::to_string(handles.Connection); });
  if (asyncFlag != 0) Internet_.SetStatusCallback(handles.Connection, HttpStatusCallback);

  if (target.Clean)
    handles.Request = Internet_.OpenRequest(handles.Connection, postData.empty() ? "GET" : "POST",
                                            url.UrlPath + url.ExtraInfo,
                                            target.AuthFlag | InternetFlagReload | InternetFlagNoCacheWrite |
                                                asyncFlag | (FollowsRedirects_ ? 0 : InternetFlagNoRedirect),
                                            context);
  if (handles.Request == 0) Fail(HTTPErrorNoRequest, "Failed to initialise the HTTP request");
  LogStep([&] { return "Got request handle: " + std::to_string(handles.Request); });
}

std::unique_ptr<OpenExchange> HTTPClient::Begin(bool awaited, const std::string& address,
                                                const std::string& postData) const {
  auto told = Teller_.Begin(ExchangeLink::HTTP, awaited);
  if (!told) return nullptr;
  auto& exchange = told->Told();
  exchange.Method = postData.empty() ? "GET" : "POST";
  exchange.URL = address;
  if (!postData.empty()) exchange.Sent = EncodeText(MaskCredentials(postData), AnsiCodePage());
  return told;
}

void HTTPClient::Perform(const std::string& address, const std::string& sendHeaders,
                         const std::string& postData, const std::function<void(Handles&)>& receiveBody) {
  const auto told = Begin(true, address, postData);
  std::uint32_t systemError = SystemErrorNone;
  try {
    const WorkingScope working(WorkingCount_);
    Handles handles(Internet_);
    handles.Told = told.get();
    const auto target = Aim(address, sendHeaders);
    if (told) told->Told().Where = target.Where();
    LogStep("Getting request handles");
    Open(handles, SyncSession_, target, postData, 0, 0);
    if (!Internet_.SendRequest(handles.Request, sendHeaders, EncodeText(postData, AnsiCodePage()))) {
      systemError = Internet_.LastError();
      if (systemError == SystemErrorOffline) Fail(HTTPErrorNoRequest, "Windows is in offline mode.");
      Fail(HTTPErrorNoServer, "Failed to connect to the HTTP server.");
    }
    LogStep("Sent request");
    if (told) told->TakeHeaders(HeaderBlock(Internet_, handles.Request));
    if (const auto length = Internet_.QueryContentLength(handles.Request))
      handles.ContentLength = static_cast<std::int64_t>(std::min<std::uint64_t>(*length, INT64_MAX));
    receiveBody(handles);
  } catch (const Error& error) {
    TellFailure(error, told.get(), systemError);
    throw;
  }
  if (told) told->TellEnded();
}

Bytes HTTPClient::GetResource(const std::string& address, const std::string& sendHeaders,
                              const std::string& postData) {
  const auto deadline = Clock_.Now() + MaxDuration;
  Variant body = Bytes{};
  const auto receive = [&](Handles& handles) {
    ReceiveBody(handles, deadline, body);
    CaptureHeaders(handles.Request);
    // No call tells of a body that ends before its announced length.
    const auto received = static_cast<std::int64_t>(std::get<Bytes>(body).size());
    if (BodyFollows() && received < handles.ContentLength)
      Fail(HTTPErrorBrokenOff, "Disconnected while recieving data");
  };
  Perform(address, sendHeaders, postData, std::ref(receive));
  LogStep("Got all data");
  return std::get<Bytes>(std::move(body));
}

void HTTPClient::ReceiveBody(Handles& handles, Clock::TimePoint deadline, Variant& body) const {
  std::uint32_t available = 0;
  // Shows the bytes available, still none, where one would look for the length.
  LogStep([&] { return std::to_string(available) + "  content length"; });
  while (true) {
    if (!Internet_.QueryDataAvailable(handles.Request, available))
      Fail(HTTPErrorBrokenOff, "InternetQueryDataAvailable returned failure");
    auto error = Internet_.LastError();
    if (error != SystemErrorNone && error != SystemErrorIOPending)
      Fail(HTTPErrorBrokenOff, "GetLastError returned " + std::to_string(error));
    if (available == 0) break;
    // A stream of pictures, say, has no end.
    const auto received = static_cast<std::int64_t>(std::get<Bytes>(body).size());
    if (std::max(received + available, handles.ContentLength) > MaxBody)
      Fail(HTTPErrorBrokenOff, "The reply has more than 16 MB");
    if (Clock_.Now() > deadline) Fail(HTTPErrorBrokenOff, "The reply took more than 30 seconds");

    Bytes chunk(available);
    std::uint32_t length = 0;
    if (!Internet_.Read(handles.Request, chunk, length))
      Fail(HTTPErrorBrokenOff, "Disconnected while recieving data");
    error = Internet_.LastError();
    if (error != SystemErrorNone) Fail(HTTPErrorBrokenOff, "GetLastError returned " + std::to_string(error));
    LogStep([&] { return "Wanted " + std::to_string(available) + " and got " + std::to_string(length); });
    chunk.resize(length);
    if (handles.Told != nullptr) handles.Told->TakeBody(chunk);
    AppendBytes(body, std::move(chunk));
    ReportProgress(static_cast<std::int64_t>(std::get<Bytes>(body).size()), handles);
  }
  LogStep("Got data (0)");  // a total that nothing ever sets
}

void HTTPClient::ReportProgress(std::int64_t received, const Handles& handles) const {
  const auto shown = [](std::int64_t length) {
    return static_cast<std::int32_t>(std::min<std::int64_t>(length, INT32_MAX));
  };
  bool cancel = false;
  if (Progress) Progress(shown(received), shown(handles.ContentLength), cancel);
  if (cancel) Fail(HTTPErrorCancelled, "Download cancelled");
}

void HTTPClient::CaptureHeaders(InternetHandle request) {
  std::array<char, HeaderBufferSize> buffer{};
  std::uint32_t length = 0;
  const bool fits = Internet_.QueryRawHeaders(request, buffer, length);
  // The final empty line goes. Of a block that does not fit only the untouched buffer remains: the headers
  // are lost, not the request.
  const std::size_t kept = length > 4 ? length - 4 : fits ? 0 : HeaderBufferSize;
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(buffer.data());
  LastHeaders_ = DecodeBytes({bytes, std::min(kept, HeaderBufferSize)}, AnsiCodePage());
}

/// Replies 204 and 304 have no body, whatever length they announce.
bool HTTPClient::BodyFollows() const {
  const auto code =
      std::string_view(LastHeaders_).substr(std::min(LastHeaders_.find(' '), LastHeaders_.size()));
  return !code.starts_with(" 204") && !code.starts_with(" 304");
}

std::string HTTPClient::GetResultCode(std::string& text) const {
  const auto lineEnd = LastHeaders_.find("\r\n");
  if (lineEnd == std::string::npos) return {};
  // The line keeps its CR, so a status line without a reason phrase has no code.
  const auto line = std::string_view(LastHeaders_).substr(0, lineEnd + 1);
  const auto first = line.find(' ');
  if (first == std::string_view::npos) return {};
  const auto second = line.find(' ', first + 1);
  const auto code = line.substr(first + 1, second == std::string_view::npos ? second : second - first - 1);
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  if (code.size() != 3 || code[0] < '1' || code[0] > '5' || !isDigit(code[1]) || !isDigit(code[2])) return {};
  if (second != std::string_view::npos) text = line.substr(second + 1);
  return std::string(code);
}

std::string HTTPClient::GetHeader(const std::string& headerName) const {
  return headerName.empty() ? LastHeaders_ : std::string();
}

std::string HTTPClient::LastResponse() const {
  std::string buffer(LastResponseSize, '\0');
  std::uint32_t length = LastResponseSize;
  Internet_.GetLastResponseInfo(buffer, length);
  return buffer;
}

void HTTPClient::GetResourceAsync(const std::string& address, const std::string& sendHeaders,
                                  const std::string& postData) {
  std::uintptr_t context = 0;
  auto told = Begin(false, address, postData);
  std::uint32_t systemError = SystemErrorNone;
  try {
    const WorkingScope working(WorkingCount_);
    Handles handles(Internet_);
    const auto target = Aim(address, sendHeaders);
    if (told) told->Told().Where = target.Where();
    LogStep("Getting request handles");
    auto& underWay = AsyncHandles();
    context = static_cast<std::uintptr_t>(underWay.NextContext());
    if (const auto* subject = CurrentLogSubject(); subject != nullptr && LogLinesAreTaken())
      underWay.KeepSubject(context, *subject);
    Open(handles, AsyncSession_, target, postData, InternetFlagAsync, context);

    std::span<const std::uint8_t> body;
    if (!postData.empty()) body = underWay.KeepBody(context, EncodeText(postData, AnsiCodePage()));
    if (told) {
      told->TellBegun();  // before its end, which another thread may tell from here on
      underWay.KeepExchange(context, std::move(told));
    }
    if (!Internet_.SendRequest(handles.Request, sendHeaders, body)) {
      systemError = Internet_.LastError();
      if (systemError == SystemErrorOffline) Fail(HTTPErrorNoRequest, "Windows is in offline mode.");
      if (systemError != SystemErrorIOPending)
        Fail(HTTPErrorNoServer, "Failed to connect to the HTTP server");
    }
    // From here on the handles belong to the status callback, which may have closed them already.
    handles.Request = handles.Connection = 0;
    LogStep("Sent request on thread " + CurrentThreadText());
  } catch (const Error& error) {
    if (!told) told = AsyncHandles().TakeExchange(context);
    AsyncHandles().Remove(context);
    TellFailure(error, told.get(), systemError);
    throw;
  }
  LogStep("Request closed");
}

void AppendBytes(Variant& first, const Variant& second) {
  auto* bytes = std::get_if<Bytes>(&first);
  const auto* more = std::get_if<Bytes>(&second);
  if (bytes == nullptr || more == nullptr) Raise(ErrorTypeMismatch);
  bytes->insert(bytes->end(), more->begin(), more->end());
}

}  // namespace ptzd
