#pragma once

#include <ptzd/Error.h>

#include <optional>
#include <string>
#include <string_view>

#include "drivers/kit/Driver.h"
#include "transport/HTTPClient.h"

namespace ptzd {

/// The status line of a client's last blocking request, such as "HTTP/1.1 404 Not Found".
struct HTTPStatus {
  std::string Line;  ///< the whole of it
  std::string Code;  ///< its second blank-separated word, "404"; empty where there is none
  std::string Text;  ///< what follows its first blank, "404 Not Found"
};
HTTPStatus StatusOf(const HTTPClient& client);

/// How a make's request routine differs from the common one.
struct RequestStyle {
  std::string_view Announcement = "Requesting ";              ///< logged before the request, with
  bool AnnouncesUrl = false;                                  ///< the whole URL, else the path
  std::string_view Completion = "Request complete. Reply: ";  ///< logged with the reply text
  std::string_view Failure = "Request failed.";               ///< logged where the transport failed
  bool TellsWhy = true;                                       ///< with the error's description behind
  /// Whether a reply with this status code is a success; without one, every status is. The others' replies
  /// are not logged.
  bool (*AcceptsStatus)(std::string_view code) = nullptr;
  /// Whether a reply is a success; without one, every reply is.
  bool (*Accepts)(std::string_view reply) = nullptr;
};

/// The style of the makes that log what they send, and nothing of failures.
constexpr RequestStyle SendingStyle{
    .Announcement = "Sending: ", .AnnouncesUrl = true, .Completion = "Received: ", .Failure = ""};

/// What came of a request.
struct HTTPReply {
  std::string Text;              ///< the body, read as code page 1252
  std::optional<Error> Failure;  ///< why there is none: the transport's error, or 17001 for a status
};

/// Logs why a position could not be read.
void LogPositionNotRead(const Error& error);

/// Reads a position that the camera told and takes it over. Raises 6 for one that does not fit; whatever else
/// speaks against it is logged, and the position stays.
template <typename Reading>
void ReadOrKeepPosition(const Reading& read) {
  try {
    read();
  } catch (const Error& error) {
    if (error.Number() == ErrorOverflow) throw;
    LogPositionNotRead(error);
  }
}

/// Appends "name=value", with "&" in front unless it is the first parameter.
void AppendParameter(std::string& parameters, std::string_view parameter);

/// Base of the drivers that speak HTTP.
class HTTPDriver : public Driver {
 protected:
  HTTPDriver(const DriverData& data, const Platform& platform, const RequestStyle& style = {});

  /// "http://", the option Address as it stands, and the path. Raises 91 before the first `Connect` where the
  /// data says so.
  std::string Url(std::string_view path) const;

  /// Fetches a path (which begins with "/") and logs as the style says. Blocks as `HTTPClient::GetResource`
  /// does; never raises an `Error` of the transport.
  HTTPReply Fetch(std::string_view path);
  /// The same, judged: the reply's text, or nothing where there is none or the style does not accept it.
  std::optional<std::string> Request(std::string_view path);
  /// The reply as it came, whatever its status, unlogged. Raises what `HTTPClient::GetResource` raises.
  Bytes Get(std::string_view path);
  /// The status of the last of these.
  HTTPStatus Status() const { return StatusOf(Client_); }

  /// A base path, then the channel parameter, the option Port and "&" unless Port is 0, then the command.
  std::string CommandPath(std::string_view base, std::string_view channelParameter,
                          std::string_view command) const;

  HTTPClient Client_;

 private:
  RequestStyle Style_;
};

}  // namespace ptzd
