#include "io/LoopTimer.h"

#include <array>
#include <asio/steady_timer.hpp>
#include <cstdint>
#include <utility>

#include "io/IoLoop.h"
#include "io/WaitRoom.h"

struct LoopTimer::State {
  explicit State(asio::io_context& io) : timer(io) {}

  asio::steady_timer timer;
  /// Two by turns: a wait that was cancelled in this turn of the loop still has its own.
  std::array<std::shared_ptr<WaitRoom>, 2> rooms{std::make_shared<WaitRoom>(),
                                                 std::make_shared<WaitRoom>()};
  /// The library may have the end of an earlier wait ready when the next one begins.
  std::uint64_t wait = 0;
  std::uint64_t uses = 0;
  std::function<void()> action;
};

LoopTimer::LoopTimer(IoLoop& loop) : m_state(std::make_shared<State>(loop.Io())) {}

LoopTimer::~LoopTimer() { Cancel(); }

void LoopTimer::At(Clock::time_point time, std::function<void()> action) {
  m_state->timer.expires_at(time);
  m_state->action = std::move(action);
  m_state->timer.async_wait(
      InRoom(m_state->rooms[m_state->uses++ % 2],
             [weak = std::weak_ptr(m_state), wait = ++m_state->wait](auto error) {
               const std::shared_ptr<State> state = weak.lock();
               if (state != nullptr && state->wait == wait && !error) {
                 // It may wait anew, or free the timer.
                 const std::function<void()> due = std::exchange(state->action, nullptr);
                 due();
               }
             }));
}

void LoopTimer::Cancel() {
  ++m_state->wait;
  m_state->action = nullptr;
  m_state->timer.cancel();
}
