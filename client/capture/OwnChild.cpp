#include "client/capture/OwnChild.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <system_error>

#include "client/ask/Errors.h"
#include "support/ChildProcess.h"
#include "support/ProcessDescriptor.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kEndLimit{10};

std::vector<std::string> EnvironmentOf(const ChildOrder& order) {
  std::vector<std::string> texts;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string_view text = *variable;
    const bool isReplaced =
        std::any_of(order.variables.begin(), order.variables.end(), [text](const auto& pair) {
          return text.starts_with(pair.first) && text.substr(pair.first.size()).starts_with('=');
        });
    if (!isReplaced) {
      texts.emplace_back(text);
    }
  }
  for (const auto& [name, value] : order.variables) {
    if (!value.empty()) {
      texts.push_back(name + '=' + value);
    }
  }
  return texts;
}

std::vector<char*> PointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  std::transform(texts.begin(), texts.end(), std::back_inserter(pointers),
                 [](std::string& text) { return text.data(); });
  pointers.push_back(nullptr);
  return pointers;
}

/// In the child, which has no other way back than a number.
[[noreturn]] void BecomeChild(const ChildOrder& order, char* const* words, char* const* variables,
                              const FailurePipe& failures) {
  ResetSignals();
  // The child ends with its parent, however that ends.
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  bool isReady = true;
  if (!order.log.empty()) {
    const int log =
        ::open(order.log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    const int nothing = ::open("/dev/null", O_RDONLY);
    isReady = log >= 0 && nothing >= 0 && ::dup2(nothing, STDIN_FILENO) >= 0 &&
              ::dup2(log, STDOUT_FILENO) >= 0 && ::dup2(log, STDERR_FILENO) >= 0;
  }
  if (isReady && (order.folder.empty() || ::chdir(order.folder.c_str()) == 0)) {
    ::execvpe(words[0], words, variables);
  }
  const int code = errno;
  failures.Tell(code);
  ::_exit(127);
}

}  // namespace

void EndAtHangUp() {
  struct ::sigaction action {};
  if (::sigaction(SIGHUP, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) {
    action.sa_handler = [](int) { ::kill(::getpid(), SIGTERM); };
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGHUP, &action, nullptr);
  }
}

OwnChild::OwnChild(const ChildOrder& order) {
  std::vector<std::string> words = order.words;
  std::vector<std::string> variables = EnvironmentOf(order);
  const std::vector<char*> wordPointers = PointersTo(words);
  const std::vector<char*> variablePointers = PointersTo(variables);
  FailurePipe failures;
  const bool hasPipe = failures.Open();
  m_pid = hasPipe ? ::fork() : -1;
  if (m_pid == 0) {
    BecomeChild(order, wordPointers.data(), variablePointers.data(), failures);
  }
  int code = errno;
  failures.Listen();
  if (m_pid > 0) {
    const std::optional<int> failure = failures.Next<int>();
    code = failure.value_or(0);
    try {
      m_watch = OpenProcess(m_pid);
    } catch (const std::system_error& error) {
      code = code == 0 ? error.code().value() : code;
    }
  }
  if (code != 0 || m_pid < 0) {
    End();
    throw ClientError("cannot run " + words[0] + ": " + std::generic_category().message(code));
  }
}

OwnChild::~OwnChild() { End(); }

void OwnChild::End() {
  if (m_pid <= 0) {
    return;
  }
  ::kill(m_pid, SIGTERM);
  if (!m_watch.IsOpen() || !WaitUntil(Clock::now() + kEndLimit)) {
    ::kill(m_pid, SIGKILL);
    int status = 0;
    while (::waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
    }
    m_pid = -1;
  }
}

bool OwnChild::WaitUntil(Clock::time_point time, int stop) {
  if (m_pid <= 0) {
    return true;
  }
  std::array<::pollfd, 2> ready{{{m_watch.Get(), POLLIN, 0}, {stop, POLLIN, 0}}};
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(time - Clock::now()).count();
    constexpr long kLongest = 60'000;
    const int count =
        ::poll(ready.data(), ready.size(), static_cast<int>(std::clamp<long>(left, 0, kLongest)));
    if (ready[0].revents != 0 && count > 0) {
      break;
    }
    if (count > 0 || (count == 0 && left <= 0)) {
      return false;
    }
  }
  int status = 0;
  while (::waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
  }
  m_pid = -1;
  constexpr int kBySignal = 128;
  m_exitValue = WIFEXITED(status) ? WEXITSTATUS(status) : kBySignal + WTERMSIG(status);
  return true;
}

void OwnChild::Wait(int stop) {
  constexpr std::chrono::hours kAtATime{1};
  while (!WaitUntil(Clock::now() + kAtATime, stop)) {
    ::pollfd ready{stop, POLLIN, 0};
    if (stop >= 0 && ::poll(&ready, 1, 0) > 0) {
      throw Interrupted();
    }
  }
}
