#include "gate/http/HttpExchange.h"

#include <algorithm>

std::size_t HttpStream::Take(char* target, std::size_t size) {
  std::size_t got = 0;
  while (got < size && !m_pieces.empty()) {
    const std::string& piece = *m_pieces.front();
    const std::size_t count = std::min(size - got, piece.size() - m_taken);
    std::copy_n(piece.data() + m_taken, count, target + got);
    got += count;
    m_taken += count;
    if (m_taken == piece.size()) {
      m_pieces.pop_front();
      m_taken = 0;
    }
  }
  m_waiting -= got;
  return got;
}

void HttpStream::Drop() {
  m_pieces.clear();
  m_taken = 0;
  m_waiting = 0;
}

void HttpStream::Cut() {
  Drop();
  End();
}

void HttpStream::Leave() {
  m_isGone = true;
  m_onMore = nullptr;
  m_hasPeerEnded = nullptr;
  Drop();
  Tell(std::exchange(m_onGone, nullptr));
}
