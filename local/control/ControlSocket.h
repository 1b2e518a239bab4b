#pragma once

#include <asio/local/stream_protocol.hpp>

/// A client's socket. Seen by the server, which accepts it, and the connection, which keeps it.
struct ControlConnection::Socket {
  asio::local::stream_protocol::socket stream;
};
