#include "io/FileWriter.h"

#include <signal.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <new>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "support/AtomicFile.h"
#include "support/Descriptor.h"

namespace {

/// A thread that its object could not wait for has not ended when the next object of that path
/// comes.
std::mutex oneAtATime;

/// Starts a thread that gets no signals: they are for the loop's, which they wake.
void StartWithoutSignals(std::function<void()> run) {
  ::sigset_t all;
  ::sigset_t before;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  try {
    std::thread(std::move(run)).detach();
  } catch (...) {
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    throw;
  }
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace

struct FileWriter::Work {
  explicit Work(std::string file)
      : path(std::move(file)), event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!event.IsOpen()) {
      throw std::system_error(errno, std::generic_category());
    }
  }
  void Run();

  const std::string path;
  const Descriptor event;
  std::mutex mutex;
  std::condition_variable idle;
  // By the mutex:
  std::optional<std::string> waiting;
  bool isBusy = false;  ///< a thread is at it
  bool isLeft = false;  ///< nobody wants what waits
  std::string error;    ///< of the latest content
};

void FileWriter::Work::Run() {
  std::unique_lock lock(mutex);
  while (waiting && !isLeft) {
    lock.unlock();
    const std::lock_guard turn(oneAtATime);
    lock.lock();
    if (isLeft) {
      break;
    }
    const std::string content = *std::exchange(waiting, std::nullopt);
    lock.unlock();
    std::string reason;
    try {
      static_cast<void>(ReplaceFile(path, content, reason));
    } catch (const std::bad_alloc&) {
      // Short enough to need none itself.
      reason = "no memory";
    }
    lock.lock();
    error = std::move(reason);
  }
  isBusy = false;
  idle.notify_all();
  ::eventfd_write(event.Get(), 1);
}

FileWriter::FileWriter(IoLoop& loop, std::string path, Written written)
    : m_path(std::move(path)), m_written(std::move(written)), m_soon(loop), m_event(loop) {}

FileWriter::~FileWriter() {
  if (m_work != nullptr) {
    // Of many that end together on a disk that hangs the first one waits for all.
    static std::chrono::steady_clock::time_point hungUntil;
    const auto now = std::chrono::steady_clock::now();
    if (!WaitForThread(now < hungUntil ? std::chrono::milliseconds(0) : kLongestEnd)) {
      hungUntil = now + 10 * kLongestEnd;
    }
    const std::lock_guard lock(m_work->mutex);
    m_work->isLeft = true;
  }
}

bool FileWriter::WaitForThread(std::chrono::milliseconds most) {
  std::unique_lock lock(m_work->mutex);
  return m_work->idle.wait_for(lock, most, [this] { return !m_work->isBusy; });
}

bool FileWriter::Finish(std::chrono::milliseconds most) {
  if (!m_isExpected) {
    return true;
  }
  if (!WaitForThread(most)) {
    return false;
  }
  static_cast<void>(m_event.Release());
  m_event.Borrow(m_work->event.Get());
  m_isExpected = false;
  OnWritten();
  return true;
}

void FileWriter::Write(std::string content) {
  try {
    if (!m_path.empty()) {
      Begin(std::move(content));
      return;
    }
    m_soon.After({}, [this] { m_written(""); });
  } catch (const std::system_error& fault) {
    m_soon.After({}, [this, error = m_path + ": " + fault.what()] { m_written(error); });
  }
}

void FileWriter::Begin(std::string content) {
  if (m_work == nullptr) {
    auto work = std::make_shared<Work>(m_path);
    m_event.Borrow(work->event.Get());
    m_work = std::move(work);
  }
  const std::lock_guard lock(m_work->mutex);
  m_work->waiting = std::move(content);
  if (!m_work->isBusy) {
    StartWithoutSignals([work = m_work] { work->Run(); });
    m_work->isBusy = true;
  }
  Expect();
}

void FileWriter::Expect() {
  if (!std::exchange(m_isExpected, true)) {
    m_event.OnReadable([this] {
      m_isExpected = false;
      OnWritten();
    });
  }
}

void FileWriter::OnWritten() {
  ::eventfd_t count = 0;
  std::string error;
  {
    const std::lock_guard lock(m_work->mutex);
    if (::eventfd_read(m_work->event.Get(), &count) != 0 || m_work->isBusy) {
      Expect();
      return;
    }
    error = m_work->error;
  }
  m_written(error);
}
