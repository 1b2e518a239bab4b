#include "io/IoLoop.h"

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <vector>

namespace {

/// The library's table of waits for a time grows with the greatest number of them: it is made for
/// as many as there can be, so that none fails for want of memory.
void MakeRoomForTimes(asio::io_context& io) {
  constexpr std::size_t kTimes = 1024;
  {
    std::vector<asio::steady_timer> timers;
    timers.reserve(kTimes);
    for (std::size_t count = 0; count < kTimes; ++count) {
      timers.emplace_back(io, std::chrono::hours(1));
      timers.back().async_wait([](asio::error_code) {});
    }
  }
  io.poll();
  io.restart();
}

}  // namespace

IoLoop::IoLoop() : m_io(std::make_unique<asio::io_context>(1)) { MakeRoomForTimes(*m_io); }

IoLoop::~IoLoop() = default;
