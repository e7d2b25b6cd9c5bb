#include "platform/posix/SystemInternetTransfer.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <new>
#include <utility>

#include "common/ASCII.h"
#include "platform/ReplyText.h"
#include "platform/posix/SystemInternetErrors.h"
#include "platform/posix/SystemInternetLoop.h"

namespace ptzd::internet {

namespace {

constexpr std::size_t MaxHeaderBlock = 256 * 1024;
constexpr std::size_t MaxKeptBuffer = 1024;
/// Receive time-outs that a header block may take which comes in drops.
constexpr int HeaderPatience = 6;
constexpr long MaxRedirects = 10;
constexpr long AnyLogin = CURLAUTH_BASIC | CURLAUTH_DIGEST | CURLAUTH_NTLM;

// A name without a value keeps libcurl from sending that line on its own account.
constexpr std::array FixedHeaders = {"Accept:", "Connection: Keep-Alive", "Cache-Control: no-cache"};
constexpr std::array FixedPostHeaders = {"Content-Type:", "Expect:"};

/// The value of the first header line of that name; nothing where there is none.
std::optional<std::string_view> FindHeader(std::string_view block, std::string_view name) {
  while (!block.empty()) {
    auto line = block.substr(0, block.find('\n'));
    block.remove_prefix(std::min(line.size() + 1, block.size()));
    if (line.size() <= name.size() || line[name.size()] != ':') continue;
    if (!EqualsIgnoringCase(line.substr(0, name.size()), name)) continue;
    line.remove_prefix(std::min(line.find_first_not_of(" \t", name.size() + 1), line.size()));
    return line.substr(0, line.find_last_not_of(" \t\r") + 1);
  }
  return std::nullopt;
}

/// Hosts that no proxy is asked for: this machine, and what the environment names. All where there is no
/// proxy, which saves every request looking for one.
std::string HostsWithoutProxy() {
  constexpr const char* proxies[] = {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"};
  if (std::ranges::none_of(proxies, [](const char* name) { return std::getenv(name) != nullptr; }))
    return "*";
  const char* named = std::getenv("no_proxy");
  if (named == nullptr) named = std::getenv("NO_PROXY");
  if (named == nullptr) return "localhost,127.0.0.0/8,::1";
  if (std::string_view(named) == "*") return named;  // all hosts, where it stands alone
  return std::string("localhost,127.0.0.0/8,::1,") + named;
}

/// libcurl's URL parser takes these as they stand, and cuts the URL at none of them.
bool PassesParser(char c) { return static_cast<unsigned char>(c) > ' ' && c != 0x7F && c != '#'; }

/// What the header block of a reply without one is on Windows.
constexpr std::string_view BlockOfBareReply = "HTTP/1.0 200 OK\r\n\r\n";

std::uint16_t LocalPortOf(curl_socket_t descriptor) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) != 0) return 0;
  return ntohs(address.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6&>(address).sin6_port
                                             : reinterpret_cast<const sockaddr_in&>(address).sin_port);
}

}  // namespace

void InitialiseLibrary() {
  static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
  if (result != CURLE_OK) throw std::bad_alloc();
}

std::uint32_t ErrorOf(CURLcode result) {
  switch (result) {
    case CURLE_OK:
      return 0;
    case CURLE_OUT_OF_MEMORY:
      return ErrorOutOfMemory;
    case CURLE_OPERATION_TIMEDOUT:
      return ErrorTimeout;
    case CURLE_URL_MALFORMAT:
      return ErrorInvalidUrl;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return ErrorNameNotResolved;
    case CURLE_COULDNT_CONNECT:
      return ErrorCannotConnect;
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
      return ErrorConnectionAborted;
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
      return ErrorConnectionReset;
    case CURLE_WRITE_ERROR:  // refused by us: the header block is too long
    case CURLE_WEIRD_SERVER_REPLY:
      return ErrorInvalidServerResponse;
    case CURLE_UNSUPPORTED_PROTOCOL:  // of the place redirected to
    case CURLE_TOO_MANY_REDIRECTS:
      return ErrorRedirectFailed;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
      return ErrorSecureChannel;
    default:
      return ErrorInternal;
  }
}

