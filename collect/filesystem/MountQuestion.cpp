#include "collect/filesystem/MountQuestion.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <climits>
#include <csignal>
#include <map>
#include <new>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/ChildProcess.h"
#include "support/HostPaths.h"
#include "support/OsCalls.h"
#include "support/ProductOptions.h"
#include "support/TraceLog.h"
#include "support/Uninterrupted.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kLongestLimit = 3600;

constexpr std::size_t kMostChildren = 32;
/// So long a child may be silent until another one goes on beside it.
constexpr std::chrono::milliseconds kPatience{100};

/// What a child sends, in one write that no pipe splits: that it begins with a mount, then the end.
struct Word {
  std::size_t place = 0;  ///< in the list of mounts
  pid_t child = 0;
  bool isEnd = false;
  int code = 0;  ///< errno, 0 for success
  struct ::statfs64 figures {};
};
static_assert(sizeof(Word) <= PIPE_BUF);

/// The next place of the list that nobody has taken, shared by all children.
using NextPlace = std::atomic<std::size_t>;
static_assert(NextPlace::is_always_lock_free);

/// Children that did not answer, by mount point.
std::map<std::string, pid_t>& Waiting() {
  static std::map<std::string, pid_t> waiting;
  return waiting;
}

/// Whether the child has ended. It is gone, too, where ended children are taken by others or by the
/// kernel.
bool HasEnded(pid_t child) { return ::waitpid(child, nullptr, WNOHANG) != 0; }

void Send(int words, const Word& word) {
  [[maybe_unused]] const ssize_t written =
      Uninterrupted([&] { return ::write(words, &word, sizeof word); });
}

[[noreturn]] void AskAsChild(const std::vector<std::string>& paths, NextPlace& next, int words) {
  // The agent's handlers only note a signal for its loop, which the child does not run.
  ResetSignals();
  // It may outlive the agent's sockets and locks by hours.
  CloseOthers(words);
  for (std::size_t place = next++; place < paths.size(); place = next++) {
    Word word{place, ::getpid(), false, 0, {}};
    Send(words, word);
    word.code = Os().statfs64(paths[place].c_str(), &word.figures) == 0 ? 0 : errno;
    word.isEnd = true;
    Send(words, word);
  }
  ::_exit(0);
}

/// Takes the end of a child that has nothing left to ask, even of one that somebody has stopped.
void Reap(pid_t child) {
  ::kill(child, SIGKILL);
  Uninterrupted([&] { return ::waitpid(child, nullptr, 0); });
}

}  // namespace

