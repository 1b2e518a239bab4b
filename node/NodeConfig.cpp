#include "node/NodeConfig.h"

CMBNodeConfigPossibleValues::CMBNodeConfigPossibleValues(std::uint16_t id, int totalBytes,
                                                         char* values, int entrySize)
    : m_id(id) {
  if (values == nullptr || entrySize < 1) {
    return;
  }
  for (int rest = totalBytes; rest >= entrySize; rest -= entrySize) {
    const char* entry = values + (totalBytes - rest);
    m_values.emplace_back(entry, ::strnlen(entry, static_cast<std::size_t>(entrySize)));
  }
}
