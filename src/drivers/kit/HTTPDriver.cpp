#include "drivers/kit/HTTPDriver.h"

#include <ptzd/Logging.h>

#include <algorithm>

#include "common/ComposedLog.h"
#include "common/Credentials.h"
#include "common/Numbers.h"
#include "drivers/kit/DriverErrors.h"
#include "drivers/kit/Options.h"
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

void LogPositionNotRead(const Error& error) {
  LogMessage("Position not read. " + error.Description(), LogLevel::Warning);
}

void AppendParameter(std::string& parameters, std::string_view parameter) {
  if (!parameters.empty()) parameters += '&';
  parameters += parameter;
}

HTTPDriver::HTTPDriver(const DriverData& data, const Platform& platform, const RequestStyle& style)
    : Driver(data, platform), Client_(*platform.Internet, *platform.Clock, Teller_), Style_(style) {}

std::string HTTPDriver::Url(std::string_view path) const {
  if (Data_.NeedsOptions && !HasOptions_) Raise(ErrorObjectNotSet);
  constexpr std::string_view scheme = "http://";
  const auto address = AddressOption.In(Options_);
  std::string url;
  url.reserve(scheme.size() + address.size() + path.size());
  return url.append(scheme).append(address).append(path);
}

HTTPReply HTTPDriver::Fetch(std::string_view path) {
  const LogScope scope(Subject_);
  const auto tell = [](std::string_view beginning, std::string_view what) {
    if (!beginning.empty()) LogComposed([&] { return std::string(beginning).append(what); });
  };
  const auto url = Url(path);
  tell(Style_.Announcement, Style_.AnnouncesUrl ? url : path);
  try {
    const auto body = Client_.GetResource(url, "", "");
    if (Style_.AcceptsStatus != nullptr) {
      const auto status = Status();
      if (!Style_.AcceptsStatus(status.Code))
        return {.Failure =
                    Error(PTZErrorConnectionFailed, "Received HTTP error " + MaskCredentials(status.Text))};
    }
    auto text = DecodeBytes(body, CodePage1252);
    tell(Style_.Completion, text);
    return {.Text = std::move(text)};
  } catch (const Error& error) {
    if (!Style_.Failure.empty())
      LogMessage(std::string(Style_.Failure) + (Style_.TellsWhy ? " " + error.Description() : ""),
                 LogLevel::Error);
    return {.Failure = error};
  }
}

Bytes HTTPDriver::Get(std::string_view path) {
  const LogScope scope(Subject_);
  return Client_.GetResource(Url(path), "", "");
}

std::optional<std::string> HTTPDriver::Request(std::string_view path) {
  auto reply = Fetch(path);
  if (reply.Failure || (Style_.Accepts != nullptr && !Style_.Accepts(reply.Text))) return std::nullopt;
  return std::move(reply.Text);
}

std::string HTTPDriver::CommandPath(std::string_view base, std::string_view channelParameter,
                                    std::string_view command) const {
  std::string path;
  path.reserve(base.size() + channelParameter.size() + command.size() + 16);
  path = base;
  if (const auto port = PortOption<std::int32_t>.In(Options_); port != 0)
    path.append(channelParameter).append(Text(port)).append("&");
  return path.append(command);
}

}  // namespace ptzd
