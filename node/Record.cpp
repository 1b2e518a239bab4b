#include "node/Record.h"

#include <cstring>

namespace {
constexpr int kRecordTimeOffset = 8;
}

std::time_t CMBRecord::GetRecTime() const {
  if (GetRecSize() < kRecordTimeOffset + static_cast<int>(sizeof(std::int32_t))) {
    return 0;
  }
  std::int32_t seconds = 0;
  std::memcpy(&seconds, static_cast<const char*>(GetRecStart()) + kRecordTimeOffset,
              sizeof seconds);
  return seconds;
}

int CMBRecord::IsProductRecord() const { return 1; }

int CMBStringRecord::operator==(const CMBRecord& other) const {
  return std::strcmp(IsA(), other.IsA()) == 0 && std::strcmp(GetRecType(), other.GetRecType()) == 0
             ? 1
             : 0;
}

int CMBStringRecord::operator<(const CMBRecord& other) const {
  return std::strcmp(GetRecType(), other.GetRecType()) < 0 ? 1 : 0;
}
