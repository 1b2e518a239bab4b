#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

#include "node/MessageCatalog.h"
#include "node/Trace.h"
#include "support/Switches.h"

/// A value that a trace shows as "0x%x".
struct Hex {
  std::uint64_t value;
};

/// An object's address as a trace argument.
[[nodiscard]] inline Hex AddressOf(const void* object) {
  return {reinterpret_cast<std::uintptr_t>(object)};
}

/// A trace's format text with the place that writes it. Placeholders are %1 to %5.
struct TraceFormat {
  // Implicit, so that a trace is written with a plain text and still knows its place.
  TraceFormat(const char* text, const char* file = __builtin_FILE(), int line = __builtin_LINE())
      : m_text(text), m_file(file), m_line(line) {}
  [[nodiscard]] TraceFormat WithText(const char* text) const { return {text, m_file, m_line}; }
  const char* m_text;
  const char* m_file;
  int m_line;
};

namespace trace_detail {

constexpr std::size_t kMaxArguments = 5;
constexpr std::size_t kBufferSize = 256;
constexpr std::size_t kTextLimit = 254;
using Buffer = std::array<char, kBufferSize>;

void Put(Buffer& buffer, std::string_view text);
void Put(Buffer& buffer, Hex value);
void Put(Buffer& buffer, double value);

inline void Put(Buffer& buffer, const char* text) {
  Put(buffer, text == nullptr ? std::string_view{} : std::string_view{text});
}
inline void Put(Buffer& buffer, const std::string& text) { Put(buffer, std::string_view{text}); }
template <class Integer>
requires std::is_integral_v<Integer>
void Put(Buffer& buffer, Integer value) {
  if constexpr (std::is_signed_v<Integer>) {
    std::snprintf(buffer.data(), buffer.size(), "%lld", static_cast<long long>(value));
  } else {
    std::snprintf(buffer.data(), buffer.size(), "%llu", static_cast<unsigned long long>(value));
  }
}

template <class... Args>
void Write(int number, int level, MessageKind kind, const char* file, int line, const char* format,
           const Args&... args) {
  static_assert(sizeof...(Args) <= kMaxArguments);
  std::array<Buffer, kMaxArguments> buffers;
  std::array<const char*, kMaxArguments> table{};
  std::size_t count = 0;
  [[maybe_unused]] const auto put = [&](const auto& argument) {
    buffers[count][0] = '\0';
    Put(buffers[count], argument);
    table[count] = buffers[count].data();
    ++count;
  };
  (put(args), ...);
  const char* slash = std::strrchr(file, '/');
  __MBDebugPrintMsg(number, level, kind, slash == nullptr ? file : slash + 1, line, format,
                    static_cast<int>(count), table.data(), 0);
}

}  // namespace trace_detail

/// Whether lines of this level are written at all.
[[nodiscard]] inline bool IsTraced(int level) { return g_msgLogLevel > level - 1; }

/// Writes one trace line if its level is on; nothing is formatted otherwise. Arguments hold at most
/// 254 characters, a null text is empty, whole numbers are decimal.
template <class... Args>
void Trace(int level, MessageKind kind, const TraceFormat& format, const Args&... args) {
  if (IsTraced(level)) {
    trace_detail::Write(0, level, kind, format.m_file, format.m_line, format.m_text, args...);
  }
}

/// A number of the message catalogue with the place that raises it.
struct CatalogNumber {
  consteval CatalogNumber(int number, const char* file = __builtin_FILE(),
                          int line = __builtin_LINE())
      : m_entry(&CatalogEntry(number)), m_file(file), m_line(line) {}
  const CatalogMessage* m_entry;
  const char* m_file;
  int m_line;
};

/// Writes a numbered message at its usual level. Level 1 is never tested.
template <class... Args>
void Message(const CatalogNumber& number, const Args&... args) {
  const CatalogMessage& entry = *number.m_entry;
  if (entry.level == 1 || IsTraced(entry.level)) {
    trace_detail::Write(entry.number, entry.level, entry.kind, number.m_file, number.m_line,
                        entry.text, args...);
  }
}

/// Writes a numbered message at another level than its usual one.
template <class... Args>
void MessageAt(int level, const CatalogNumber& number, const Args&... args) {
  const CatalogMessage& entry = *number.m_entry;
  if (level == 1 || IsTraced(level)) {
    trace_detail::Write(entry.number, level, entry.kind, number.m_file, number.m_line, entry.text,
                        args...);
  }
}

/// Writes a numbered message at its usual level and, if that is on, its copy for the common log.
template <class... Args>
void MessageAndCopy(const CatalogNumber& number, const Args&... args) {
  constexpr int kCommonLog = 204;
  const CatalogMessage& entry = *number.m_entry;
  Message(number, args...);
  if (IsTraced(entry.level)) {
    trace_detail::Write(entry.number, kCommonLog, entry.kind, number.m_file, number.m_line,
                        entry.text, args...);
  }
}

/// The entry of a function of substance, level 40. `name` is "Class::Method".
template <class A = const char*, class B = const char*, class C = const char*,
          class D = const char*>
void TraceEntry(const TraceFormat& name, const A& a = "unused", const B& b = "unused",
                const C& c = "unused", const D& d = "unused") {
  Trace(40, kInformation,
        name.WithText("Started the function (%1). (arg1=%2, arg2=%3, arg3=%4, arg4=%5)."),
        name.m_text, a, b, c, d);
}

/// The exit of a function of substance, level 40.
inline void TraceExit(const TraceFormat& name) {
  Trace(40, kInformation, name.WithText("Exited the function (%1)."), name.m_text);
}
template <class Result>
void TraceExit(const TraceFormat& name, const Result& rc) {
  Trace(40, kInformation, name.WithText("Exited the function (%1). (rc=%2)."), name.m_text, rc);
}
