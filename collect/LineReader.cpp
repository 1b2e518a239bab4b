#include "collect/LineReader.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "support/Uninterrupted.h"

namespace {

constexpr std::size_t kLimit = 128U << 10;

}  // namespace

void LineReader::Start(int descriptor) {
  m_descriptor = descriptor;
  m_taken = 0;
  m_begin = 0;
  m_end = 0;
}

bool LineReader::Next(ProcLine& line) {
  const std::size_t limit = line.size() - 1;
  std::size_t length = 0;
  bool ended = false;
  while (length < limit && !ended && (m_begin < m_end || Fill())) {
    const char* from = m_buffer.data() + m_begin;
    std::size_t taken = std::min(limit - length, m_end - m_begin);
    if (const void* newline = std::memchr(from, '\n', taken); newline != nullptr) {
      taken = static_cast<std::size_t>(static_cast<const char*>(newline) - from) + 1;
      ended = true;
    }
    std::memcpy(line.data() + length, from, taken);
    length += taken;
    m_begin += taken;
  }
  line[length] = '\0';
  return length != 0;
}

bool LineReader::Fill() {
  const ssize_t length =
      m_taken < kLimit
          ? Uninterrupted([&] { return ::read(m_descriptor, m_buffer.data(), m_buffer.size()); })
          : 0;
  m_begin = 0;
  m_end = length > 0 ? static_cast<std::size_t>(length) : 0;
  m_taken += m_end;
  return m_end != 0;
}
