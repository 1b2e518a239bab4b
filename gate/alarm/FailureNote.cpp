#include "gate/alarm/FailureNote.h"

#include <utility>

namespace {

constexpr std::chrono::hours kRefusalNoted{1};

}  // namespace

FailureNote::FailureNote(const std::string& url, std::function<void(const std::string&)> report)
    : m_server(ServerOf(url)), m_report(std::move(report)) {}

void FailureNote::Fail(const SendResult& result) {
  if (!std::exchange(m_isFailing, true)) {
    m_report(m_server + ": alarms can't be told: " + WordsOf(result) + "; trying again");
  }
}

void FailureNote::Work() {
  if (std::exchange(m_isFailing, false)) {
    m_report(m_server + ": alarms are told again");
  }
}

void FailureNote::Refuse(const std::string& alarm, const SendResult& result) {
  const auto now = std::chrono::steady_clock::now();
  if (now >= m_nextRefusalTold) {
    m_nextRefusalTold = now + kRefusalNoted;
    m_report(m_server + ": the alarm " + alarm + " is refused and given up: " + WordsOf(result));
  }
}
