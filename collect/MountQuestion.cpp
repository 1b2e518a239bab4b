#include "collect/MountQuestion.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstring>
#include <map>
#include <string>
#include <string_view>

#include "support/ChildProcess.h"
#include "support/HostPaths.h"
#include "support/OsCalls.h"
#include "support/ProductOptions.h"
#include "support/TraceLog.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kLongestLimit = 3600;

/// What a child sends back, in one write that no pipe splits.
struct Answer {
  int code = 0;  ///< errno, 0 for success
  struct ::statfs64 figures {};
};

/// Children that did not answer, by mount point.
std::map<std::string, pid_t>& Waiting() {
  static std::map<std::string, pid_t> waiting;
  return waiting;
}

std::chrono::seconds Limit() {
  const char* text = ProductOptions::Instance().Get("Node", "Mount Timeout");
  const std::string_view digits = text == nullptr ? "" : text;
  int seconds = 0;
  const auto [end, status] = std::from_chars(digits.data(), digits.data() + digits.size(), seconds);
  const bool isLimit = status == std::errc{} && end == digits.data() + digits.size() &&
                       seconds > 0 && seconds <= kLongestLimit;
  return std::chrono::seconds(isLimit ? seconds : 0);
}

/// Whether the child has ended. It is gone, too, where ended children are taken by others or by the
/// kernel.
bool HasEnded(pid_t child) { return ::waitpid(child, nullptr, WNOHANG) != 0; }

[[noreturn]] void AnswerAsChild(const std::string& path, int answers) {
  // The agent's handlers only note a signal for its loop, which the child does not run.
  ResetSignals();
  // It may outlive the agent's sockets and locks by hours.
  CloseOthers(answers);
  Answer answer;
  answer.code = Os().statfs64(path.c_str(), &answer.figures) == 0 ? 0 : errno;
  [[maybe_unused]] const ssize_t written = ::write(answers, &answer, sizeof answer);
  ::_exit(0);
}

/// Waits until the child has answered or ended; false if the time is up.
bool WaitFor(int descriptor, std::chrono::seconds limit) {
  const auto end = Clock::now() + limit;
  while (true) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    if (left.count() <= 0) {
      return false;
    }
    ::pollfd question{descriptor, POLLIN, 0};
    const int ready = ::poll(&question, 1, static_cast<int>(left.count()));
    if (ready > 0 || (ready < 0 && errno != EINTR)) {
      return true;
    }
  }
}

bool ReadAnswer(int descriptor, Answer& answer) {
  ssize_t count = 0;
  do {
    count = ::read(descriptor, &answer, sizeof answer);
  } while (count < 0 && errno == EINTR);
  return count == static_cast<ssize_t>(sizeof answer);
}

MountAnswer Failed(int code) {
  errno = code;
  return MountAnswer::kFailed;
}

MountAnswer TakeAnswer(int descriptor, struct ::statfs64* figures) {
  Answer answer;
  if (!ReadAnswer(descriptor, answer)) {
    return Failed(EIO);
  }
  if (answer.code != 0) {
    return Failed(answer.code);
  }
  *figures = answer.figures;
  return MountAnswer::kAnswered;
}

/// Takes the end of a child that has answered, so that it is about to end.
void Reap(pid_t child) {
  while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
}

/// Waits for the child's answer, which comes through `descriptor`.
MountAnswer Await(pid_t child, int descriptor, const std::string& path, struct ::statfs64* figures,
                  std::chrono::seconds limit) {
  if (!WaitFor(descriptor, limit)) {
    Trace(20, kWarning, "The file system is left out: no answer within %2 seconds. (%1)", path,
          limit.count());
    ::kill(child, SIGKILL);
    Waiting()[path] = child;
    return MountAnswer::kNoAnswer;
  }
  const MountAnswer answer = TakeAnswer(descriptor, figures);
  const int code = errno;
  Reap(child);
  errno = code;
  return answer;
}

MountAnswer AskByChild(const std::string& path, struct ::statfs64* figures,
                       std::chrono::seconds limit) {
  std::erase_if(Waiting(), [](const auto& entry) { return HasEnded(entry.second); });
  if (Waiting().contains(path)) {
    Trace(20, kWarning, "The file system is left out: it has still not answered. (%1)", path);
    return MountAnswer::kNoAnswer;
  }
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) {
    return MountAnswer::kFailed;
  }
  const pid_t child = ::fork();
  if (child == 0) {
    AnswerAsChild(path, ends[1]);
  }
  int code = errno;
  ::close(ends[1]);
  MountAnswer answer = MountAnswer::kFailed;
  if (child > 0) {
    answer = Await(child, ends[0], path, figures, limit);
    code = errno;
  }
  ::close(ends[0]);
  errno = code;
  return answer;
}

}  // namespace

MountAnswer AskMount(const char* mountPoint, struct ::statfs64* figures) {
  std::memset(figures, 0, sizeof *figures);
  const std::string path = HostPath(mountPoint);
  if (const std::chrono::seconds limit = Limit(); limit.count() != 0) {
    return AskByChild(path, figures, limit);
  }
  return Os().statfs64(path.c_str(), figures) == 0 ? MountAnswer::kAnswered : MountAnswer::kFailed;
}
