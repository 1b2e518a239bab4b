#include "collect/modern/process/KeptArguments.h"

#include <algorithm>
#include <array>

namespace {

/// Where the parent of a vfork(2) waits for its child. All other waits without a signal may be ones
/// of who holds the memory's lock: for a file system's journal, a server, or that lock itself, of
/// which `wchan` tells the caller alone.
constexpr std::array<std::string_view, 3> kHarmlessWaits{"kernel_clone", "_do_fork",
                                                         "wait_for_vfork_done"};

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

bool IsHarmlessWait(std::string_view wchan) {
  return std::ranges::find(kHarmlessWaits, wchan) != kHarmlessWaits.end();
}
