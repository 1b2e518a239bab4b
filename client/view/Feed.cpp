#include "client/view/Feed.h"

#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <utility>

#include "client/ask/Errors.h"
#include "client/view/Looker.h"

namespace {

/// A first look says little: the one behind it comes this soon.
constexpr std::chrono::milliseconds kSecondLook{500};
/// A daemon that is started anew is seen this soon, however long the pace.
constexpr std::chrono::milliseconds kNextTry{5000};

Descriptor MakeEvent() {
  Descriptor event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!event.IsOpen()) {
    throw ClientError("cannot make an event for a thread");
  }
  return event;
}

void Set(const Descriptor& event) {
  const std::uint64_t one = 1;
  static_cast<void>(!::write(event.Get(), &one, sizeof(one)));
}

/// Signals are the screen's alone; but one that tells of a crash ends the program at once where it
/// is blocked, and the terminal would stay as it is.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    for (const int crash : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
      sigdelset(&all, crash);
    }
    static_cast<void>(::pthread_sigmask(SIG_SETMASK, &all, &m_before));
  }
  ~SignalsBlocked() { static_cast<void>(::pthread_sigmask(SIG_SETMASK, &m_before, nullptr)); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t m_before{};
};

}  // namespace

Feed::Feed(std::string socket, double every)
    : m_socket(std::move(socket)), m_ready(MakeEvent()), m_stop(MakeEvent()), m_pace(every) {
  const SignalsBlocked blocked;
  m_thread = std::thread([this] { Run(); });
}

Feed::~Feed() {
  {
    const std::lock_guard lock(m_mutex);
    m_isEnding = true;
  }
  Set(m_stop);
  m_changed.notify_all();
  m_thread.join();
}

void Feed::Ask(Wish wish) {
  {
    const std::lock_guard lock(m_mutex);
    m_wish = std::move(wish);
  }
  m_changed.notify_all();
}

void Feed::SetPaused(bool isPaused) {
  {
    const std::lock_guard lock(m_mutex);
    m_isPaused = isPaused;
  }
  m_changed.notify_all();
}

void Feed::SetEvery(double seconds) {
  const Pace pace(seconds);
  {
    const std::lock_guard lock(m_mutex);
    m_pace = pace;
  }
  m_changed.notify_all();
}

std::unique_ptr<Sight> Feed::Take() {
  std::uint64_t count = 0;
  static_cast<void>(!::read(m_ready.Get(), &count, sizeof(count)));
  const std::lock_guard lock(m_mutex);
  return std::move(m_sight);
}

std::chrono::seconds Feed::Waiting() const {
  const std::lock_guard lock(m_mutex);
  return m_askedAt ? std::chrono::duration_cast<std::chrono::seconds>(
                         std::chrono::steady_clock::now() - *m_askedAt)
                   : std::chrono::seconds(0);
}

std::optional<Wish> Feed::AwaitWish(std::uint64_t done, Outcome last) {
  std::unique_lock lock(m_mutex);
  auto beat = m_pace.Next();
  if (last != Outcome::kWhole) {
    const std::chrono::milliseconds soon = last == Outcome::kFirst ? kSecondLook : kNextTry;
    beat = std::min(beat, std::chrono::steady_clock::now() + soon);
  }
  while (!m_isEnding && (!m_wish || m_wish->number == done)) {
    const bool looks =
        m_wish && (last == Outcome::kFailed || (m_wish->moment == Moment::kNow && !m_isPaused));
    if (!looks) {
      m_changed.wait(lock);
    } else if (m_changed.wait_until(lock, beat) == std::cv_status::timeout) {
      break;
    }
    // The pace may be another one by now.
    beat = std::min(beat, m_pace.Next());
  }
  if (m_isEnding) {
    return std::nullopt;
  }
  m_askedAt = std::chrono::steady_clock::now();
  return m_wish;
}

void Feed::Give(std::unique_ptr<Sight> sight) {
  {
    const std::lock_guard lock(m_mutex);
    m_sight = std::move(sight);
    m_askedAt.reset();
  }
  Set(m_ready);
}

void Feed::Run() {
  std::unique_ptr<Looker> looker;
  std::uint64_t done = 0;
  Outcome last = Outcome::kWhole;
  while (true) {
    const std::optional<Wish> wish = AwaitWish(done, last);
    if (!wish) {
      return;
    }
    done = wish->number;
    auto sight = std::make_unique<Sight>();
    try {
      if (looker == nullptr) {
        looker = std::make_unique<Looker>(m_socket, m_stop.Get());
      }
      *sight = looker->Look(*wish);
    } catch (const Interrupted&) {
      return;
    } catch (const std::exception& error) {
      // The next beat connects anew: a daemon comes and goes.
      looker.reset();
      *sight = Sight();
      sight->failure = error.what();
    }
    last = !sight->failure.empty() ? Outcome::kFailed
           : sight->isFirst        ? Outcome::kFirst
                                   : Outcome::kWhole;
    sight->wish = wish->number;
    Give(std::move(sight));
  }
}
