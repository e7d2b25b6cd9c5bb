#pragma once

#include <ptzd/Error.h>

#include <cstdint>
#include <span>
#include <string>

#include "platform/Socket.h"
#include "transport/Teller.h"

namespace ptzd {

/// Does something on a line that does not answer, and tells it: `act` sends the bytes, or opens the line
/// where there are none. Answers what `act` does, the system's error number or 0, and raises what it raises;
/// both are told.
template <typename Act>
std::int32_t TellLine(const Teller& teller, ExchangeLink link, const std::string& where,
                      std::span<const std::uint8_t> bytes, const Act& act) {
  const auto told = teller.Begin(link);
  if (!told) return act();
  told->Told().Where = where;
  told->Told().Sent.assign(bytes.begin(), bytes.end());
  const auto fail = [&](std::int32_t number, const std::string& text) {
    told->Fail(number, text);
    told->TakeFailure(bytes.empty() ? LinkFailure::NotConnected : LinkFailure::Closed);
  };
  try {
    const std::int32_t error = act();
    if (error != 0) fail(error, SocketErrorText(error));
    told->TellEnded();
    return error;
  } catch (const Error& error) {
    fail(error.Number(), error.Description());
    told->TellEnded();
    throw;
  }
}

}  // namespace ptzd
