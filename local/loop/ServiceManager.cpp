#include "local/loop/ServiceManager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "io/OrIfNoMemory.h"
#include "support/Descriptor.h"

namespace {

/// Of a sign that there is no memory for, in the time of one.
constexpr int kTries = 10;

std::string TakeVariable(const char* name) {
  const char* value = std::getenv(name);
  std::string text = value == nullptr ? "" : value;
  ::unsetenv(name);
  return text;
}

/// 0 if the text is no whole number.
std::int64_t Number(const std::string& text) {
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc{} && end == text.data() + text.size() ? value : 0;
}

}  // namespace

ServiceManager::ServiceManager(EventLoop& loop)
    : m_loop(loop), m_timer(loop), m_socket(TakeVariable("NOTIFY_SOCKET")) {
  const std::int64_t period = Number(TakeVariable("WATCHDOG_USEC"));
  const std::string process = TakeVariable("WATCHDOG_PID");
  if (period > 0 && (process.empty() || Number(process) == ::getpid())) {
    m_signPeriod = std::chrono::microseconds(period / 2);
  }
}

void ServiceManager::Ready() {
  Send("READY=1");
  if (m_signPeriod.count() != 0 && !m_socket.empty()) {
    WaitForNextSign(m_signPeriod);
  }
}

void ServiceManager::Stopping() {
  m_timer.Cancel();
  Send("STOPPING=1");
}

void ServiceManager::WaitForNextSign(std::chrono::microseconds time) {
  m_timer.After(time, [this] {
    // Where one is left out the next would come too late.
    OrIfNoMemory([this] { PostSign(); }, [this] { WaitForNextSign(m_signPeriod / kTries); });
  });
}

void ServiceManager::PostSign() {
  LoopTask task;
  task.run = [this](CMBNode&) {
    WaitForNextSign(m_signPeriod);
    Send("WATCHDOG=1");
  };
  m_loop.Post(std::move(task));
}

void ServiceManager::Send(const std::string& state) const {
  sockaddr_un address{};
  if (m_socket.size() < 2 || m_socket.size() >= sizeof address.sun_path ||
      (m_socket[0] != '/' && m_socket[0] != '@')) {
    return;
  }
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, m_socket.data(), m_socket.size());
  if (m_socket[0] == '@') {
    address.sun_path[0] = '\0';
  }
  const Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + m_socket.size());
  // A manager that does not listen must not keep the daemon from its work.
  [[maybe_unused]] const ssize_t ignored =
      ::sendto(socket.Get(), state.data(), state.size(), MSG_NOSIGNAL,
               reinterpret_cast<const sockaddr*>(&address), size);
}
