#pragma once

// Inside of `HTTPClient`: what its source files share.

#include <cstdint>
#include <string>
#include <utility>

#include <ptzd/Error.h>
#include "transport/HTTPClient.h"

namespace ptzd {

enum HTTPError : std::int32_t {
  HTTPErrorNoSession = 13101,
  HTTPErrorNoRequest = 13102,
  HTTPErrorNoServer = 13104,
  HTTPErrorBrokenOff = 13106,
  HTTPErrorCancelled = 13107,
};

/// Errors of the client name no source.
[[noreturn]] inline void Fail(std::int32_t number, std::string description) {
  throw Error(number, std::move(description), "");
}

/// A request and its connection, closed request first.
struct HTTPClient::Exchange {
  explicit Exchange(ptzd::Internet& layer) : Layer(layer) {}
  ~Exchange() {
    if (Request != 0) Layer.CloseHandle(Request);
    if (Connection != 0) Layer.CloseHandle(Connection);
  }
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;

  ptzd::Internet& Layer;
  InternetHandle Connection = 0;
  InternetHandle Request = 0;
  std::int64_t ContentLength = -1;  ///< -1: not announced
};

}  // namespace ptzd
