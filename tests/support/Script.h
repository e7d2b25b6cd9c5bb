#pragma once

#include <string>

#include "simulators/engine/Message.h"
#include "simulators/engine/RequestLog.h"

namespace ptzd::test {

/// What a camera was sent, a line each: "GET /a?b" or "POST /a body", and the bytes in hexadecimal where it
/// does not speak HTTP.
inline std::string Script(const ptzsim::RequestLog& log) {
  std::string script;
  for (const auto& request : log.Requests()) {
    if (request.Method.empty())
      script += ptzsim::Hex(request.Raw);
    else
      script += request.Method + " " + request.Target + (request.Body.empty() ? "" : " ") + request.Body;
    script += "\n";
  }
  return script;
}

}  // namespace ptzd::test
