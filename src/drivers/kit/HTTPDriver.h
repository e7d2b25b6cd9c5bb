#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <ptzd/Error.h>
#include <ptzd/Platform.h>
#include <ptzd/PropertyBag.h>
#include "common/Credentials.h"
#include "drivers/kit/LastMotion.h"
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
  /// Logged where the transport failed; one that ends in a blank is followed by the error's description, an
  /// empty one is not logged.
  std::string_view Failure = "Request failed. ";
  /// Whether a reply with this status code is a success; without one, every status is. The others' replies
  /// are neither logged nor kept.
  bool (*AcceptsStatus)(std::string_view code) = nullptr;
  /// Whether a reply is a success; without one, every reply is.
  bool (*Accepts)(std::string_view reply) = nullptr;
};

/// The style of the makes that log what they send, and nothing of failures.
constexpr RequestStyle SendingStyle{
    .Announcement = "Sending: ", .AnnouncesUrl = true, .Completion = "Received: ", .Failure = ""};

/// Raises 17001 "Received HTTP error 404 Not Found" unless the last reply's code is 200.
void RequireStatusOK(const HTTPClient& client);

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

/// What the HTTP drivers share: the options, the client and the request routine. Its members are a driver's
/// own; hosts never see them.
class HTTPDriver {
 protected:
  explicit HTTPDriver(const Platform& platform, const RequestStyle& style = {});
  ~HTTPDriver() = default;

  /// Begins a `Connect`: not connected and told of no motion from here on, and the new options hold even if
  /// they cannot be read.
  /// The login of their address is masked in every message until the next.
  void OpenOptions(std::span<const std::uint8_t> contents);

  /// "http://", the option Address as it stands, and the path.
  std::string Url(std::string_view path) const;

  /// Fetches a path (which begins with "/") and gives the reply as text, or nothing where the transport
  /// failed or the style does not accept the reply; then `LastReply_` has it all the same. Blocks as
  /// `HTTPClient::GetResource` does; never raises an `Error` of the transport.
  std::optional<std::string> Request(const std::string& path);

  /// A base path, then the channel parameter, the option Port and "&" unless Port is 0, then the command.
  std::string CommandPath(std::string_view base, std::string_view channelParameter,
                          std::string_view command) const;

  std::int32_t TickCount() const { return Clock_.TickCount(); }

  PropertyBag Options_;
  std::string LastReply_;  ///< the last reply that a style had to judge, accepted or not
  HTTPClient Client_;
  bool Connected_ = false;
  // The texts of the continuous commands sent last. A make with one command for both uses the first.
  LastMotion<std::string> LastMove_, LastZoom_;

 private:
  MaskedLogins Logins_;
  RequestStyle Style_;
  Clock& Clock_;
};

}  // namespace ptzd
