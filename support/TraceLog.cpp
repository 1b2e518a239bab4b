#include "support/TraceLog.h"

namespace trace_detail {

void Put(Buffer& buffer, std::string_view text) {
  const std::size_t length = text.size() < kTextLimit ? text.size() : kTextLimit;
  if (length != 0) {
    std::memcpy(buffer.data(), text.data(), length);
  }
  buffer[length] = '\0';
}

void Put(Buffer& buffer, Hex value) {
  std::snprintf(buffer.data(), buffer.size(), "0x%llx",
                static_cast<unsigned long long>(value.value));
}

void Put(Buffer& buffer, double value) { std::snprintf(buffer.data(), buffer.size(), "%f", value); }

}  // namespace trace_detail
