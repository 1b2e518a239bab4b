#include "client/doctor/QuickProgram.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <optional>
#include <system_error>
#include <thread>

#include "support/Descriptor.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostOutput = 65536;

/// Starts it in a process group of its own, with `output` as both of its outputs; an errno, or 0.
int Spawn(std::vector<std::string>& words, int output, pid_t& child) {
  std::vector<char*> pointers;
  for (std::string& word : words) {
    pointers.push_back(word.data());
  }
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  posix_spawn_file_actions_init(&actions);
  posix_spawnattr_init(&attributes);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
  sigset_t defaults;
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setpgroup(&attributes, 0);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF);
  const int error =
      ::posix_spawnp(&child, pointers[0], &actions, &attributes, pointers.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

/// Reads to the end, which comes with that of the last process that has the output. False if the
/// time is over before, or more comes than anybody reads.
bool ReadToEnd(int source, Clock::time_point deadline, std::string& output) {
  std::array<char, 4096> chunk;
  while (output.size() < kMostOutput) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd wanted{source, POLLIN, 0};
    const int ready = left.count() <= 0 ? 0 : ::poll(&wanted, 1, static_cast<int>(left.count()));
    if (ready == 0) {
      return false;
    }
    const ssize_t count = ready < 0 ? -1 : ::read(source, chunk.data(), chunk.size());
    if (count == 0) {
      return true;
    }
    if (count > 0) {
      output.append(chunk.data(), static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      return false;
    }
  }
  return false;
}

/// The status of the child that has ended by `deadline`; it has closed its outputs already.
std::optional<int> AwaitEnd(pid_t child, Clock::time_point deadline) {
  int status = 0;
  while (::waitpid(child, &status, WNOHANG) == 0) {
    if (Clock::now() >= deadline) {
      return std::nullopt;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return status;
}

}  // namespace

QuickResult RunQuickly(std::vector<std::string> words, std::chrono::milliseconds limit) {
  QuickResult result;
  std::array<int, 2> ends{-1, -1};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    result.fault = std::generic_category().message(errno);
    return result;
  }
  const Descriptor source(ends[0]);
  Descriptor sink(ends[1]);
  pid_t child = -1;
  if (const int error = Spawn(words, sink.Get(), child); error != 0) {
    result.fault = "cannot run " + words[0] + ": " + std::generic_category().message(error);
    return result;
  }
  sink.Close();
  const Clock::time_point deadline = Clock::now() + limit;
  const bool isWhole = ReadToEnd(source.Get(), deadline, result.output);
  const std::optional<int> status = isWhole ? AwaitEnd(child, deadline) : std::nullopt;
  if (!status) {
    ::kill(-child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    result.fault =
        words[0] + (Clock::now() >= deadline ? " did not end in time" : " had too much to say");
    return result;
  }
  result.exit = WIFEXITED(*status) ? WEXITSTATUS(*status) : -1;
  return result;
}
