#include "gate/alarm/FailureNote.h"

#include <algorithm>
#include <utility>

namespace {

/// The scheme, the host and the port, without a user.
std::string ServerOf(const std::string& url) {
  const std::size_t scheme = url.find("://");
  const std::size_t begin = scheme == std::string::npos ? 0 : scheme + 3;
  std::string host = url.substr(begin, url.find_first_of("/?#", begin) - begin);
  host.erase(0, host.rfind('@') + 1);
  return url.substr(0, begin) + host;
}

std::string FailureWords(const SendResult& result) {
  if (result.status == 0) {
    return result.error;
  }
  constexpr std::size_t kMostWords = 200;
  const std::size_t line = std::min(result.body.find_first_of("\r\n"), kMostWords);
  return "it answers " + std::to_string(result.status) + ' ' + result.body.substr(0, line);
}

}  // namespace

FailureNote::FailureNote(const std::string& url, std::function<void(const std::string&)> report)
    : m_server(ServerOf(url)), m_report(std::move(report)) {}

void FailureNote::Fail(const SendResult& result) {
  if (!std::exchange(m_isFailing, true)) {
    m_report(m_server + ": alarms can't be told: " + FailureWords(result) + "; trying again");
  }
}

void FailureNote::Work() {
  if (std::exchange(m_isFailing, false)) {
    m_report(m_server + ": alarms are told again");
  }
}
