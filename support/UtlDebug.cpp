#include "support/UtlDebug.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <utility>

#include "support/TraceLog.h"

namespace {

constexpr std::size_t kLineLimit = 4096;
constexpr int kDumpLevel = 40;
constexpr int kDumpKind = 1;
constexpr std::size_t kNumberSize = 400;  // a double of 309 digits and its fraction

}  // namespace

bool UtlDebug::IsDumpEnabled() { return g_msgDataLevel > kDumpLevel - 1; }

void UtlDebug::Append(std::string_view text) {
  if (!m_empty) {
    m_line += ',';
  }
  m_empty = false;
  // Flush drops a line of this length; what comes behind need not be kept.
  if (m_line.size() <= kLineLimit) {
    m_line.append(text.substr(0, kLineLimit + 1));
  }
}

void UtlDebug::Append(std::int32_t value) { Append(std::string_view{std::to_string(value)}); }
void UtlDebug::Append(std::uint32_t value) { Append(std::string_view{std::to_string(value)}); }
void UtlDebug::Append(std::uint16_t value) { Append(std::string_view{std::to_string(value)}); }
void UtlDebug::Append(float value) { Append(static_cast<double>(value)); }

void UtlDebug::Append(double value) {
  std::array<char, kNumberSize> text{};
  std::snprintf(text.data(), text.size(), "%f", value);
  Append(std::string_view{text.data()});
}

void UtlDebug::Append(const tagUTIME& value) {
  std::array<char, kNumberSize> text{};
  std::snprintf(text.data(), text.size(), "%d.%06d", value.seconds, value.microseconds);
  Append(std::string_view{text.data()});
}

void UtlDebug::Flush() {
  const std::string line = std::exchange(m_line, {}) + '\n';
  m_empty = true;
  if (line.size() > kLineLimit) {
    Trace(30, kWarning, "Debug message exceed the %1 bytes.", kLineLimit);
  } else if (line.size() > 1) {
    PrintData(line.data(), line.size());
  }
}

void UtlDebug::PrintData(const char* text, std::size_t length) {
  while (length > 0) {
    const int piece = static_cast<int>(std::min<std::size_t>(length, SHRT_MAX));
    int written = 0;
    const short rc = MBDebugPrintDat(text, piece, kDumpLevel, kDumpKind, &written);
    if (rc < 0) {
      Message(10101, "MBDebugPrintDat", rc, "", "", "");
      return;
    }
    if (written <= 0) {
      Trace(30, kWarning, "MBDebugPrintData failed. Zero Bytes written");
      return;
    }
    const auto taken = static_cast<std::size_t>(std::min(written, piece));
    text += taken;
    length -= taken;
  }
}
