#pragma once

#include <curl/curl.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ptzd::internet {

class Loop;
class Transfer;

/// Before anything else of libcurl. The first call should be on a thread that lives longer than those it
/// starts.
void InitialiseLibrary();

using TimePoint = std::chrono::steady_clock::time_point;

/// Time-outs in milliseconds.
struct Timeouts {
  std::uint32_t Connect;
  std::uint32_t Receive;  ///< without progress; the header block has to be there after six of them
};

/// Where requests go, and with whose credentials. Bytes of the ANSI code page.
struct Origin {
  std::string Host;  ///< an IPv6 address in brackets
  std::uint16_t Port = 0;
  std::string UserName, Password;
  bool Authenticates = false;
  bool operator==(const Origin&) const = default;
};

/// One request. Bytes of the ANSI code page.
struct Message {
  bool Posts = false;
  bool FollowsRedirects = true;
  std::string Object;                  ///< path and query, spaces escaped
  std::string Headers;                 ///< further header lines, separated by CR LF
  std::span<const std::uint8_t> Body;  ///< not copied
};

/// What a session keeps between requests: cookies and the transfers that use them. Used by one thread at
/// a time, not always the same one.
class Channel {
 public:
  explicit Channel(std::string agent);
  ~Channel();
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;

  /// A transfer to `origin`: the one used last where it went there, for it knows how to log in.
  std::unique_ptr<Transfer> Take(const Origin& origin);
  void GiveBack(std::unique_ptr<Transfer> transfer);

  const std::string& Agent() const { return Agent_; }
  CURLSH* Share() const { return Share_; }

 private:
  std::string Agent_;
  CURLSH* Share_;
  std::vector<std::unique_ptr<Transfer>> Idle_;
};

/// A libcurl handle and the exchange it is busy with. Driven by a `Loop`.
class Transfer {
 public:
  Transfer(const Channel& channel, const Origin& origin);
  /// One that closes a connection kept to `origin` when it is driven: it sends nothing and opens none.
  explicit Transfer(const Origin& origin);
  ~Transfer();
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  const Origin& Target() const { return Origin_; }
  void Aim(const Origin& origin);
  /// Whether the connection stays open after the exchange.
  void KeepsConnection(bool keeps);
  /// Makes ready for an exchange. 0, or why the message cannot be sent.
  std::uint32_t Prepare(const Message& message, const Timeouts& timeouts, bool keepsBody);
  /// True where the same exchange may succeed at a second attempt: the camera forgot the login that earlier
  /// requests agreed on.
  bool NeedsRetry() const;
  void PrepareRetry(const Message& message);
  /// Frees what an idle transfer need not keep.
  void Clear();

  /// True where an exchange that ended so is to begin again, unseen by the caller: it went over a kept
  /// connection that had died or that was not silent, and nothing of a reply came.
  bool LostKeptConnection(CURLcode result) const;
  /// The exchange from its beginning.
  void Begin();

  CURL* Handle() const { return Easy_; }

  /// True once the request has left completely. While a login is still to be agreed on, the camera's answer
  /// is needed for that.
  bool Written() const;
  /// True once the final reply's header block is there, or the exchange is over.
  bool HasHeaders() const { return Over() || HeadersFinal_; }
  /// True once body bytes are there, or the exchange is over.
  bool HasBody() const { return Over() || BodyRead_ < Body_.size(); }
  bool Over() const { return Result_.has_value(); }
  std::optional<CURLcode> Result() const { return Result_; }
  /// Why there is no reply, 0 where there is one.
  std::uint32_t ReplyError() const;
  /// Why the body broke off; 0 also where it only ended before its announced length.
  std::uint32_t BodyError() const;

  const std::string& Headers() const { return Headers_; }
  /// Nothing where none is announced, or it does not count because the body tells its end itself.
  std::optional<std::uint64_t> ContentLength() const;
  std::size_t Available() const { return Body_.size() - BodyRead_; }
  std::size_t Read(std::span<std::uint8_t> buffer);

  // For the loop.
  /// Tells which loop the exchange is in. A connection kept in another one is given up.
  void Enter(const std::shared_ptr<Loop>& loop);
  void Finish(CURLcode result) { Result_ = result; }
  void Touch(TimePoint now) { LastProgress_ = now; }
  void WantsToWrite(bool wants) { WantsToWrite_ = wants; }
  /// When the exchange has lasted too long without progress. Connecting is limited by libcurl.
  TimePoint Deadline() const;

 private:
  struct Free {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
    void operator()(CURLU* url) const { curl_url_cleanup(url); }
  };

  static std::size_t OnHeader(char* data, std::size_t size, std::size_t count, void* transfer);
  static std::size_t OnBody(char* data, std::size_t size, std::size_t count, void* transfer);
  static int OnConnected(void* transfer, char*, char*, int, int localPort);
  static int OnSocketOpened(void* transfer, curl_socket_t descriptor, curlsocktype);
  static int RefuseRequest(void*, char*, char*, int, int) { return CURL_PREREQFUNC_ABORT; }
  static int RefuseResolving(void*, void*, void*) { return 1; }
  static curl_socket_t RefuseSocket(void*, curlsocktype, curl_sockaddr*) { return CURL_SOCKET_BAD; }

  void Leave();
  bool SetHeaders(const std::string& headers, bool posts);
  bool SetTarget(const std::string& object);
  bool TakeHeader(std::string_view line);
  bool AnotherReplyMayFollow() const;
  /// True while the request that brings the login asked for is on its way.
  bool AnswersChallenge() const;
  long Status() const;

  template <typename Value>
  void Set(CURLoption option, Value value);

  CURL* Easy_;
  const Channel* Channel_ = nullptr;  ///< its session's
  Origin Origin_;
  std::string Root_;          ///< what every URL of the origin begins with
  std::weak_ptr<Loop> Loop_;  ///< where its connection is kept
  std::string ExtraHeaders_;
  std::unique_ptr<curl_slist, Free> HeaderList_;
  std::unique_ptr<CURLU, Free> Url_;  ///< null where libcurl cannot parse it
  bool UrlIsSent_ = false;            ///< others see it too: Digest signs it, a proxy is asked for it
  bool OwnTarget_ = false;            ///< the request line's target is given apart from the URL
  bool Posts_ = false;
  bool LoginKnown_ = false;
  Timeouts Timeouts_{};
  bool FollowsRedirects_ = true;

  // Of the exchange under way.
  std::string Headers_;
  std::vector<std::uint8_t> Body_;
  std::size_t BodyRead_ = 0;
  std::optional<CURLcode> Result_;
  TimePoint LastProgress_;
  TimePoint AskedAt_;                  ///< the first request began
  std::vector<curl_socket_t> Opened_;  ///< sockets opened for it; none as long as a kept one serves
  int Requests_ = 0;      ///< begun: more than one where a login is asked for, or the camera redirects
  int Replies_ = 0;       ///< header blocks other than 1xx
  bool Refused_ = false;  ///< a kept connection, because it was not silent
  bool KeepsBody_ = true;
  bool Connected_ = false;
  bool WantsToWrite_ = false;
  bool BlockComplete_ = false;
  bool HeadersFinal_ = false;
  bool Retried_ = false;
};

}  // namespace ptzd::internet
