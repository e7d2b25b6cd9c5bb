// The parts of Boost that are not templates, compiled once for all of the gateway.
#include <boost/asio/impl/src.hpp>
#include <boost/asio/ssl/impl/src.hpp>
#include <boost/beast/src.hpp>
