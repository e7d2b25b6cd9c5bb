#pragma once

#include <algorithm>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Internet.h"

/// A camera's answer to every request whose path and query contain a text.
struct Page {
  std::string Part, Body;
};

/// An HTTP layer without a wire, for one client at a time: a request is answered at once by the first page
/// that is meant, an empty body where none is. Costs the same whoever asks.
class CannedInternet : public ptzd::Internet {
 public:
  explicit CannedInternet(std::span<const Page> pages) : Pages_(pages) {}

  /// Path and query of all requests since the last call.
  std::vector<std::string> TakeAsked() { return std::exchange(Asked_, {}); }
  /// Whether requests are kept for `TakeAsked`.
  bool Keeps = false;

  ptzd::InternetHandle OpenSession(const std::string&, std::uint32_t) override { return AnyHandle; }
  bool SetOption(ptzd::InternetHandle, std::uint32_t, std::uint32_t) override { return true; }
  bool CrackUrl(const std::string& url, ptzd::UrlComponents& components) override {
    return ptzd::SystemInternet().CrackUrl(url, components);
  }
  ptzd::InternetHandle Connect(ptzd::InternetHandle, const std::string&, std::uint16_t, const std::string&,
                               const std::string&, std::int32_t, std::uint32_t, std::uintptr_t) override {
    return AnyHandle;
  }
  void SetStatusCallback(ptzd::InternetHandle, ptzd::InternetStatusCallback) override {}
  ptzd::InternetHandle OpenRequest(ptzd::InternetHandle, const std::string&, const std::string& object,
                                   std::uint32_t, std::uintptr_t) override {
    if (Keeps) Asked_.push_back(object);
    const auto page = std::ranges::find_if(
        Pages_, [&](const Page& candidate) { return object.find(candidate.Part) != object.npos; });
    Rest_ = page == Pages_.end() ? std::string_view() : std::string_view(page->Body);
    return AnyHandle;
  }
  bool SendRequest(ptzd::InternetHandle, const std::string&, std::span<const std::uint8_t>) override {
    return true;
  }
  std::optional<std::uint64_t> QueryContentLength(ptzd::InternetHandle) override {
    return static_cast<std::uint32_t>(Rest_.size());
  }
  std::uint32_t QueryOutcome(ptzd::InternetHandle) override { return ptzd::SystemErrorNone; }
  bool QueryRawHeaders(ptzd::InternetHandle, std::span<char> buffer, std::uint32_t& length) override {
    length = static_cast<std::uint32_t>(Headers.copy(buffer.data(), buffer.size()));
    return true;
  }
  bool QueryDataAvailable(ptzd::InternetHandle, std::uint32_t& available) override {
    available = static_cast<std::uint32_t>(Rest_.size());
    return true;
  }
  bool Read(ptzd::InternetHandle, std::span<std::uint8_t> buffer, std::uint32_t& length) override {
    length = static_cast<std::uint32_t>(std::min(buffer.size(), Rest_.size()));
    std::copy_n(Rest_.begin(), length, buffer.begin());
    Rest_.remove_prefix(length);
    return true;
  }
  bool GetLastResponseInfo(std::span<char>, std::uint32_t& length) override {
    length = 0;
    return true;
  }
  bool CloseHandle(ptzd::InternetHandle) override { return true; }
  std::uint32_t LastError() override { return ptzd::SystemErrorNone; }
  std::size_t OpenHandles() override { return 0; }

 private:
  static constexpr ptzd::InternetHandle AnyHandle = 1;
  static constexpr std::string_view Headers =
      "HTTP/1.1 200 OK\r\nServer: camera\r\nConnection: keep-alive\r\nContent-Type: text/plain\r\n\r\n";

  std::span<const Page> Pages_;
  std::string_view Rest_;  ///< of the body of the last request
  std::vector<std::string> Asked_;
};
