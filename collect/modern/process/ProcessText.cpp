#include "collect/modern/process/ProcessText.h"

#include <array>
#include <bit>
#include <cstring>

#include "collect/TextScanner.h"
#include "collect/process/ProcessSourceLINUX.h"

namespace {

/// A line's key, with all that stands before its values, and who takes these.
template <class Figures>
struct KeyedLine {
  std::string_view key;
  void (*take)(TextScanner values, Figures& figures);
};

/// The first bytes of a key as one number: all keys are compared with a line at once.
constexpr std::size_t kKeyMarkSize = 4;
constexpr std::uint32_t KeyMarkOf(std::string_view text) {
  std::array<char, kKeyMarkSize> bytes{};
  text.copy(bytes.data(), bytes.size());
  return std::bit_cast<std::uint32_t>(bytes);
}

template <class Figures, std::size_t size>
constexpr std::array<std::string_view, size> KeysOf(
    const std::array<KeyedLine<Figures>, size>& table) {
  std::array<std::string_view, size> keys;
  for (std::size_t index = 0; index < size; ++index) {
    keys[index] = table[index].key;
  }
  return keys;
}

template <class Figures, std::size_t size>
constexpr std::array<std::uint32_t, size> MarksOf(
    const std::array<KeyedLine<Figures>, size>& table) {
  std::array<std::uint32_t, size> marks;
  for (std::size_t index = 0; index < size; ++index) {
    marks[index] = KeyMarkOf(table[index].key);
  }
  return marks;
}

/// One pass over the lines, up to the last that is wanted. The first line of a key counts.
template <auto& table, class Figures>
std::uint32_t TakeLines(std::string_view text, Figures& figures) {
  static constexpr auto kMarks = MarksOf(table);
  constexpr std::uint32_t kAll = (std::uint32_t{1} << table.size()) - 1;
  std::uint32_t found = 0;
  for (std::size_t end = text.find('\n'); end != std::string_view::npos && found != kAll;
       end = text.find('\n')) {
    const std::string_view line = text.substr(0, end);
    std::uint32_t mark = 0;
    if (text.size() >= sizeof mark) {
      std::memcpy(&mark, text.data(), sizeof mark);
    }
    for (std::size_t index = 0; index < table.size(); ++index) {
      const std::uint32_t bit = std::uint32_t{1} << index;
      if (mark == kMarks[index] && (found & bit) == 0 && line.starts_with(table[index].key)) {
        table[index].take(TextScanner(line.substr(table[index].key.size())), figures);
        found |= bit;
        break;
      }
    }
    text.remove_prefix(end + 1);
  }
  return found;
}

template <auto figure, class Figures>
void TakeNumber(TextScanner values, Figures& figures) {
  values.Unsigned(figures.*figure);
}

template <auto identity>
void TakeIdentity(TextScanner values, ProcessStatus& status) {
  ProcessStatus::Identity& ids = status.*identity;
  values.Signed(ids.real);
  values.Signed(ids.effective);
  values.Signed(ids.saved);
}

double LimitOf(std::string_view word) {
  if (word == "unlimited") {
    return kNoProcessLimit;
  }
  std::uint64_t value = 0;
  TextScanner(word).Unsigned(value);
  return static_cast<double>(value);
}

template <auto limit>
void TakeLimit(TextScanner values, ProcessLimits& limits) {
  std::string_view soft;
  std::string_view hard;
  if (values.Word(soft) && values.Word(hard)) {
    limits.*limit = {LimitOf(soft), LimitOf(hard)};
  }
}

constexpr std::array kStatusLines{
    KeyedLine<ProcessStatus>{"Uid:", TakeIdentity<&ProcessStatus::user>},
    KeyedLine<ProcessStatus>{"Gid:", TakeIdentity<&ProcessStatus::group>},
    KeyedLine<ProcessStatus>{"VmData:", TakeNumber<&ProcessStatus::dataKB>},
    KeyedLine<ProcessStatus>{"VmStk:", TakeNumber<&ProcessStatus::stackKB>},
    KeyedLine<ProcessStatus>{"VmExe:", TakeNumber<&ProcessStatus::codeKB>},
    KeyedLine<ProcessStatus>{"VmLib:", TakeNumber<&ProcessStatus::sharedLibKB>},
    KeyedLine<ProcessStatus>{"VmSwap:", TakeNumber<&ProcessStatus::swapKB>},
    KeyedLine<ProcessStatus>{"voluntary_ctxt_switches:",
                             TakeNumber<&ProcessStatus::voluntarySwitches>},
    KeyedLine<ProcessStatus>{"nonvoluntary_ctxt_switches:",
                             TakeNumber<&ProcessStatus::otherSwitches>},
};
constexpr auto kProcessStatusKeys = KeysOf(kStatusLines);

constexpr std::array kIoLines{
    KeyedLine<ProcessIo>{"rchar:", TakeNumber<&ProcessIo::bytesRead>},
    KeyedLine<ProcessIo>{"wchar:", TakeNumber<&ProcessIo::bytesWritten>},
    KeyedLine<ProcessIo>{"syscr:", TakeNumber<&ProcessIo::reads>},
    KeyedLine<ProcessIo>{"syscw:", TakeNumber<&ProcessIo::writes>},
};
constexpr auto kProcessIoKeys = KeysOf(kIoLines);

constexpr std::array kLimitLines{
    KeyedLine<ProcessLimits>{"Max cpu time ", TakeLimit<&ProcessLimits::cpuTime>},
    KeyedLine<ProcessLimits>{"Max file size ", TakeLimit<&ProcessLimits::fileSize>},
    KeyedLine<ProcessLimits>{"Max data size ", TakeLimit<&ProcessLimits::dataSize>},
    KeyedLine<ProcessLimits>{"Max stack size ", TakeLimit<&ProcessLimits::stackSize>},
    KeyedLine<ProcessLimits>{"Max core file size ", TakeLimit<&ProcessLimits::coreSize>},
    KeyedLine<ProcessLimits>{"Max open files ", TakeLimit<&ProcessLimits::openFiles>},
    KeyedLine<ProcessLimits>{"Max address space ", TakeLimit<&ProcessLimits::virtualMemSize>},
};
constexpr auto kProcessLimitKeys = KeysOf(kLimitLines);

}  // namespace

