#include "gate/access/PasswordCheck.h"

#include <crypt.h>
#include <gnutls/gnutls.h>
#include <signal.h>

#include <condition_variable>
#include <cstring>
#include <list>
#include <mutex>
#include <string_view>
#include <thread>
#include <utility>

namespace {

struct WipeCrypt {
  void operator()(crypt_data* data) const {
    ::explicit_bzero(data, sizeof *data);
    delete data;
  }
};

bool IsRightSecret(const std::string& secret, const std::string& hash) {
  const std::unique_ptr<crypt_data, WipeCrypt> data(new crypt_data{});
  const char* made = ::crypt_r(secret.c_str(), hash.c_str(), data.get());
  if (made == nullptr) {
    return false;
  }
  const std::string_view text(made);
  // "*" begins what crypt(3) tells a failure by.
  return !text.starts_with('*') && text.size() == hash.size() &&
         gnutls_memcmp(text.data(), hash.data(), hash.size()) == 0;
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
    Done done;
  };

  const Poster m_post;
  const std::chrono::milliseconds m_pause;
  const std::size_t m_mostWaiting;
  std::mutex m_mutex;
  std::condition_variable m_wake;
  std::list<Job> m_jobs;
  bool m_isEnding = false;
};

bool PasswordCheck::Worker::Add(std::string secret, std::string hash, Done done) {
  {
    const std::scoped_lock lock(m_mutex);
    if (m_jobs.size() >= m_mostWaiting) {
      return false;
    }
    m_jobs.push_back({std::move(secret), std::move(hash), std::move(done)});
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
    const bool isRight = IsRightSecret(job.secret, job.hash);
    ::explicit_bzero(job.secret.data(), job.secret.size());
    lock.lock();
    // Under the lock: behind End() the loop may be gone.
    if (!m_isEnding) {
      m_post([done = std::move(job.done), isRight] { done(isRight); });
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
