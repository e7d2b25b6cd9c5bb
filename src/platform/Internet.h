#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include <ptzd/Platform.h>  // SystemInternet

namespace ptzd {

/// A session, connection or request of the system's internet layer; 0 is none.
using InternetHandle = std::uintptr_t;

/// The parts of a URL as they stand in it, nothing decoded. Parts that are not there are empty.
struct UrlComponents {
  std::string Scheme;
  std::int32_t SchemeNumber = 0;  ///< `InternetSchemeHttp` for http, -1 for a scheme that is not known
  std::string HostName;
  std::uint16_t Port = 0;  ///< the scheme's default where the URL names none
  std::string UserName;
  std::string Password;
  std::string UrlPath;
  std::string ExtraInfo;  ///< query string and fragment, with their "?" and "#"
};

inline constexpr std::int32_t InternetSchemeUnknown = -1;
inline constexpr std::int32_t InternetSchemeHttp = 3;  // the number of the HTTP service too

// Flags and options, with the numbers of the Windows Internet API.
inline constexpr std::uint32_t InternetFlagAsync = 0x10000000;
inline constexpr std::uint32_t InternetFlagReload = 0x80000000;
inline constexpr std::uint32_t InternetFlagNoCacheWrite = 0x04000000;
inline constexpr std::uint32_t InternetFlagNoAuth = 0x00040000;
inline constexpr std::uint32_t InternetFlagNoRedirect = 0x00200000;
inline constexpr std::uint32_t InternetOptionConnectTimeout = 2;
inline constexpr std::uint32_t InternetOptionReceiveTimeout = 6;
inline constexpr std::uint32_t InternetOptionMaxConnectionsPerServer = 73;
inline constexpr std::uint32_t InternetOptionMaxConnectionsPer10Server = 74;

// Status codes of the status callback.
inline constexpr std::uint32_t InternetStatusHandleCreated = 60;
inline constexpr std::uint32_t InternetStatusRequestComplete = 100;

// System errors that callers tell apart.
inline constexpr std::uint32_t SystemErrorNone = 0;
inline constexpr std::uint32_t SystemErrorOffline = 2;
inline constexpr std::uint32_t SystemErrorIOPending = 997;
inline constexpr std::uint32_t SystemErrorTimeout = 12002;
inline constexpr std::uint32_t SystemErrorUnrecognizedScheme = 12006;
inline constexpr std::uint32_t SystemErrorNameNotResolved = 12007;
inline constexpr std::uint32_t SystemErrorCancelled = 12017;
inline constexpr std::uint32_t SystemErrorCannotConnect = 12029;
inline constexpr std::uint32_t SystemErrorConnectionAborted = 12030;
inline constexpr std::uint32_t SystemErrorConnectionReset = 12031;
inline constexpr std::uint32_t SystemErrorInvalidResponse = 12152;

class Internet;

/// Called on any thread by the layer that owns the handle. `handle` is the connection for
/// `InternetStatusHandleCreated` and the request for `InternetStatusRequestComplete`.
using InternetStatusCallback = void (*)(Internet& internet, InternetHandle handle, std::uintptr_t context,
                                        std::uint32_t status);

/// The system's HTTP layer: on Windows the Windows Internet API call for call, elsewhere the same verbs over
/// another library. Text is UTF-8 and meets the system's ANSI code page inside. A call that fails answers 0,
/// False or nothing and leaves the reason in `LastError`; a call that succeeds leaves 0 there.
///
/// Handles of one session are used by one thread at a time. Closing a session ends its blocking requests;
/// what was sent asynchronously still goes out, and each such request is still told complete.
class Internet {
 public:
  virtual ~Internet() = default;

  /// `flags`: 0 or `InternetFlagAsync`. The system's proxy settings apply.
  virtual InternetHandle OpenSession(const std::string& agent, std::uint32_t flags) = 0;
  /// Time-outs are in milliseconds and hold for requests opened later. Session 0 sets process-wide options.
  virtual bool SetOption(InternetHandle session, std::uint32_t option, std::uint32_t value) = 0;
  /// False where the text is no URL; `LastError` is 12006 where it has no scheme.
  virtual bool CrackUrl(const std::string& url, UrlComponents& components) = 0;
  /// Opens nothing on the wire. 0 for an empty host or a service other than HTTP.
  virtual InternetHandle Connect(InternetHandle session, const std::string& host, std::uint16_t port,
                                 const std::string& userName, const std::string& password,
                                 std::int32_t service, std::uint32_t flags, std::uintptr_t context) = 0;
  /// The callback for the connection's asynchronous requests.
  virtual void SetStatusCallback(InternetHandle connection, InternetStatusCallback callback) = 0;
  /// `object` is path and query. Sends nothing.
  virtual InternetHandle OpenRequest(InternetHandle connection, const std::string& verb,
                                     const std::string& object, std::uint32_t flags,
                                     std::uintptr_t context) = 0;
  /// Sends the request and blocks until the reply's header block is there, no longer than the connect
  /// time-out for the connection and then the receive time-out without progress. Of an asynchronous session:
  /// answers at once, False with `SystemErrorIOPending`; `body` must stay valid until the request is
  /// complete.
  virtual bool SendRequest(InternetHandle request, const std::string& headers,
                           std::span<const std::uint8_t> body) = 0;
  /// The content length that the reply announces, one beyond 64 bits as the highest number; nothing where it
  /// announces none or the body is chunked.
  virtual std::optional<std::uint64_t> QueryContentLength(InternetHandle request) = 0;
  /// What came of an asynchronous request, within its callback for `InternetStatusRequestComplete`: 0 where
  /// the reply's header block is there, which `QueryRawHeaders` tells, `SystemErrorCancelled` where it was
  /// given up, else why it failed.
  virtual std::uint32_t QueryOutcome(InternetHandle request) = 0;
  /// The reply's header block with the bytes received, as yet no text, and each line ended by CR LF, the
  /// final empty one included; written to `buffer` and closed with a NUL. `length` receives its length; where
  /// it does not fit, False, the length needed, and an untouched buffer.
  virtual bool QueryRawHeaders(InternetHandle request, std::span<char> buffer, std::uint32_t& length) = 0;
  /// Blocks until body bytes are there, at most the receive time-out without progress. 0 bytes: the body is
  /// over, also where the camera closed the connection before all that it announced.
  virtual bool QueryDataAvailable(InternetHandle request, std::uint32_t& available) = 0;
  /// Reads up to `buffer.size()` bytes; never blocks for bytes that were told available.
  virtual bool Read(InternetHandle request, std::span<std::uint8_t> buffer, std::uint32_t& length) = 0;
  /// The server's last textual response on this thread, written to `buffer`.
  virtual bool GetLastResponseInfo(std::span<char> buffer, std::uint32_t& length) = 0;
  virtual bool CloseHandle(InternetHandle handle) = 0;

  /// The reason of this thread's last failed call, 0 after a successful one.
  virtual std::uint32_t LastError() = 0;
  /// Handles open in the process.
  virtual std::size_t OpenHandles() = 0;
};

}  // namespace ptzd
