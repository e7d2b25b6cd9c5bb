#pragma once

// Inside of `HTTPClient`: what its source files share.

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include <ptzd/Error.h>
#include <ptzd/Logging.h>
#include "common/ComposedLog.h"
#include "transport/HTTPClient.h"

namespace ptzd {

enum HTTPError : std::int32_t {
  HTTPErrorNoSession = 13101,
  HTTPErrorNoRequest = 13102,
  HTTPErrorNoServer = 13104,
  HTTPErrorBrokenOff = 13106,
  HTTPErrorCancelled = 13107,
};

inline void LogStep(std::string_view text) { LogMessage(text, LogLevel::Debug); }
/// The same with a text that is made only where somebody takes it.
template <std::invocable Compose>
void LogStep(const Compose& compose) {
  LogComposed(compose, LogLevel::Debug);
}

/// Errors of the client name no source.
[[noreturn]] inline void Fail(std::int32_t number, std::string description) {
  throw Error(number, std::move(description), "");
}

/// A request and its connection, closed request first.
struct HTTPClient::Handles {
  explicit Handles(ptzd::Internet& layer) : Layer(layer) {}
  ~Handles() {
    if (Request != 0) Layer.CloseHandle(Request);
    if (Connection != 0) Layer.CloseHandle(Connection);
  }
  Handles(const Handles&) = delete;
  Handles& operator=(const Handles&) = delete;

  ptzd::Internet& Layer;
  InternetHandle Connection = 0;
  InternetHandle Request = 0;
  std::int64_t ContentLength = -1;  ///< -1: not announced
  OpenExchange* Told = nullptr;     ///< null where nobody listens
};

}  // namespace ptzd
