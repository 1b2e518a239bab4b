#include "collect/modern/process/KeptArguments.h"

#include <algorithm>
#include <array>

namespace {

/// How the functions begin in which the kernel waits for servers, programs that serve files, and
/// the locks of a process's memory.
constexpr std::array<std::string_view, 17> kServerWaits{"rpc_",
                                                        "nfs",
                                                        "__nfs",
                                                        "cifs",
                                                        "smb",
                                                        "wait_for_response",
                                                        "request_wait_answer",
                                                        "fuse",
                                                        "__fuse",
                                                        "ceph",
                                                        "v9fs",
                                                        "p9_",
                                                        "afs",
                                                        "rxrpc",
                                                        "rwsem_",
                                                        "down_",
                                                        "__vma"};

}  // namespace

void KeptArguments::Keep(std::int32_t pid, std::uint64_t startTicks, std::string_view text) {
  // Threads of the kernel are many and have none.
  if (text.empty()) {
    return;
  }
  Kept& kept = m_kept[pid];
  kept.startTicks = startTicks;
  kept.walk = m_walk;
  if (kept.text != text) {
    kept.text = text;
  }
}

std::string_view KeptArguments::Find(std::int32_t pid, std::uint64_t startTicks) {
  const auto found = m_kept.find(pid);
  if (found == m_kept.end() || found->second.startTicks != startTicks) {
    return {};
  }
  found->second.walk = m_walk;
  return found->second.text;
}

void KeptArguments::EndWalk() {
  std::erase_if(m_kept, [this](const auto& entry) { return entry.second.walk != m_walk; });
  ++m_walk;
}

bool MayWaitForServer(std::string_view wchan) {
  return wchan.empty() || wchan.starts_with('0') ||
         std::ranges::any_of(kServerWaits,
                             [wchan](std::string_view begin) { return wchan.starts_with(begin); });
}
