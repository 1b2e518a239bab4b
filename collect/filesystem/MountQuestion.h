#pragma once

#include <sys/vfs.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

/// How a question about a mounted file system ended.
enum class MountAnswer {
  kAnswered,
  kFailed,   ///< the reply's code tells why
  kNoAnswer  ///< the time is up, or a former question is still without an answer; traced
};

/// The answer and what belongs to it.
struct MountReply {
  MountAnswer answer = MountAnswer::kFailed;
  int code = 0;  ///< errno of a failure
  struct ::statfs64 figures {};
};

/// Asks statfs(2) for the figures of mounted file systems. A server that is gone makes that call
/// wait for ever, so where the option "Node", "Mount Timeout" (seconds, 0 or missing for none) sets
/// a limit children ask: one of them as long as the answers come, further ones beside it while it
/// is silent. A mount that does not answer in time costs that time once, however many there are up
/// to 32; its child is killed but never waited for, and while it lasts its mount is not asked
/// again.
class MountQuestion {
 public:
  /// The limit in force; 0 for none.
  [[nodiscard]] static std::chrono::seconds Limit();
  /// Whether a limit is set, so that Ask() is spared time and processes by a call of AskAll().
  [[nodiscard]] static bool IsLimited();

  /// Asks for all of these, paths of the monitored host, and keeps the answers. Traces each mount
  /// without an answer.
  void AskAll(const std::vector<std::string>& mountPoints);

  /// The answer for a mount point: the one kept, or else a new one.
  [[nodiscard]] MountReply Ask(const char* mountPoint);
  /// The answer for one that is known to come at once, without a child whatever the limit.
  [[nodiscard]] static MountReply AskDirectly(const char* mountPoint);

 private:
  class Round;

  std::map<std::string, MountReply> m_replies;
};
