#include "gate/access/PasswordCheck.h"

#include <crypt.h>
#include <gnutls/gnutls.h>
#include <signal.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

namespace {

constexpr std::size_t kMaxJobs = 32;

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

/// A thread that takes no signal: those are the loop's.
std::thread StartQuietly(std::function<void()> work) {
  sigset_t all;
  sigset_t before;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  std::thread thread(std::move(work));
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return thread;
}

}  // namespace

PasswordCheck::PasswordCheck(Poster post, std::chrono::milliseconds pause)
    : m_post(std::move(post)), m_pause(pause), m_thread(StartQuietly([this] { Work(); })) {}

PasswordCheck::~PasswordCheck() {
  {
    const std::scoped_lock lock(m_mutex);
    m_isEnding = true;
  }
  m_wake.notify_one();
  m_thread.join();
}

bool PasswordCheck::Check(std::string secret, std::string hash, Done done) {
  {
    const std::scoped_lock lock(m_mutex);
    if (m_jobs.size() >= kMaxJobs) {
      return false;
    }
    m_jobs.push_back({std::move(secret), std::move(hash), std::move(done)});
  }
  m_wake.notify_one();
  return true;
}

void PasswordCheck::Work() {
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
    m_post([done = std::move(job.done), isRight] { done(isRight); });
    lock.lock();
  }
}
