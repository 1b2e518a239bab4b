#include "collect/modern/process/ExecWait.h"

#include <cstddef>
#include <thread>

#include "collect/modern/process/ProcessText.h"
#include "support/HostReads.h"

namespace {

constexpr std::chrono::milliseconds kPause{1};
constexpr std::size_t kMostHeld = 1024;

bool IsStatmInExec(std::string_view statm) {
  ProcessPages pages;
  return ParseProcessStatm(statm, pages) && IsInExec(pages);
}

/// One that still runs gets on.
bool IsWaiting(std::string_view status) {
  return status.find("\nState:\tS") != std::string_view::npos ||
         status.find("\nState:\tD") != std::string_view::npos;
}

}  // namespace

bool IsInExec(const ProcessPages& pages) {
  return pages.size != 0 && pages.text == 0 && pages.data == pages.size;
}

bool StaysInExec(std::int32_t pid, const ProcessFileReader& read) {
  const auto isStillIn = [&] { return IsStatmInExec(read("statm")); };
  return isStillIn() && !ExecWait::Instance().HasLeft(pid, isStillIn) && IsWaiting(read("status"));
}

ExecWait& ExecWait::Instance() {
  static ExecWait wait;
  return wait;
}

bool ExecWait::HasLeft(std::int32_t pid, const std::function<bool()>& isStillIn) {
  const auto held = m_heldUntil.find(pid);
  // What is copied stays as it was.
  if (g_hostReads != nullptr || (held != m_heldUntil.end() && Clock::now() < held->second)) {
    return false;
  }
  for (auto waited = kPause; waited <= kLongest; waited += kPause) {
    if (!Pause()) {
      return false;
    }
    if (!isStillIn()) {
      return true;
    }
  }
  if (m_heldUntil.size() >= kMostHeld) {
    m_heldUntil.clear();
  }
  m_heldUntil[pid] = Clock::now() + kHeld;
  return false;
}

bool ExecWait::Pause() {
  if (const auto now = Clock::now(); now - m_second > std::chrono::seconds(1)) {
    m_second = now;
    m_waited = std::chrono::milliseconds(0);
  }
  if (m_waited >= kLongestInAll) {
    return false;
  }
  std::this_thread::sleep_for(kPause);
  m_waited += kPause;
  return true;
}