Channel::Channel(std::string agent) : Agent_(std::move(agent)) {
  InitialiseLibrary();
  Share_ = curl_share_init();
  if (Share_ == nullptr) throw std::bad_alloc();
  // No locks: one thread at a time.
  curl_share_setopt(Share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE);
}

Channel::~Channel() {
  Idle_.clear();
  curl_share_cleanup(Share_);
}

std::unique_ptr<Transfer> Channel::Take(const Origin& origin) {
  auto found = std::find_if(Idle_.rbegin(), Idle_.rend(),
                            [&](const auto& transfer) { return transfer->Target() == origin; });
  if (found == Idle_.rend()) found = Idle_.rbegin();
  if (found == Idle_.rend()) return std::make_unique<Transfer>(*this, origin);
  auto transfer = std::move(*found);
  Idle_.erase(std::next(found).base());
  if (transfer->Target() != origin) transfer->Aim(origin);
  return transfer;
}

void Channel::GiveBack(std::unique_ptr<Transfer> transfer) {
  transfer->Clear();
  Idle_.push_back(std::move(transfer));
}

Transfer::Transfer(const Channel& channel, const Origin& origin)
    : Easy_(curl_easy_init()), Channel_(&channel) {
  if (Easy_ == nullptr) throw std::bad_alloc();
  Aim(origin);
}

Transfer::Transfer(const Origin& origin) : Easy_(curl_easy_init()) {
  if (Easy_ == nullptr) throw std::bad_alloc();
  Aim(origin);
  SetTarget("/");
  Set(CURLOPT_PREREQFUNCTION, RefuseRequest);
  Set(CURLOPT_RESOLVER_START_FUNCTION, RefuseResolving);
  Set(CURLOPT_OPENSOCKETFUNCTION, RefuseSocket);
}

Transfer::~Transfer() {
  Leave();
  curl_easy_cleanup(Easy_);
}

void Transfer::Enter(const std::shared_ptr<Loop>& loop) {
  if (Loop_.lock() == loop) return;
  Leave();
  Loop_ = loop;
}

void Transfer::Leave() {
  if (const auto loop = Loop_.lock()) loop->CloseConnection(Origin_);
  Loop_.reset();
}

void Transfer::KeepsConnection(bool keeps) {
  // One that is not kept does not take the kept one either: a camera may read that before a newer connection,
  // and a stop on it would overtake the motion before.
  Set(CURLOPT_FORBID_REUSE, keeps ? 0L : 1L);
  Set(CURLOPT_FRESH_CONNECT, keeps ? 0L : 1L);
}

template <typename Value>
void Transfer::Set(CURLoption option, Value value) {
  if (curl_easy_setopt(Easy_, option, value) == CURLE_OUT_OF_MEMORY) throw std::bad_alloc();
}

void Transfer::Aim(const Origin& origin) {
  Leave();
  // The reset forgets logins and would lose the list behind this option. Freeing that leaves the shared
  // cookies, so the share is joined anew.
  Set(CURLOPT_COOKIEFILE, static_cast<const char*>(nullptr));
  curl_easy_reset(Easy_);
  if (Channel_ != nullptr) {
    Set(CURLOPT_SHARE, Channel_->Share());
    Set(CURLOPT_COOKIEFILE, "");  // reads no file, but keeps cookies
  }
  Origin_ = origin;
  Root_ = "http://" + origin.Host + ":" + std::to_string(origin.Port);
  // Parsed here once: libcurl would parse every request's URL and write it out anew, letter by letter.
  Url_.reset(curl_url());
  if (Url_ == nullptr) throw std::bad_alloc();
  if (curl_url_set(Url_.get(), CURLUPART_URL, Root_.c_str(), 0) != CURLUE_OK) Url_.reset();
  Set(CURLOPT_CURLU, Url_.get());
  LoginKnown_ = false;
  OwnTarget_ = false;
  Posts_ = false;
  Timeouts_ = {};
  FollowsRedirects_ = true;
  HeaderList_.reset();

  Set(CURLOPT_PRIVATE, this);
  Set(CURLOPT_HEADERFUNCTION, OnHeader);
  Set(CURLOPT_HEADERDATA, this);
  Set(CURLOPT_WRITEFUNCTION, OnBody);
  Set(CURLOPT_WRITEDATA, this);
  Set(CURLOPT_PREREQFUNCTION, OnConnected);
  Set(CURLOPT_PREREQDATA, this);
  Set(CURLOPT_SOCKOPTFUNCTION, OnSocketOpened);
  Set(CURLOPT_SOCKOPTDATA, this);

  Set(CURLOPT_NOSIGNAL, 1L);
  Set(CURLOPT_QUICK_EXIT, 1L);  // a name server that hangs must not hold us up
  const auto withoutProxy = HostsWithoutProxy();
  Set(CURLOPT_NOPROXY, withoutProxy.c_str());
  UrlIsSent_ = origin.Authenticates || withoutProxy != "*";
  Set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  Set(CURLOPT_PROTOCOLS_STR, "http,https");
  Set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  Set(CURLOPT_FOLLOWLOCATION, 1L);
  Set(CURLOPT_MAXREDIRS, MaxRedirects);
  Set(CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_1);
  Set(CURLOPT_HTTP09_ALLOWED, 1L);
  Set(CURLOPT_PATH_AS_IS, 1L);
  if (origin.Authenticates) {
    Set(CURLOPT_HTTPAUTH, AnyLogin);
    Set(CURLOPT_USERNAME, origin.UserName.c_str());
    Set(CURLOPT_PASSWORD, origin.Password.c_str());
  }
}

