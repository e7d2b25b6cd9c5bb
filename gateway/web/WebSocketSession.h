#pragma once

#include <memory>
#include <string>

#include "gateway/web/Connection.h"
#include "gateway/web/Message.h"
#include "gateway/web/WebSocket.h"

namespace ptzgate {

struct ServerState;

/// A connection that is to go on as a WebSocket.
std::shared_ptr<Protocol> MakeWebSocketSession(std::shared_ptr<ServerState> server,
                                               std::shared_ptr<Connection> connection,
                                               const std::shared_ptr<WebSocket>& socket,
                                               const Request& request, const std::string& protocol);

}  // namespace ptzgate
