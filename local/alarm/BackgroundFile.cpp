#include "local/alarm/BackgroundFile.h"

#include <signal.h>
#include <sys/eventfd.h>

#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "support/AtomicFile.h"

/// One write, which belongs to both threads.
struct BackgroundFile::Write {
  std::string path;
  std::string content;
  Descriptor ended;
  std::mutex mutex;
  std::condition_variable isOver;
  bool hasEnded = false;
  bool isWritten = false;
  std::string error;

  void Run() {
    std::string problem;
    const bool isDone = ReplaceFile(path, content, problem);
    const std::lock_guard lock(mutex);
    isWritten = isDone;
    error = std::move(problem);
    hasEnded = true;
    isOver.notify_all();
    ::eventfd_write(ended.Get(), 1);
  }
};

BackgroundFile::BackgroundFile(IoLoop& loop, std::string path)
    : m_path(std::move(path)), m_ended(loop) {}

BackgroundFile::~BackgroundFile() {
  m_done = nullptr;
  static_cast<void>(Finish());
}

bool BackgroundFile::Replace(std::string content, Written done, std::string& error) {
  const auto write = std::make_shared<Write>();
  write->path = m_path;
  write->content = std::move(content);
  // The signals are for the loop's thread, which they wake.
  ::sigset_t all;
  ::sigset_t before;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  bool hasBegun = false;
  try {
    write->ended = Descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    m_ended.Borrow(write->ended.Get());
    std::thread([write] { write->Run(); }).detach();
    hasBegun = true;
  } catch (const std::system_error& problem) {
    error = problem.what();
    static_cast<void>(m_ended.Release());
  }
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (hasBegun) {
    m_write = write;
    m_done = std::move(done);
    Expect();
  }
  return hasBegun;
}

void BackgroundFile::Expect() {
  m_ended.OnReadable([this] {
    ::eventfd_t count = 0;
    ::eventfd_read(m_ended.Get(), &count) == 0 ? OnEnd() : Expect();
  });
}

bool BackgroundFile::Finish() {
  if (m_write == nullptr) {
    return true;
  }
  bool hasEnded = false;
  {
    std::unique_lock lock(m_write->mutex);
    hasEnded = m_write->isOver.wait_for(lock, kStopWait, [this] { return m_write->hasEnded; });
  }
  if (hasEnded) {
    OnEnd();
  }
  return hasEnded;
}

void BackgroundFile::OnEnd() {
  static_cast<void>(m_ended.Release());
  const auto write = std::exchange(m_write, nullptr);
  const Written done = std::exchange(m_done, nullptr);
  bool isWritten = false;
  std::string error;
  {
    const std::lock_guard lock(write->mutex);
    isWritten = write->isWritten;
    error = write->error;
  }
  if (done) {
    done(isWritten, error);
  }
}