std::uint32_t Transfer::Prepare(const Message& message, const Timeouts& timeouts, bool keepsBody) {
  if (HeaderList_ == nullptr || ExtraHeaders_ != message.Headers || Posts_ != message.Posts)
    if (!SetHeaders(message.Headers, message.Posts)) return ErrorInvalidParameter;
  if (!SetTarget(message.Object)) return ErrorInvalidUrl;
  if (timeouts.Connect != Timeouts_.Connect)
    Set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(std::max<std::uint32_t>(timeouts.Connect, 1)));
  Timeouts_ = timeouts;
  if (message.FollowsRedirects != FollowsRedirects_)
    Set(CURLOPT_FOLLOWLOCATION, message.FollowsRedirects ? 1L : 0L);
  FollowsRedirects_ = message.FollowsRedirects;
  if (message.Posts) {
    Set(CURLOPT_POST, 1L);
    Set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(message.Body.size()));
    Set(CURLOPT_POSTFIELDS, message.Body.empty() ? "" : reinterpret_cast<const char*>(message.Body.data()));
  } else if (Posts_) {
    Set(CURLOPT_POSTFIELDS, static_cast<const char*>(nullptr));
    Set(CURLOPT_HTTPGET, 1L);
  }
  Posts_ = message.Posts;
  KeepsBody_ = keepsBody;
  Retried_ = false;
  Begin();
  return 0;
}

void Transfer::Begin() {
  Headers_.clear();
  Body_.clear();
  BodyRead_ = 0;
  Result_.reset();
  Opened_.clear();
  Replies_ = 0;
  Requests_ = 0;
  Connected_ = WantsToWrite_ = BlockComplete_ = HeadersFinal_ = Refused_ = false;
}

bool Transfer::LostKeptConnection(CURLcode result) const {
  if (Refused_) return true;
  // libcurl itself begins again only so many times in a handle's life.
  const bool broke = result == CURLE_SEND_ERROR || result == CURLE_RECV_ERROR;
  return broke && Opened_.empty() && Headers_.empty() && !HeadersFinal_;
}

bool Transfer::NeedsRetry() const { return !Retried_ && LoginKnown_ && Replies_ == 1 && Status() == 401; }

void Transfer::PrepareRetry(const Message& message) {
  Retried_ = true;
  LoginKnown_ = false;
  SetTarget(message.Object);
  Begin();
}

void Transfer::Clear() {
  const bool accepted = HeadersFinal_ && Status() != 401;
  if (accepted || AnswersChallenge()) LoginKnown_ = Origin_.Authenticates;
  Begin();
  if (Headers_.capacity() > MaxKeptBuffer) Headers_ = {};
  if (Body_.capacity() > MaxKeptBuffer) Body_ = {};
}

