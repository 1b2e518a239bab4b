#include "node/NodeConfig.h"

CMBNodeConfigPossibleValues::CMBNodeConfigPossibleValues(std::uint16_t id, int totalBytes,
                                                         char* values, int entrySize)
    : m_id(id) {
  if (values == nullptr || entrySize < 1) {
    return;
  }
  for (int offset = 0; offset + entrySize <= totalBytes; offset += entrySize) {
    const char* entry = values + offset;
    m_values.emplace_back(entry, ::strnlen(entry, static_cast<std::size_t>(entrySize)));
  }
}
