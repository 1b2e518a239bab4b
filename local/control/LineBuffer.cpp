#include "local/control/LineBuffer.h"

#include <utility>

void LineBuffer::Append(std::string_view bytes) {
  m_bytes.erase(0, m_start);
  m_scanned -= m_start;
  m_start = 0;
  m_bytes += bytes;
}

LineBuffer::Found LineBuffer::Next(std::string& line) {
  while (true) {
    const std::size_t end = m_bytes.find('\n', m_scanned);
    if (end == std::string::npos) {
      m_scanned = m_bytes.size();
      const bool isTooLong = m_bytes.size() - m_start >= m_limit;
      if (m_isSkipping || isTooLong) {
        m_start = m_bytes.size();
      }
      const bool wasSkipping = std::exchange(m_isSkipping, m_isSkipping || isTooLong);
      return isTooLong && !wasSkipping ? Found::kTooLong : Found::kNothing;
    }
    const std::size_t start = std::exchange(m_start, end + 1);
    m_scanned = m_start;
    if (std::exchange(m_isSkipping, false)) {
      continue;
    }
    if (m_start - start > m_limit) {
      return Found::kTooLong;
    }
    line.assign(m_bytes, start, end - start);
    return Found::kLine;
  }
}