bool Transfer::SetHeaders(const std::string& headers, bool posts) {
  std::unique_ptr<curl_slist, Free> list;
  const auto append = [&](const char* line) {
    auto* longer = curl_slist_append(list.get(), line);
    if (longer == nullptr) throw std::bad_alloc();
    static_cast<void>(list.release());
    list.reset(longer);
  };
  const auto appendUnlessGiven = [&](std::string_view line) {
    if (!FindHeader(headers, line.substr(0, line.find(':')))) append(line.data());
  };
  // Here and not as the option for it, whose line libcurl writes anew for every request.
  if (!Channel_->Agent().empty()) appendUnlessGiven("User-Agent: " + Channel_->Agent());
  std::ranges::for_each(FixedHeaders, appendUnlessGiven);
  if (posts) std::ranges::for_each(FixedPostHeaders, appendUnlessGiven);
  for (std::size_t start = 0; start < headers.size();) {
    const auto end = std::min(headers.find("\r\n", start), headers.size());
    std::string line = headers.substr(start, end - start);
    start = end + 2;
    if (line.empty()) continue;
    const auto colon = line.find(':');
    if (colon == 0 || colon == std::string::npos) return false;
    // libcurl sends a name without a value only where a semicolon ends it.
    if (line.find_first_not_of(" \t", colon + 1) == std::string::npos)
      line.replace(colon, std::string::npos, ";");
    append(line.c_str());
  }
  Set(CURLOPT_HTTPHEADER, list.get());
  HeaderList_ = std::move(list);
  ExtraHeaders_ = headers;
  return true;
}

bool Transfer::SetTarget(const std::string& object) {
  if (!Url_) {
    Set(CURLOPT_URL, Root_.c_str());
    return true;  // and libcurl says why not
  }
  const auto mark = std::min(object.find('?'), object.size());
  // Set on their own, path and query may hold anything, but the letters of their escapes become small.
  const bool hasEscapes = object.find('%') != std::string::npos;
  const bool asText = hasEscapes && std::ranges::all_of(object, PassesParser) && !object.ends_with('?');
  auto result = CURLUE_OK;
  if (asText) {
    result = curl_url_set(Url_.get(), CURLUPART_URL, (Root_ + object).c_str(), CURLU_PATH_AS_IS);
  } else {
    const char* query = mark == object.size() ? nullptr : object.c_str() + mark + 1;
    result = curl_url_set(Url_.get(), CURLUPART_PATH, object.substr(0, mark).c_str(), 0);
    if (result == CURLUE_OK) result = curl_url_set(Url_.get(), CURLUPART_QUERY, query, 0);
  }
  // In a path libcurl escapes what is beyond ASCII.
  const auto isHigh = [](char c) { return static_cast<unsigned char>(c) >= 0x80; };
  const bool changes =
      (hasEscapes && !asText) || std::ranges::any_of(std::string_view(object).substr(0, mark), isHigh);
  const bool own = changes && !UrlIsSent_;
  if (own || OwnTarget_) Set(CURLOPT_REQUEST_TARGET, own ? object.c_str() : nullptr);
  OwnTarget_ = own;
  return result == CURLUE_OK;
}

bool Transfer::Written() const {
  if (Over() || HeadersFinal_) return true;
  if (!Connected_ || WantsToWrite_) return false;
  return !Origin_.Authenticates || LoginKnown_ || AnswersChallenge();
}

bool Transfer::AnswersChallenge() const { return Requests_ > Replies_ && Replies_ > 0 && Status() == 401; }

TimePoint Transfer::Deadline() const {
  if (!Connected_) return TimePoint::max();
  const std::chrono::milliseconds patience(Timeouts_.Receive);
  const auto due = LastProgress_ + patience;
  // Whoever waits for headers has no clock of its own to look at, as between the pieces of a body.
  return HeadersFinal_ ? due : std::min(due, AskedAt_ + HeaderPatience * patience);
}

std::uint32_t Transfer::ReplyError() const {
  if (HeadersFinal_) return 0;
  if (Result_ != CURLE_OK && Result_ != CURLE_PARTIAL_FILE) return ErrorOf(*Result_);
  return BlockComplete_ ? 0 : ErrorInvalidServerResponse;
}

std::uint32_t Transfer::BodyError() const {
  if (!Over()) return 0;
  // As on Windows, where a camera that closes early only makes the body shorter. A chunked body has an end of
  // its own, and without it is broken.
  if (Result_ == CURLE_PARTIAL_FILE && ContentLength()) return 0;
  return ErrorOf(*Result_);
}