bool ParseProcessStat(std::string_view text, ProcessStat& stat) {
  const std::size_t open = text.find('(');
  if (open == std::string_view::npos) {
    return false;
  }
  // Found from the end by the C library, which looks at many characters at once.
  const void* const last = ::memrchr(text.data(), ')', text.size());
  if (last == nullptr) {
    return false;
  }
  const auto close = static_cast<std::size_t>(static_cast<const char*>(last) - text.data());
  if (close < open || text.find('\n', close) == std::string_view::npos) {
    return false;
  }
  stat.name = text.substr(open + 1, close - open - 1);
  TextScanner scanner(text.substr(close + 1));
  // In the order of the line; what is skipped is told at its place.
  scanner.Letter(stat.state);
  scanner.Signed(stat.ppid);
  scanner.Signed(stat.pgrp);
  scanner.Signed(stat.session);
  scanner.Signed(stat.tty);
  scanner.SkipNumbers(1);  // foreground group of the terminal
  scanner.Unsigned(stat.kernelFlags);
  scanner.Unsigned(stat.minorFaults);
  scanner.SkipNumbers(1);  // minor faults of children
  scanner.Unsigned(stat.majorFaults);
  scanner.SkipNumbers(1);  // major faults of children
  scanner.Unsigned(stat.userTicks);
  scanner.Unsigned(stat.systemTicks);
  scanner.SkipNumbers(2);  // times of children
  scanner.Signed(stat.priority);
  scanner.Signed(stat.nice);
  scanner.Signed(stat.threads);
  scanner.SkipNumbers(1);  // interval timer
  scanner.Unsigned(stat.startTicks);
  scanner.Unsigned(stat.virtualBytes);
  if (!scanner.Unsigned(stat.residentPages)) {
    return false;
  }
  scanner.SkipNumbers(14);  // limit, addresses, signal masks, wait channel, swaps, exit signal
  scanner.Signed(stat.processor);
  scanner.SkipNumbers(1);  // real-time priority
  stat.hasPolicy = scanner.Unsigned(stat.policy);
  return true;
}

bool ParseProcessStatm(std::string_view text, ProcessPages& pages) {
  const std::size_t end = text.find('\n');
  if (end == std::string_view::npos) {
    return false;
  }
  TextScanner scanner(text.substr(0, end));
  if (!scanner.Unsigned(pages.size) || !scanner.Unsigned(pages.resident) ||
      !scanner.Unsigned(pages.shared)) {
    return false;
  }
  if (scanner.Unsigned(pages.text)) {
    scanner.SkipNumbers(1);  // libraries, always 0
    scanner.Unsigned(pages.data);
  }
  return true;
}

std::span<const std::string_view> ProcessStatusKeys() { return kProcessStatusKeys; }
std::uint32_t ParseProcessStatus(std::string_view text, ProcessStatus& status) {
  return TakeLines<kStatusLines>(text, status);
}

std::span<const std::string_view> ProcessIoKeys() { return kProcessIoKeys; }
std::uint32_t ParseProcessIo(std::string_view text, ProcessIo& io) {
  return TakeLines<kIoLines>(text, io);
}

std::span<const std::string_view> ProcessLimitKeys() { return kProcessLimitKeys; }
std::uint32_t ParseProcessLimits(std::string_view text, ProcessLimits& limits) {
  return TakeLines<kLimitLines>(text, limits);
}

std::size_t TidyArguments(std::span<char> text) {
  std::size_t length = 0;
  for (std::size_t index = 0; index < text.size(); ++index) {
    const auto byte = static_cast<unsigned char>(text[index]);
    if (byte <= ' ' || byte == 0x7f) {
      text[index] = ' ';
    } else {
      length = index + 1;
    }
  }
  return length;
}
