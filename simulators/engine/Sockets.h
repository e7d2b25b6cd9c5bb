#pragma once

// Inside the engine only: this header pulls in Boost.

#include <boost/asio/ip/tcp.hpp>
#include <functional>

namespace ptzsim {

/// Asio's own sockets are inherited by programs that a test starts, which then hold ports and connections
/// that are closed here. These are made so that they are not, where the system can.

/// Throws std::runtime_error when the system has no socket left.
void OpenSocket(boost::asio::ip::tcp::acceptor& acceptor);
void OpenSocket(boost::asio::ip::tcp::socket& socket);

/// Calls `accepted` once, from the acceptor's executor, with the next connection or the error in its place.
void AcceptSocket(
    boost::asio::ip::tcp::acceptor& acceptor,
    std::function<void(const boost::system::error_code&, boost::asio::ip::tcp::socket)> accepted);

/// Closes, even where a child process that is being forked just now has a copy.
void CloseAcceptor(boost::asio::ip::tcp::acceptor& acceptor);

}  // namespace ptzsim
