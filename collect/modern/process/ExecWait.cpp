#include "collect/modern/process/ExecWait.h"

#include <cstddef>
#include <thread>

#include "collect/modern/process/ProcessText.h"

namespace {

constexpr std::chrono::milliseconds kPause{1};
constexpr std::size_t kMostHeld = 1024;

}  // namespace

bool IsInExec(const ProcessPages& pages) {
  return pages.size != 0 && pages.text == 0 && pages.data == pages.size;
}

bool IsInExec(std::string_view statm) {
  ProcessPages pages;
  return ParseProcessStatm(statm, pages) && IsInExec(pages);
}

ExecWait& ExecWait::Instance() {
  static ExecWait wait;
  return wait;
}

bool ExecWait::HasLeft(std::int32_t pid, const std::function<bool()>& isStillIn) {
  if (m_held.contains(pid)) {
    return false;
  }
  if (const auto now = std::chrono::steady_clock::now(); now - m_second > std::chrono::seconds(1)) {
    m_second = now;
    m_waited = std::chrono::milliseconds(0);
  }
  for (auto waited = kPause; waited <= kLongest; waited += kPause) {
    if (m_waited >= kLongestInAll) {
      return false;
    }
    std::this_thread::sleep_for(kPause);
    m_waited += kPause;
    if (!isStillIn()) {
      return true;
    }
  }
  if (m_held.size() >= kMostHeld) {
    m_held.clear();
  }
  m_held.insert(pid);
  return false;
}
