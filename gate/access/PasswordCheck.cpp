#include "gate/access/PasswordCheck.h"

#include <crypt.h>
#include <gnutls/gnutls.h>
#include <signal.h>

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <list>
#include <mutex>
#include <new>
#include <string_view>
#include <thread>
#include <utility>

namespace {

/// Before what lacked memory is tried again.
constexpr std::chrono::milliseconds kMemoryPause{100};

struct WipeCrypt {
  void operator()(crypt_data* data) const {
    ::explicit_bzero(data, sizeof *data);
    delete data;
  }
};

bool IsRightSecret(const std::string& secret, const std::string& hash) {
  const std::unique_ptr<crypt_data, WipeCrypt> data(new crypt_data{});
  errno = 0;
  const char* made = ::crypt_r(secret.c_str(), hash.c_str(), data.get());
  const std::string_view text(made == nullptr ? "*" : made);
  // "*" begins what crypt(3) tells a failure by. The form of the hash was looked at when it was
  // read, so that EINVAL, too, is what a method says that has no memory.
  if (text.starts_with('*') && (errno == ENOMEM || errno == EINVAL)) {
    throw std::bad_alloc();
  }
  return !text.starts_with('*') && text.size() == hash.size() &&
         gnutls_memcmp(text.data(), hash.data(), hash.size()) == 0;
}

/// The same, tried again where memory lacks; nothing if it goes on lacking.
std::optional<bool> TryIsRightSecret(const std::string& secret, const std::string& hash) {
  constexpr int kTries = 3;
  for (int count = 1; count <= kTries; ++count) {
    try {
      return IsRightSecret(secret, hash);
    } catch (const std::bad_alloc&) {
      std::this_thread::sleep_for(kMemoryPause);
    }
  }
  return std::nullopt;
}

/// Runs on a thread that nobody waits for and that takes no signal: those are the loop's.
void RunDetached(std::function<void()> work) {
  sigset_t all;
  sigset_t before;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  try {
    std::thread(std::move(work)).detach();
  } catch (...) {
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    throw;
  }
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace

class PasswordCheck::Worker {
 public:
  Worker(Poster post, std::chrono::milliseconds pause, std::size_t mostWaiting)
      : m_post(std::move(post)), m_pause(pause), m_mostWaiting(mostWaiting) {}

  [[nodiscard]] bool Add(std::string secret, std::string hash, Done done);
  void End();
  /// Returns once it was told to end.
  void Work();

 private:
  struct Job {
    std::string secret;
    std::string hash;
    std::shared_ptr<Done> done;
  };

  void Tell(std::unique_lock<std::mutex>& lock, const std::shared_ptr<Done>& done,
            std::optional<bool> isRight);

  const Poster m_post;
  const std::chrono::milliseconds m_pause;
  const std::size_t m_mostWaiting;
  std::mutex m_mutex;
  std::condition_variable m_wake;
  std::list<Job> m_jobs;
  bool m_isEnding = false;
};

bool PasswordCheck::Worker::Add(std::string secret, std::string hash, Done done) {
  auto shared = std::make_shared<Done>(std::move(done));
  {
    const std::scoped_lock lock(m_mutex);
    if (m_jobs.size() >= m_mostWaiting) {
      return false;
    }
    m_jobs.push_back({std::move(secret), std::move(hash), std::move(shared)});
  }
  m_wake.notify_one();
  return true;
}

void PasswordCheck::Worker::End() {
  // A list, as that takes no memory while it is empty.
  std::list<Job> dropped;
  {
    const std::scoped_lock lock(m_mutex);
    m_isEnding = true;
    dropped.swap(m_jobs);
  }
  m_wake.notify_one();
}

void PasswordCheck::Worker::Work() {
  std::chrono::steady_clock::time_point next;
  std::unique_lock lock(m_mutex);
  for (;;) {
    m_wake.wait(lock, [this] { return m_isEnding || !m_jobs.empty(); });
    m_wake.wait_until(lock, next, [this] { return m_isEnding; });
    if (m_isEnding) {
      return;
    }
    Job job = std::move(m_jobs.front());
    m_jobs.pop_front();
    lock.unlock();
    next = std::chrono::steady_clock::now() + m_pause;
    const std::optional<bool> isRight = TryIsRightSecret(job.secret, job.hash);
    ::explicit_bzero(job.secret.data(), job.secret.size());
    lock.lock();
    Tell(lock, job.done, isRight);
  }
}

void PasswordCheck::Worker::Tell(std::unique_lock<std::mutex>& lock,
                                 const std::shared_ptr<Done>& done, std::optional<bool> isRight) {
  // Under the lock: behind End() the loop may be gone.
  for (bool isTold = false; !isTold && !m_isEnding;) {
    try {
      m_post([done, isRight] { (*done)(isRight); });
      isTold = true;
    } catch (const std::bad_alloc&) {
      m_wake.wait_for(lock, kMemoryPause, [this] { return m_isEnding; });
    }
  }
}

PasswordCheck::PasswordCheck(Poster post, std::chrono::milliseconds pause, std::size_t mostWaiting)
    : m_worker(std::make_shared<Worker>(std::move(post), pause, mostWaiting)) {
  RunDetached([worker = m_worker] { worker->Work(); });
}

PasswordCheck::~PasswordCheck() { m_worker->End(); }

bool PasswordCheck::Check(std::string secret, std::string hash, Done done) {
  return m_worker->Add(std::move(secret), std::move(hash), std::move(done));
}