/// One list of mounts and the children that ask for them.
class MountQuestion::Round {
 public:
  explicit Round(std::vector<std::string> paths)
      : m_paths(std::move(paths)), m_replies(m_paths.size()), m_isDone(m_paths.size()) {
    void* page = ::mmap(nullptr, sizeof(NextPlace), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    m_next = page == MAP_FAILED ? nullptr : new (page) NextPlace(0);
    if (m_next == nullptr || ::pipe2(m_ends.data(), O_CLOEXEC) != 0) {
      m_ends = {-1, -1};
      FailRest(errno);
    }
  }
  Round(const Round&) = delete;
  Round& operator=(const Round&) = delete;
  ~Round() {
    for (const Child& child : m_children) {
      Reap(child.id);
    }
    for (const int end : m_ends) {
      if (end >= 0) {
        ::close(end);
      }
    }
    if (m_next != nullptr) {
      ::munmap(m_next, sizeof(NextPlace));
    }
  }

  /// The replies, by place in the list, after all mounts have answered or used up their time.
  const std::vector<MountReply>& Run(std::chrono::seconds limit) {
    while (m_done < m_paths.size()) {
      if (m_children.empty()) {
        FailLost();
        if (m_done == m_paths.size()) {
          break;
        }
        if (!Start()) {
          FailRest(errno);
          break;
        }
      }
      if (!TakeWord()) {
        DropEnded();
        if (m_children.size() < kMostChildren && *m_next < m_paths.size()) {
          Start();
        }
      }
      Expire(limit);
    }
    return m_replies;
  }

 private:
  struct Child {
    pid_t id;
    std::size_t place;  ///< what it asks for; beyond the list: nothing
    Clock::time_point since;
  };

  bool Start() {
    const pid_t child = Os().fork();
    if (child == 0) {
      AskAsChild(m_paths, *m_next, m_ends[1]);
    }
    if (child > 0) {
      m_children.push_back({child, m_paths.size(), Clock::now()});
    }
    return child > 0;
  }

  /// Waits for one word and takes it. False if there was none for a while.
  bool TakeWord() {
    ::pollfd question{m_ends[0], POLLIN, 0};
    if (::poll(&question, 1, static_cast<int>(kPatience.count())) <= 0) {
      return false;
    }
    Word word;
    if (::read(m_ends[0], &word, sizeof word) != static_cast<ssize_t>(sizeof word)) {
      return false;
    }
    const auto child = std::find_if(m_children.begin(), m_children.end(),
                                    [&](const Child& each) { return each.id == word.child; });
    if (child == m_children.end() || word.place >= m_paths.size()) {
      return true;
    }
    child->place = word.isEnd ? m_paths.size() : word.place;
    child->since = Clock::now();
    if (word.isEnd) {
      const MountAnswer answer = word.code == 0 ? MountAnswer::kAnswered : MountAnswer::kFailed;
      Finish(word.place, {answer, word.code, word.figures});
    }
    return true;
  }

  void Finish(std::size_t place, const MountReply& reply) {
    if (place < m_paths.size() && !m_isDone[place]) {
      m_isDone[place] = true;
      ++m_done;
      m_replies[place] = reply;
    }
  }

  /// Forgets children that have ended, the mount at which one died included.
  void DropEnded() {
    std::erase_if(m_children, [this](const Child& child) {
      const bool hasEnded = HasEnded(child.id);
      if (hasEnded) {
        Finish(child.place, {MountAnswer::kFailed, EIO, {}});
      }
      return hasEnded;
    });
  }

  /// Leaves out the mounts whose time is up, and lets go of their children.
  void Expire(std::chrono::seconds limit) {
    std::erase_if(m_children, [this, limit](const Child& child) {
      if (child.place >= m_paths.size() || Clock::now() - child.since < limit) {
        return false;
      }
      const std::string& path = m_paths[child.place];
      Trace(20, kWarning, "The file system is left out: no answer within %2 seconds. (%1)", path,
            limit.count());
      ::kill(child.id, SIGKILL);
      Waiting()[path] = child.id;
      Finish(child.place, {MountAnswer::kNoAnswer, 0, {}});
      return true;
    });
  }

  /// Fails what children had taken that ended without a word.
  void FailLost() {
    const std::size_t taken = std::min<std::size_t>(*m_next, m_paths.size());
    for (std::size_t place = 0; place < taken; ++place) {
      Finish(place, {MountAnswer::kFailed, EIO, {}});
    }
  }

  void FailRest(int code) {
    for (std::size_t place = 0; place < m_paths.size(); ++place) {
      Finish(place, {MountAnswer::kFailed, code, {}});
    }
  }

  const std::vector<std::string> m_paths;
  std::vector<MountReply> m_replies;
  std::vector<bool> m_isDone;
  std::size_t m_done = 0;
  std::vector<Child> m_children;
  NextPlace* m_next = nullptr;
  std::array<int, 2> m_ends{-1, -1};
};

std::chrono::seconds MountQuestion::Limit() {
  const char* text = ProductOptions::Instance().Get("Node", "Mount Timeout");
  const std::string_view digits = text == nullptr ? "" : text;
  int seconds = 0;
  const auto [end, status] = std::from_chars(digits.data(), digits.data() + digits.size(), seconds);
  const bool isLimit = status == std::errc{} && end == digits.data() + digits.size() &&
                       seconds > 0 && seconds <= kLongestLimit;
  return std::chrono::seconds(isLimit ? seconds : 0);
}

bool MountQuestion::IsLimited() { return Limit().count() != 0; }

void MountQuestion::AskAll(const std::vector<std::string>& mountPoints) {
  std::erase_if(Waiting(), [](const auto& entry) { return HasEnded(entry.second); });
  std::set<std::string> asked;
  std::vector<std::string> paths;
  for (const std::string& mountPoint : mountPoints) {
    std::string path = HostPath(mountPoint.c_str());
    if (!asked.insert(path).second) {
      continue;
    }
    if (Waiting().contains(path)) {
      Trace(20, kWarning, "The file system is left out: it has still not answered. (%1)", path);
      m_replies[path] = {MountAnswer::kNoAnswer, 0, {}};
    } else {
      paths.push_back(std::move(path));
    }
  }
  Round round(paths);
  const std::vector<MountReply>& replies = round.Run(Limit());
  for (std::size_t place = 0; place < paths.size(); ++place) {
    m_replies[paths[place]] = replies[place];
  }
}

MountReply MountQuestion::AskDirectly(const char* mountPoint) {
  MountReply reply;
  if (Os().statfs64(HostPath(mountPoint).c_str(), &reply.figures) == 0) {
    reply.answer = MountAnswer::kAnswered;
  } else {
    reply.code = errno;
  }
  return reply;
}

MountReply MountQuestion::Ask(const char* mountPoint) {
  if (!IsLimited()) {
    return AskDirectly(mountPoint);
  }
  const std::string path = HostPath(mountPoint);
  if (!m_replies.contains(path)) {
    AskAll({mountPoint});
  }
  return m_replies[path];
}
