#include "local/log/RecentMessages.h"

#include <algorithm>

#include "local/log/LogText.h"

void RecentMessages::Add(std::time_t time, int kind, std::string_view text) {
  RecentMessage message{time, kind, {}};
  AppendLine(message.text, text, kMostText);
  const std::size_t size = message.text.size();
  m_messages.push_back(std::move(message));
  m_bytes += size;
  while (m_messages.size() > kMost || m_bytes > kMostBytes) {
    m_bytes -= m_messages.front().text.size();
    m_messages.pop_front();
  }
}

std::vector<RecentMessage> RecentMessages::Last(std::size_t count) const {
  const std::size_t taken = std::min(count, m_messages.size());
  return {m_messages.end() - static_cast<std::ptrdiff_t>(taken), m_messages.end()};
}
