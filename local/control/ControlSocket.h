#pragma once

#include <asio/local/stream_protocol.hpp>
#include <utility>

#include "local/control/ControlConnection.h"

/// A client's socket. Seen by the server, which accepts it, and the connection, which keeps it.
struct ControlConnection::Socket {
  explicit Socket(asio::local::stream_protocol::socket accepted) : stream(std::move(accepted)) {}

  asio::local::stream_protocol::socket stream;
};
