#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <ptzd/Clock.h>
#include <ptzd/Variant.h>
#include "platform/Internet.h"
#include "transport/Teller.h"

namespace ptzd {

/// The library's HTTP client: one request at a time, or one sent and forgotten.
///
/// An instance is used by one thread at a time. Errors are `Error` with the numbers below and an empty
/// source; the HTTP status is no error. Every step is told to `LogMessage`, every request to the teller.
///
/// - 5: a session cannot be opened
/// - 6: more than 32767 requests at once
/// - 13101: the URL has no host or a scheme other than http
/// - 13102: the request cannot be made (a CR, LF or NUL in the URL or inside a header line; offline)
/// - 13104: it cannot be sent, or nothing answers: refused, unknown host, time-out, closed without an answer
/// - 13106: the body broke off, or `GetResource` would not take all of it
/// - 13107: `Progress` asked for cancellation
class HTTPClient {
 public:
  static constexpr std::uint32_t DefaultReceiveTimeout = 5000;   ///< milliseconds
  static constexpr std::uint32_t DefaultConnectTimeout = 10000;  ///< milliseconds
  static constexpr std::int64_t MaxBody = 16 * 1024 * 1024;      ///< bytes that `GetResource` takes
  static constexpr std::chrono::seconds MaxDuration{30};         ///< of `GetResource`, body included

  explicit HTTPClient(Internet& internet = SystemInternet(), Clock& clock = SystemClock(),
                      Teller teller = {});
  ~HTTPClient();
  HTTPClient(const HTTPClient&) = delete;
  HTTPClient& operator=(const HTTPClient&) = delete;

  /// Fetches the whole reply body; GET, or POST where `postData` is not empty. `sendHeaders`: further request
  /// header lines separated by CR LF. Blocks until the body is there, at most the connect time-out for the
  /// connection and then the receive time-out without progress. Never returns part of a body: one of more
  /// than `MaxBody`, or that is not all there after `MaxDuration`, is 13106.
  Bytes GetResource(const std::string& address, const std::string& sendHeaders, const std::string& postData);

  /// The same into a file, which is overwritten from its first byte on; a longer file keeps its tail. Raises
  /// 13106 only where a read fails or the file stays shorter than the announced length, 75 (path/file access
  /// error) where the file cannot be opened or written.
  void DownloadResource(const std::string& address, const std::string& fileName,
                        const std::string& sendHeaders, const std::string& postData);

  /// Sends a request whose reply nobody reads and returns without waiting for it. Raises 13101, 13102 or
  /// 13104 where the request cannot even be handed over.
  void GetResourceAsync(const std::string& address, const std::string& sendHeaders,
                        const std::string& postData);

  /// The three-digit status code of the last blocking request, and its reason phrase in `text` (with the CR
  /// that ends the status line). Empty, with `text` unchanged, where there is no status line or no reason
  /// phrase.
  std::string GetResultCode(std::string& text) const;

  /// The header block of the last blocking request as UTF-8, its bytes read in the ANSI code page, lines
  /// separated by CR LF, for an empty name; nothing for any other name. A block of 2048 bytes and more is not
  /// kept: then 2048 NULs stand in its place.
  std::string GetHeader(const std::string& headerName = {}) const;

  /// The agent text set; empty means "Qelto HTTP Client Object".
  const std::string& UserAgent() const { return AgentText_; }
  /// Opens both sessions anew: the time-outs are the defaults again, and kept connections and cookies are
  /// gone. Not so on Windows, where cookies and logins belong to the process.
  void UserAgent(const std::string& newUserAgent);

  /// Receive time-out of later blocking requests, in milliseconds.
  void Timeout(std::int32_t newTimeout);

  /// The same for the connection.
  void ConnectTimeout(std::int32_t newTimeout);
  /// Whether later requests go where a reply of 3xx sends them; otherwise that reply is the reply.
  void FollowRedirects(bool follow) { FollowsRedirects_ = follow; }

  /// True while a request is being made by this instance.
  bool Working() const { return WorkingCount_ >= 1; }

  /// The server's last textual response: always 1024 characters, padded with NUL.
  std::string LastResponse() const;

  /// Called after every piece of a body with the bytes received, the announced length (-1 where unknown) and
  /// a flag that cancels the transfer when set. Numbers beyond 32 bits are told as 2147483647. Runs on the
  /// requesting thread.
  std::function<void(std::int32_t received, std::int32_t total, bool& cancel)> Progress;

  /// Most connections to one server, for all of the process.
  void SetMaxConnections(std::int32_t count);

 private:
  struct Target;
  struct Handles;
  class WorkingScope;

  void Initialise();
  void Terminate();
  void Perform(const std::string& address, const std::string& sendHeaders, const std::string& postData,
               const std::function<void(Handles&)>& receiveBody);
  Target Aim(const std::string& address, const std::string& sendHeaders) const;
  void Open(Handles& handles, InternetHandle session, const Target& target, const std::string& postData,
            std::uint32_t asyncFlag, std::uintptr_t context);
  void ReceiveBody(Handles& handles, Clock::TimePoint deadline, Variant& body) const;
  void ReportProgress(std::int64_t received, const Handles& handles) const;
  void CaptureHeaders(InternetHandle request);
  std::unique_ptr<OpenExchange> Begin(bool awaited, const std::string& address,
                                      const std::string& postData) const;
  bool BodyFollows() const;

  Internet& Internet_;
  Clock& Clock_;
  const Teller Teller_;
  InternetHandle SyncSession_ = 0;
  InternetHandle AsyncSession_ = 0;
  std::string AgentText_;
  std::string LastHeaders_;
  std::int16_t WorkingCount_ = 0;
  bool FollowsRedirects_ = true;
};

/// Appends the bytes of `second` to those of `first`. Raises 13 (type mismatch) unless both hold bytes.
void AppendBytes(Variant& first, const Variant& second);

}  // namespace ptzd