std::optional<std::uint64_t> Transfer::ContentLength() const {
  const auto encoding = FindHeader(Headers_, "Transfer-Encoding");
  if (encoding && IsChunked(*encoding)) return std::nullopt;
  const auto text = FindHeader(Headers_, "Content-Length");
  if (!text) return std::nullopt;
  return LengthFromText(*text);
}

std::size_t Transfer::Read(std::span<std::uint8_t> buffer) {
  const auto length = std::min(buffer.size(), Available());
  std::copy_n(Body_.begin() + static_cast<std::ptrdiff_t>(BodyRead_), length, buffer.begin());
  BodyRead_ += length;
  if (BodyRead_ == Body_.size()) {
    Body_.clear();
    BodyRead_ = 0;
  }
  return length;
}

long Transfer::Status() const {
  long status = 0;
  curl_easy_getinfo(Easy_, CURLINFO_RESPONSE_CODE, &status);
  return status;
}

bool Transfer::AnotherReplyMayFollow() const {
  const long status = Status();
  if (status < 200) return true;
  if (status == 401) return Origin_.Authenticates;
  if (status == 407) return true;
  return FollowsRedirects_ && status >= 300 && status < 400 && FindHeader(Headers_, "Location");
}

bool Transfer::TakeHeader(std::string_view line) {
  if (HeadersFinal_) return true;  // lines after a chunked body
  if (BlockComplete_) {
    if (!line.starts_with("HTTP/")) return true;
    Headers_.clear();
    BlockComplete_ = false;
  }
  // However the camera ends its lines.
  if (line.ends_with('\n')) line.remove_suffix(line.ends_with("\r\n") ? 2 : 1);
  if (Headers_.size() + line.size() > MaxHeaderBlock) return false;
  Headers_.append(line).append("\r\n");
  if (line.empty()) {
    BlockComplete_ = true;
    if (Status() >= 200) ++Replies_;
    HeadersFinal_ = !AnotherReplyMayFollow();
    // A target given apart from the URL is not the one redirected to.
    if (!HeadersFinal_ && OwnTarget_ && Status() >= 300 && Status() < 400) {
      Set(CURLOPT_REQUEST_TARGET, static_cast<const char*>(nullptr));
      OwnTarget_ = false;
    }
  }
  return true;
}

std::size_t Transfer::OnHeader(char* data, std::size_t size, std::size_t count, void* transfer) {
  return static_cast<Transfer*>(transfer)->TakeHeader({data, size * count}) ? size * count : 0;
}

std::size_t Transfer::OnBody(char* data, std::size_t size, std::size_t count, void* transfer) {
  auto& self = *static_cast<Transfer*>(transfer);
  // libcurl drops the bodies of replies that another one follows.
  self.HeadersFinal_ = true;
  if (self.Headers_.empty()) self.Headers_ = BlockOfBareReply;
  const auto length = size * count;
  if (self.KeepsBody_) self.Body_.insert(self.Body_.end(), data, data + length);
  return length;
}

int Transfer::OnConnected(void* transfer, char*, char*, int, int localPort) {
  auto& self = *static_cast<Transfer*>(transfer);
  if (const auto loop = self.Loop_.lock()) {
    for (const auto socket : self.Opened_)
      if (LocalPortOf(socket) == localPort) loop->NoteConnection(socket, localPort);
    // What waits there is no answer to a request that has yet to leave.
    self.Refused_ = self.Opened_.empty() && self.Replies_ == 0 && !loop->IsSilent(localPort);
    if (self.Refused_) return CURL_PREREQFUNC_ABORT;
  }
  self.Connected_ = true;
  const auto now = std::chrono::steady_clock::now();
  if (++self.Requests_ == 1) self.AskedAt_ = now;
  self.Touch(now);
  return CURL_PREREQFUNC_OK;
}

int Transfer::OnSocketOpened(void* transfer, curl_socket_t descriptor, curlsocktype) {
  auto& self = *static_cast<Transfer*>(transfer);
  self.Connected_ = false;
  self.Opened_.push_back(descriptor);
  return CURL_SOCKOPT_OK;
}

}  // namespace ptzd::internet
