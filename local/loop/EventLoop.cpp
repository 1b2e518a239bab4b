#include "local/loop/EventLoop.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <new>
#include <system_error>
#include <utility>

#include "io/WaitRoom.h"

namespace {

using Clock = std::chrono::steady_clock;

// A turn handles no more callbacks than these, so that a busy client can't hold up the queue.
constexpr int kCallbacksATurn = 64;

// Plain atomics without a constructor at run time: a signal may come before any object is made.
constinit std::atomic<bool> g_stopRequested{false};
constinit std::atomic<int> g_wakeDescriptor{-1};
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free);

int MakeWakeDescriptor() {
  const int descriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (descriptor < 0) {
    throw std::system_error(errno, std::generic_category(), "eventfd");
  }
  return descriptor;
}

/// What is done for want of memory may want some itself, and then ends there.
void DoWithoutMemory(const std::function<void()>& action) {
  if (action) {
    try {
      action();
    } catch (const std::bad_alloc&) {
    }
  }
}

/// Restores a value at the end of a scope, also when an exception passes.
template <class T>
class Restore {
 public:
  Restore(T& place, T value) : m_place(place), m_former(std::exchange(place, value)) {}
  ~Restore() { m_place = m_former; }
  Restore(const Restore&) = delete;
  Restore& operator=(const Restore&) = delete;

 private:
  T& m_place;
  T m_former;
};

}  // namespace

void EventLoop::RequestStop() noexcept {
  const int savedErrno = errno;
  g_stopRequested.store(true);
  const int descriptor = g_wakeDescriptor.load();
  if (descriptor >= 0) {
    const std::uint64_t one = 1;
    // A full counter wakes the loop just as well.
    [[maybe_unused]] const ssize_t written = ::write(descriptor, &one, sizeof one);
  }
  errno = savedErrno;
}

bool EventLoop::IsStopRequested() noexcept { return g_stopRequested.load(); }

struct EventLoop::Library {
  explicit Library(asio::io_context& io)
      : work(io.get_executor()), wakeUp(io, MakeWakeDescriptor()) {}

  asio::executor_work_guard<asio::io_context::executor_type> work;
  asio::posix::stream_descriptor wakeUp;
  std::shared_ptr<WaitRoom> room = std::make_shared<WaitRoom>();
};

EventLoop::EventLoop() : m_library(std::make_unique<Library>(Io())) {
  // A loop that is made beside the one that runs, for a look at settings, is woken by no signal.
  int none = -1;
  g_wakeDescriptor.compare_exchange_strong(none, m_library->wakeUp.native_handle());
  WatchWakeUps();
}

EventLoop::~EventLoop() {
  int own = m_library->wakeUp.native_handle();
  g_wakeDescriptor.compare_exchange_strong(own, -1);
  m_queue.clear();
  FreeRetired();
}

void EventLoop::WatchWakeUps() {
  m_library->wakeUp.async_wait(
      asio::posix::stream_descriptor::wait_read, InRoom(m_library->room, [this](auto error) {
        if (error) {
          return;
        }
        std::uint64_t count = 0;
        [[maybe_unused]] const ssize_t got =
            ::read(m_library->wakeUp.native_handle(), &count, sizeof count);
        WatchWakeUps();
      }));
}

void EventLoop::Run(CMBNode& node) {
  {
    const Restore<CMBNode*> restore(m_node, &node);
    while (!IsStopRequested()) {
      if (m_queue.empty()) {
        WaitForIo();
      }
      PollIo();
      if (!m_queue.empty() && !IsStopRequested()) {
        LoopTask task = std::move(m_queue.front());
        m_queue.pop_front();
        Deliver(std::move(task));
      }
    }
  }
  DropWaiting();
  g_stopRequested.store(false);
}

void EventLoop::Try(const std::function<void()>& step) {
  try {
    step();
  } catch (const std::bad_alloc&) {
    DoWithoutMemory(m_onNoMemory);
  }
}

void EventLoop::WaitForIo() {
  Try([this] { Io().run_one(); });
}

void EventLoop::WaitForIoUntil(Clock::time_point deadline) {
  Try([this, &deadline] { Io().run_one_until(deadline); });
}

void EventLoop::Yield(long seconds) {
  if (m_depth != 1) {
    return;
  }
  constexpr long kLongest = 3600;
  const auto deadline = Clock::now() + std::chrono::seconds(std::clamp(seconds, 0L, kLongest));
  bool isBusy = true;
  do {
    const bool hadIo = PollIo();
    const bool hadTasks = DeliverWaiting(false);
    isBusy = hadIo || hadTasks;
  } while (isBusy && !IsStopRequested() && Clock::now() < deadline);
}

bool EventLoop::Hold(long seconds) {
  if (m_depth != 1) {
    return false;
  }
  const auto deadline = Clock::now() + std::chrono::seconds(seconds);
  while (!IsStopRequested() && Clock::now() < deadline) {
    const bool hadIo = PollIo();
    if (!DeliverWaiting(true) && !hadIo && !IsStopRequested()) {
      WaitForIoUntil(deadline);
    }
  }
  return !IsStopRequested();
}

bool EventLoop::PollIo() {
  int handled = 0;
  while (handled < kCallbacksATurn && PollOne()) {
    ++handled;
  }
  return handled != 0;
}

bool EventLoop::PollOne() {
  try {
    return Io().poll_one() != 0;
  } catch (const std::bad_alloc&) {
    DoWithoutMemory(m_onNoMemory);
    return true;
  }
}

bool EventLoop::DeliverWaiting(bool withBatches) {
  const auto isEvent = [withBatches](const LoopTask& task) { return withBatches || !task.isBatch; };
  // What these tasks put into the queue is left for the next turn.
  const auto waiting = std::count_if(m_queue.begin(), m_queue.end(), isEvent);
  for (auto left = waiting; left > 0 && !IsStopRequested(); --left) {
    const auto place = std::find_if(m_queue.begin(), m_queue.end(), isEvent);
    if (place == m_queue.end()) {
      break;
    }
    LoopTask task = std::move(*place);
    m_queue.erase(place);
    Deliver(std::move(task));
  }
  return waiting != 0;
}

void EventLoop::Deliver(LoopTask task) {
  {
    const Restore<int> restore(m_depth, m_depth + 1);
    if (task.run) {
      try {
        task.run(*m_node);
      } catch (const std::bad_alloc&) {
        // Who waits comes before the words on it.
        DoWithoutMemory(task.fail);
        DoWithoutMemory(m_onNoMemory);
      }
    }
  }
  if (m_depth == 0) {
    FreeRetired();
  }
}

void EventLoop::Retire(std::shared_ptr<void> object) {
  m_retired.push_back(std::move(object));
  if (m_depth == 0) {
    FreeRetired();
  }
}

void EventLoop::FreeRetired() {
  // A destructor may retire further objects.
  while (!m_retired.empty()) {
    std::vector<std::shared_ptr<void>> objects;
    objects.swap(m_retired);
    objects.clear();
  }
}

void EventLoop::DropWaiting() {
  // What is dropped may queue what stood behind it, such as a client's next line.
  while (!m_queue.empty()) {
    const LoopTask task = std::move(m_queue.front());
    m_queue.pop_front();
    if (task.drop) {
      Try(task.drop);
    }
  }
}

void EventLoop::Pump(Clock::duration limit, const std::function<bool()>& isDone) {
  const auto deadline = Clock::now() + limit;
  while (!isDone() && Clock::now() < deadline) {
    WaitForIoUntil(deadline);
  }
}
