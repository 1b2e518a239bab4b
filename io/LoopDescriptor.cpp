#include "io/LoopDescriptor.h"

#include <asio/posix/stream_descriptor.hpp>
#include <utility>

#include "io/IoLoop.h"
#include "io/WaitRoom.h"

struct LoopDescriptor::State {
  explicit State(asio::io_context& io) : stream(io) {}
  ~State() {
    if (isBorrowed && stream.is_open()) {
      stream.release();
    }
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  asio::posix::stream_descriptor stream;
  std::shared_ptr<WaitRoom> room = std::make_shared<WaitRoom>();
  bool isBorrowed = false;
};

LoopDescriptor::LoopDescriptor(IoLoop& loop)
    : m_loop(loop), m_state(std::make_shared<State>(loop.Io())) {}

LoopDescriptor::~LoopDescriptor() = default;

void LoopDescriptor::Take(Descriptor descriptor) {
  if (m_state == nullptr) {
    m_state = std::make_shared<State>(m_loop.Io());
  }
  m_state->stream.assign(descriptor.Get());
  static_cast<void>(descriptor.Release());
}

void LoopDescriptor::Borrow(int descriptor) {
  if (m_state == nullptr) {
    m_state = std::make_shared<State>(m_loop.Io());
  }
  m_state->stream.assign(descriptor);
  m_state->isBorrowed = true;
}

int LoopDescriptor::Release() {
  if (Get() < 0) {
    return -1;
  }
  // What the library still has to say of it finds no state. A new one is made when it is needed:
  // destructors come here.
  return std::exchange(m_state, nullptr)->stream.release();
}

int LoopDescriptor::Get() const {
  return m_state != nullptr && m_state->stream.is_open() ? m_state->stream.native_handle() : -1;
}

void LoopDescriptor::OnReadable(std::function<void()> action) {
  if (m_state == nullptr) {
    return;
  }
  m_state->stream.async_wait(
      asio::posix::stream_descriptor::wait_read,
      InRoom(m_state->room,
             [weak = std::weak_ptr(m_state), action = std::move(action)](asio::error_code error) {
               if (!weak.expired() && !error) {
                 action();
               }
             }));
}
