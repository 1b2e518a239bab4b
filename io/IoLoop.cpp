#include "io/IoLoop.h"

#include <asio/io_context.hpp>

IoLoop::IoLoop() : m_io(std::make_unique<asio::io_context>(1)) {}

IoLoop::~IoLoop() = default;
