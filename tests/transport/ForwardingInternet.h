#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/Internet.h"

namespace ptzd::test {

/// The system's own layer, with a note of the options set and the chance to set another value.
class ForwardingInternet : public Internet {
 public:
  struct OptionSet {
    InternetHandle Session;
    std::uint32_t Option, Value;
    bool operator==(const OptionSet&) const = default;
  };
  std::vector<OptionSet> Options;
  std::vector<InternetHandle> Sessions;  ///< in the order they were opened
  /// In place of the connect time-out that the client sets, so that a test need not wait for it.
  std::optional<std::uint32_t> ConnectTimeout;
  /// In place of the system's, which asynchronous requests have.
  std::optional<std::uint32_t> AsyncReceiveTimeout;

  InternetHandle OpenSession(const std::string& agent, std::uint32_t flags) override {
    const auto session = Sessions.emplace_back(System_.OpenSession(agent, flags));
    if (AsyncReceiveTimeout && (flags & InternetFlagAsync) != 0)
      System_.SetOption(session, InternetOptionReceiveTimeout, *AsyncReceiveTimeout);
    return session;
  }
  bool SetOption(InternetHandle session, std::uint32_t option, std::uint32_t value) override {
    Options.push_back({session, option, value});
    if (option == InternetOptionConnectTimeout) value = ConnectTimeout.value_or(value);
    return System_.SetOption(session, option, value);
  }
  bool CrackUrl(const std::string& url, UrlComponents& components) override {
    return System_.CrackUrl(url, components);
  }
  InternetHandle Connect(InternetHandle session, const std::string& host, std::uint16_t port,
                         const std::string& userName, const std::string& password, std::int32_t service,
                         std::uint32_t flags, std::uintptr_t context) override {
    return System_.Connect(session, host, port, userName, password, service, flags, context);
  }
  void SetStatusCallback(InternetHandle connection, InternetStatusCallback callback) override {
    System_.SetStatusCallback(connection, callback);
  }
  InternetHandle OpenRequest(InternetHandle connection, const std::string& verb, const std::string& object,
                             std::uint32_t flags, std::uintptr_t context) override {
    return System_.OpenRequest(connection, verb, object, flags, context);
  }
  bool SendRequest(InternetHandle request, const std::string& headers,
                   std::span<const std::uint8_t> body) override {
    return System_.SendRequest(request, headers, body);
  }
  std::optional<std::uint64_t> QueryContentLength(InternetHandle request) override {
    return System_.QueryContentLength(request);
  }
  std::uint32_t QueryOutcome(InternetHandle request) override { return System_.QueryOutcome(request); }
  bool QueryRawHeaders(InternetHandle request, std::span<char> buffer, std::uint32_t& length) override {
    return System_.QueryRawHeaders(request, buffer, length);
  }
  bool QueryDataAvailable(InternetHandle request, std::uint32_t& available) override {
    return System_.QueryDataAvailable(request, available);
  }
  bool Read(InternetHandle request, std::span<std::uint8_t> buffer, std::uint32_t& length) override {
    return System_.Read(request, buffer, length);
  }
  bool GetLastResponseInfo(std::span<char> buffer, std::uint32_t& length) override {
    return System_.GetLastResponseInfo(buffer, length);
  }
  bool CloseHandle(InternetHandle handle) override { return System_.CloseHandle(handle); }
  std::uint32_t LastError() override { return System_.LastError(); }
  std::size_t OpenHandles() override { return System_.OpenHandles(); }

 private:
  Internet& System_ = SystemInternet();
};

}  // namespace ptzd::test
