#include "drivers/kit/HTTPDriver.h"

#include <algorithm>

#include <ptzd/Logging.h>
#include "common/Numbers.h"
#include "drivers/kit/AddressLogins.h"
#include "drivers/kit/DriverErrors.h"
#include "platform/CodePages.h"
#include "transport/StringEncoding.h"

namespace ptzd {

HTTPStatus StatusOf(const HTTPClient& client) {
  auto line = client.GetHeader();
  line.resize(std::min(line.find("\r\n"), line.size()));
  const auto blank = line.find(' ');
  if (blank == std::string::npos) return {.Line = std::move(line)};
  auto status = line.substr(blank + 1);
  return {.Line = std::move(line), .Code = status.substr(0, status.find(' ')), .Text = status};
}

void RequireStatusOK(const HTTPClient& client) {
  const auto status = StatusOf(client);
  if (status.Code != "200")
    Raise(PTZErrorConnectionFailed, "Received HTTP error " + MaskCredentials(status.Text));
}

void LogPositionNotRead(const Error& error) { LogMessage("Position not read. " + error.Description()); }

void AppendParameter(std::string& parameters, std::string_view parameter) {
  if (!parameters.empty()) parameters += '&';
  parameters += parameter;
}

HTTPDriver::HTTPDriver(const Platform& platform, const RequestStyle& style)
    : Client_(*platform.internet, *platform.clock), Style_(style), Clock_(*platform.clock) {}

void HTTPDriver::OpenOptions(std::span<const std::uint8_t> contents) {
  Connected_ = false;
  LastMove_ = {}, LastZoom_ = {};  // a motion that is held goes on behind a reconnect
  Options_ = {};
  Options_.Contents(contents);
  try {
    Logins_.Set(LoginsOf(Options_.Text("Address")));
  } catch (const Error&) {
    Logins_.Set({});  // no text, so without a login; who needs the address raises that
  }
}

std::string HTTPDriver::Url(std::string_view path) const {
  return "http://" + Options_.Text("Address").append(path);
}

std::optional<std::string> HTTPDriver::Request(const std::string& path) {
  if (!Style_.AnnouncesUrl) LogMessage(std::string(Style_.Announcement).append(path));
  try {
    const auto url = Url(path);
    if (Style_.AnnouncesUrl) LogMessage(std::string(Style_.Announcement).append(url));
    const auto body = Client_.GetResource(url, "", "");
    if (Style_.AcceptsStatus != nullptr && !Style_.AcceptsStatus(StatusOf(Client_).Code)) return std::nullopt;
    auto reply = DecodeBytes(body, CodePage1252);
    LogMessage(std::string(Style_.Completion).append(reply));
    if (Style_.Accepts == nullptr) return reply;
    LastReply_ = std::move(reply);
    if (!Style_.Accepts(LastReply_)) return std::nullopt;
    return LastReply_;
  } catch (const Error& error) {
    std::string failure(Style_.Failure);
    if (failure.ends_with(' ')) failure += error.Description();
    if (!failure.empty()) LogMessage(failure);
    return std::nullopt;
  }
}

std::string HTTPDriver::CommandPath(std::string_view base, std::string_view channelParameter,
                                    std::string_view command) const {
  std::string path(base);
  if (const auto port = Options_.Long("Port", 0); port != 0)
    path.append(channelParameter).append(Text(port)).append("&");
  return path.append(command);
}

}  // namespace ptzd
