#include "local/alarm/AlarmFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <utility>

#include "json/RowText.h"
#include "support/TextFile.h"
#include "support/TrimmedText.h"

namespace {

constexpr std::chrono::seconds kLongestAlarmTime = std::chrono::days(31);
constexpr std::size_t kMostWord = 64;

struct AlarmUnit {
  char letter;
  std::int64_t seconds;
};
constexpr std::array kAlarmUnits{AlarmUnit{'d', 86400}, AlarmUnit{'h', 3600}, AlarmUnit{'m', 60},
                                 AlarmUnit{'s', 1}};

constexpr std::array<std::string_view, 12> kAlarmKeywords{
    "record", "where", "condition", "until",   "for",     "keep",
    "over",   "text",  "severity",  "predict", "capture", "alarm"};

std::string InQuotes(std::string_view text) { return '"' + std::string(text) + '"'; }

/// Takes lines one after the other and puts the alarms together.
class AlarmParser {
 public:
  void Take(std::string_view physical) {
    ++m_line;
    const std::string_view stripped = Trimmed(physical, kWhiteSpace);
    if (stripped.empty() || stripped.front() == '#') {
      return;
    }
    if (!std::exchange(m_isOpen, true)) {
      m_first = m_line;
    }
    m_isLong = m_isLong || m_logical.size() + stripped.size() > kMostAlarmLineBytes;
    if (!m_isLong) {
      m_logical += stripped;
    }
    if (stripped.back() != ',') {
      EndLine();
    }
  }

  void Fault(std::size_t line, std::string text) {
    if (++m_faults > kMostAlarmFaults) {
      if (m_faults == kMostAlarmFaults + 1) {
        m_file.faults.push_back({line, "there are further faults, which are not listed"});
      }
      return;
    }
    (m_file.entries.empty() || m_isOutside ? m_file.faults : m_file.entries.back().faults)
        .push_back({line, std::move(text)});
  }

  AlarmFileText Finish() {
    if (m_isOpen) {
      Fault(m_first, "the file ends where the line should go on");
    }
    return std::move(m_file);
  }

  [[nodiscard]] std::size_t Line() const { return m_line; }

 private:
  void EndLine() {
    m_isOpen = false;
    const std::string logical = std::exchange(m_logical, {});
    if (std::exchange(m_isLong, false)) {
      Fault(m_first, "the line and those it goes on in have more than " +
                         std::to_string(kMostAlarmLineBytes) + " bytes");
      return;
    }
    const std::size_t equals = logical.find('=');
    const std::string keyword =
        LowerCase(Trimmed(std::string_view(logical).substr(0, equals), kWhiteSpace));
    const std::string_view value =
        equals == std::string::npos
            ? ""
            : Trimmed(std::string_view(logical).substr(equals + 1), kWhiteSpace);
    if (logical.find('\0') != std::string::npos) {
      Fault(m_first, "the line holds a NUL byte");
    } else if (equals == std::string::npos) {
      Fault(m_first, "no '=' in the line");
    } else if (std::ranges::find(kAlarmKeywords, keyword) == kAlarmKeywords.end()) {
      Fault(m_first, "unknown keyword " + InQuotes(keyword));
    } else if (value.empty()) {
      Fault(m_first, "nothing stands behind the '='");
    } else if (keyword == "alarm") {
      Open(value);
    } else if (m_isOutside) {
      // Of an alarm that has been told already.
    } else if (m_file.entries.empty()) {
      Fault(m_first, InQuotes(keyword) + " stands before the first \"alarm\"");
    } else {
      m_file.entries.back().lines.push_back({m_first, keyword, std::string(value)});
    }
  }

  void Open(std::string_view name) {
    m_isOutside = true;
    const auto same = std::ranges::find(m_file.entries, name, &AlarmEntry::name);
    if (!IsAlarmWord(name)) {
      Fault(m_first,
            "an alarm's name has 1 to 64 letters, digits and - _ . and is not " + InQuotes(name));
    } else if (same != m_file.entries.end()) {
      Fault(m_first, "the alarm " + InQuotes(name) + " stands in line " +
                         std::to_string(same->line) + " already; this one is left out");
    } else if (m_file.entries.size() >= kMostAlarms) {
      Fault(m_first,
            "there are more than " + std::to_string(kMostAlarms) + " alarms; this one is left out");
    } else {
      m_isOutside = false;
      m_file.entries.push_back({m_first, std::string(name), {}, {}});
    }
  }

  AlarmFileText m_file;
  std::string m_logical;
  bool m_isOpen = false;  ///< within a line that may go on
  bool m_isLong = false;
  bool m_isOutside = false;  ///< within an alarm that is left out
  std::size_t m_first = 0;
  std::size_t m_line = 0;
  std::size_t m_faults = 0;
};

}  // namespace

AlarmFileText ParseAlarmFile(std::string_view text) {
  AlarmParser parser;
  const bool isCut = text.size() > kMostAlarmFileBytes;
  text = text.substr(0, kMostAlarmFileBytes);
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    parser.Take(line);
  }
  if (isCut) {
    parser.Fault(parser.Line(),
                 "the file is longer than " + std::to_string(kMostAlarmFileBytes) + " bytes");
  }
  return parser.Finish();
}

AlarmFileText ReadAlarmFile(const std::string& path) {
  const TextFilePtr file = OpenTextFile(path);
  if (file == nullptr) {
    const int reason = errno;
    AlarmFileText failed;
    failed.error = path + ": " + (reason == EINVAL ? "is no regular file" : std::strerror(reason));
    failed.isMissing = reason == ENOENT;
    return failed;
  }
  std::string text(kMostAlarmFileBytes + 1, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), file.get()));
  if (std::ferror(file.get()) != 0) {
    AlarmFileText failed;
    failed.error = path + ": can't be read: " + std::strerror(errno);
    return failed;
  }
  return ParseAlarmFile(text);
}

std::optional<std::chrono::seconds> ParseAlarmTime(std::string_view text) {
  std::int64_t number = 0;
  const char* const last = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), last, number);
  if (error != std::errc{} || number < 0 || last - end > 1) {
    return std::nullopt;
  }
  std::int64_t factor = 1;
  if (end != last) {
    const auto unit = std::ranges::find(kAlarmUnits, *end, &AlarmUnit::letter);
    if (unit == kAlarmUnits.end()) {
      return std::nullopt;
    }
    factor = unit->seconds;
  }
  if (number > kLongestAlarmTime.count() / factor) {
    return std::nullopt;
  }
  return std::chrono::seconds(number * factor);
}

std::string AlarmTimeText(std::chrono::seconds time) {
  const auto unit = std::ranges::find_if(kAlarmUnits, [&](const AlarmUnit& each) {
    return time.count() != 0 && time.count() % each.seconds == 0;
  });
  return unit == kAlarmUnits.end() ? "0s"
                                   : std::to_string(time.count() / unit->seconds) + unit->letter;
}

bool IsAlarmWord(std::string_view text) {
  return !text.empty() && text.size() <= kMostWord && std::ranges::all_of(text, [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_' || c == '.';
  });
}
