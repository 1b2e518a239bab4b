#include "local/loop/EventTimers.h"

#include <algorithm>
#include <asio/steady_timer.hpp>
#include <asio/system_timer.hpp>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <new>

#include "io/WaitRoom.h"

namespace {

// Longer times would overflow the clocks' nanoseconds.
constexpr long kLongestPeriod = 50L * 365 * 86400;
constexpr long kLatestTime = 8'000'000'000;

bool IsBatch(const CMBEvent& event) {
  return std::strcmp(event.IsA(), CMBMultipleRecordRequestEvent().IsA()) == 0;
}

}  // namespace

struct EventTimers::Entry {
  explicit Entry(asio::io_context& io) : first(io), next(io) {}

  std::unique_ptr<CMBEvent> event;
  std::chrono::seconds period{0};
  int left = 0;  ///< deliveries after the next; -1 = without end
  asio::system_timer first;
  asio::steady_timer next;
  std::shared_ptr<WaitRoom> room = std::make_shared<WaitRoom>();
  bool isWaiting = false;  ///< a delivery stands in the queue
  bool isCancelled = false;
};

EventTimers::EventTimers(EventLoop& loop) : m_loop(loop) {}
EventTimers::~EventTimers() = default;

std::vector<std::shared_ptr<EventTimers::Entry>>::iterator EventTimers::Find(
    const CMBEvent* event) {
  return std::find_if(
      m_entries.begin(), m_entries.end(),
      [event](const std::shared_ptr<Entry>& entry) { return entry->event.get() == event; });
}

int EventTimers::Schedule(CMBEvent* event, long period, int repeat, long firstTime) {
  if (event == nullptr || repeat < -1 || (repeat != 0 && period < 1) ||
      Find(event) != m_entries.end()) {
    return EINVAL;
  }
  auto entry = std::make_shared<Entry>(m_loop.Io());
  entry->event.reset(event);
  entry->period = std::chrono::seconds(std::clamp(period, 0L, kLongestPeriod));
  entry->left = repeat;
  m_entries.push_back(entry);

  entry->first.expires_at(
      std::chrono::system_clock::from_time_t(std::clamp(firstTime, 0L, kLatestTime)));
  entry->first.async_wait([this, weak = std::weak_ptr<Entry>(entry)](asio::error_code error) {
    const std::shared_ptr<Entry> due = weak.lock();
    if (due && !due->isCancelled && !error) {
      due->next.expires_at(std::chrono::steady_clock::now());
      OnDue(due);
    }
  });
  return 0;
}

void EventTimers::OnDue(const std::shared_ptr<Entry>& entry) {
  try {
    PostEvent(entry);
  } catch (const std::bad_alloc&) {
    // The next delivery is due all the same.
    WaitForNext(entry);
    throw;
  }
  WaitForNext(entry);
}

void EventTimers::PostEvent(const std::shared_ptr<Entry>& entry) {
  if (entry->isWaiting) {
    return;
  }
  LoopTask task;
  task.isBatch = IsBatch(*entry->event);
  task.run = [weak = std::weak_ptr<Entry>(entry)](CMBNode& node) {
    const std::shared_ptr<Entry> due = weak.lock();
    if (due && !due->isCancelled) {
      due->isWaiting = false;
      node.Dispatch(due->event.get());
    }
  };
  m_loop.Post(std::move(task));
  entry->isWaiting = true;
}

void EventTimers::WaitForNext(const std::shared_ptr<Entry>& entry) {
  if (entry->left == 0) {
    return;
  }
  if (entry->left > 0) {
    --entry->left;
  }
  // Times that have passed meanwhile are left out.
  const auto late = std::chrono::steady_clock::now() - entry->next.expiry();
  entry->next.expires_at(entry->next.expiry() + entry->period * (late / entry->period + 1));
  entry->next.async_wait(
      InRoom(entry->room, [this, weak = std::weak_ptr<Entry>(entry)](asio::error_code error) {
        const std::shared_ptr<Entry> due = weak.lock();
        if (due && !due->isCancelled && !error) {
          OnDue(due);
        }
      }));
}

int EventTimers::Cancel(const CMBEvent* event, bool destroy) {
  const auto place = Find(event);
  if (event == nullptr || place == m_entries.end()) {
    return 1;
  }
  const std::shared_ptr<Entry> entry = *place;
  m_entries.erase(place);
  entry->isCancelled = true;
  entry->first.cancel();
  entry->next.cancel();
  if (destroy) {
    m_loop.Retire(std::shared_ptr<CMBEvent>(std::move(entry->event)));
  } else {
    // The caller owns it from now on.
    static_cast<void>(entry->event.release());
  }
  return 0;
}
