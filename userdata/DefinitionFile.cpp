#include "userdata/DefinitionFile.h"

#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "support/TrimmedText.h"

namespace {

constexpr std::size_t kMaxName = 4095;
constexpr std::size_t kMaxPhysicalLine = 2047;
constexpr std::size_t kMaxEntryCount = 32767;

std::string Quoted(const std::string& text) { return '"' + text + '"'; }

}  // namespace

int mondFile::mondInitFileAnalyze(const char* path) {
  TraceEntry("mondFile::mondInitFileAnalyze", path);
  m_isAtEnd = m_isAnalyzed = false;
  m_bytesRead = m_keywordCount = m_nextEntry = 0;
  m_entries.clear();
  m_faults.clear();
  m_name = std::string(path == nullptr ? "" : path).substr(0, kMaxName);
  m_stream = OpenTextFile(path == nullptr ? "" : path);
  m_isGood = m_stream != nullptr;
  if (!m_isGood) {
    const int code = errno;
    MessageAndCopy(10150, "open()", code, m_name, "", "");
    Trace(20, kWarning, "Failed to access the file or directory (%1).", m_name);
    AddFault(0, std::string("the file can't be opened: ") +
                    (code == EINVAL ? "no regular file" : std::strerror(code)));
  }
  const int rc = m_isGood ? 0 : -1;
  TraceExit("mondFile::mondInitFileAnalyze", rc);
  return rc;
}

const char* mondFile::AddKeyword(const char* keyword) {
  if (keyword == nullptr || m_keywordCount == kMaxKeywords) {
    return nullptr;
  }
  std::array<char, 16>& place = m_keywords[m_keywordCount++];
  std::snprintf(place.data(), place.size(), "%s", keyword);
  return place.data();
}

mondFile::PhysicalLine mondFile::FailReading(const std::string& reason) {
  m_isGood = false;
  m_reason = reason + "; nothing is read from here on, and the entry before is lost";
  return PhysicalLine::kFailed;
}

mondFile::PhysicalLine mondFile::ReadPhysicalLine() {
  m_physical.clear();
  for (;;) {
    const int c = std::getc(m_stream.get());
    if (c == EOF) {
      if (std::ferror(m_stream.get()) != 0) {
        return FailReading(std::string("the file can't be read: ") + std::strerror(errno));
      }
      m_isGood = false;
      m_isAtEnd = true;
      return PhysicalLine::kEnd;
    }
    if (++m_bytesRead > kMaxFileBytes) {
      return FailReading("the file is longer than " + std::to_string(kMaxFileBytes) + " bytes");
    }
    if (c == '\n') {
      return PhysicalLine::kComplete;
    }
    if (m_physical.size() == kMaxPhysicalLine) {
      return FailReading("the line is longer than " + std::to_string(kMaxPhysicalLine) + " bytes");
    }
    m_physical.push_back(static_cast<char>(c));
  }
}

mondFile::ReadResult mondFile::EndOfFile(mondLine& line, bool isContinued) {
  const std::string_view rest = Trimmed(m_physical, kWhiteSpace);
  if (!rest.empty() && rest.front() != '#') {
    AddFault(line.physicalLine + 1, "the last line does not end in a newline and is not read");
  }
  line.lineNumber = std::max(line.lineNumber, line.firstLine);
  m_reason = "the file ends where the line should go on";
  return isContinued ? kInvalidLine : kEndOfFile;
}

mondFile::ReadResult mondFile::ReadLine(mondLine& line) {
  line.text.clear();
  line.isValid = false;
  line.firstLine = 0;
  if (!m_isGood) {
    m_reason = "the file is not open";
    return kFailed;
  }
  for (bool isContinued = false;; isContinued = true) {
    std::string_view stripped;
    do {
      switch (ReadPhysicalLine()) {
        case PhysicalLine::kEnd:
          return EndOfFile(line, isContinued);
        case PhysicalLine::kFailed:
          return kFailed;
        case PhysicalLine::kComplete:
          ++line.physicalLine;
      }
      stripped = Trimmed(m_physical, kWhiteSpace);
    } while (stripped.empty() || stripped.front() == '#');
    line.lineNumber = line.physicalLine;
    line.firstLine = isContinued ? line.firstLine : line.physicalLine;
    if (stripped.find('\0') != std::string_view::npos) {
      m_reason = "the line holds a NUL byte";
      return kInvalidLine;
    }
    if (line.text.size() + stripped.size() > kMaxLogicalLine) {
      m_reason = "the line and those it goes on in have more than " +
                 std::to_string(kMaxLogicalLine) + " bytes";
      return kInvalidLine;
    }
    line.text += stripped;
    if (stripped.back() != ',') {
      return Split(line);
    }
  }
}

mondFile::ReadResult mondFile::Split(mondLine& line) {
  const std::string_view text = line.text;
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos) {
    m_reason = "no '=' in the line";
  } else if (equals == 0) {
    m_reason = "nothing stands before the '='";
  } else if (equals + 1 == text.size()) {
    m_reason = "nothing stands behind the '='";
  } else {
    line.key = Trimmed(text.substr(0, equals), kWhiteSpace);
    line.value = Trimmed(text.substr(equals + 1), kWhiteSpace);
    line.isValid = true;
    return kLine;
  }
  return kInvalidLine;
}

std::int16_t mondFile::mondFileAnalyze() {
  TraceEntry("mondFile::mondFileAnalyze");
  mondLine line;
  Entry current;
  Place place = Place::kBeforeFirstEntry;
  for (;;) {
    const ReadResult result = ReadLine(line);
    if (result == kEndOfFile) {
      if (place == Place::kGoodEntry) {
        m_entries.push_back(std::move(current));
      }
      break;
    }
    if (result == kFailed) {
      AddFault(line.physicalLine + 1, m_reason);
      ReportReadFailure();
      break;
    }
    place = result == kLine ? Classified(line, current, place) : Dropped(line, current, place);
    if (m_isAtEnd) {
      break;
    }
    if (place == Place::kGoodEntry) {
      current.push_back(line);
    } else {
      ReportLine(line);
    }
  }
  m_stream.reset();
  m_isGood = false;
  if (m_entries.empty()) {
    Trace(20, kWarning, "No valid entry found in the file (%1)", m_name);
  }
  const auto count = static_cast<std::int16_t>(
      m_entries.empty() ? -1 : static_cast<int>(std::min(m_entries.size(), kMaxEntryCount)));
  TraceExit("mondFile::mondFileAnalyze", count);
  return count;
}

mondFile::Place mondFile::Classified(const mondLine& line, Entry& current, Place place) {
  const char* entryKeyword = m_keywords[0].data();
  if (!IsKeyword(line.key)) {
    m_reason = "unknown keyword " + Quoted(line.key);
    return Dropped(line, current, place);
  }
  if (::strcasecmp(line.key.c_str(), entryKeyword) == 0) {
    if (place == Place::kGoodEntry) {
      m_entries.push_back(std::move(current));
    }
    current.clear();
    return Place::kGoodEntry;
  }
  if (place == Place::kBeforeFirstEntry) {
    m_reason = Quoted(line.key) + " stands before the first " + Quoted(entryKeyword);
    return Dropped(line, current, place);
  }
  return place;
}

mondFile::Place mondFile::Dropped(const mondLine& line, const Entry& current, Place place) {
  if (place != Place::kGoodEntry) {
    AddFault(line, m_reason);
    return place;
  }
  const x_mondline& head = current.front();
  AddFault(line, m_reason + "; the entry " + Quoted(head.value) + " of line " +
                     std::to_string(head.lineNumber) + " is dropped");
  return Place::kBadEntry;
}

bool mondFile::IsKeyword(const std::string& key) const {
  const auto end = m_keywords.begin() + static_cast<std::ptrdiff_t>(m_keywordCount);
  return std::any_of(m_keywords.begin(), end, [&](const std::array<char, 16>& keyword) {
    return ::strcasecmp(key.c_str(), keyword.data()) == 0;
  });
}

const mondFile::Entry* mondFile::NextEntry() {
  if (!m_isAnalyzed) {
    m_isAnalyzed = true;
    mondFileAnalyze();
  }
  return m_nextEntry < m_entries.size() ? &m_entries[m_nextEntry++] : nullptr;
}

int mondFile::Classify(std::string_view key, std::span<const Keyword> table) {
  const std::string name(key);
  const auto found = std::find_if(table.begin(), table.end(), [&](const Keyword& keyword) {
    return ::strcasecmp(name.c_str(), keyword.name) == 0;
  });
  return found == table.end() ? -1 : found->index;
}

void mondFile::ReportReadFailure() const {
  MessageAndCopy(10203, m_name);
  Trace(20, kWarning, "Failed to access the file or directory (%1).", m_name);
}

void mondFile::ReportLine(const mondLine& line) const {
  MessageAndCopy(10203, m_name);
  Trace(20, kWarning, "Invalid line found in file - (%1) at line (%2) ", m_name, line.lineNumber);
}

void mondFile::ReportEntryLine(const TraceFormat& format, const x_mondline& line) const {
  Trace(20, kWarning, format, m_name, line.lineNumber);
  Message(10203, m_name);
}

void mondFile::AddFault(const x_mondline& line, const std::string& reason) {
  const bool isContinued = line.firstLine != 0 && line.firstLine != line.lineNumber;
  AddFault(line.lineNumber,
           isContinued ? "the line that begins at " + std::to_string(line.firstLine) + ": " + reason
                       : reason);
}

void mondFile::AddFault(std::int32_t line, const std::string& reason) {
  if (m_faults.size() < kMaxFaults) {
    m_faults.push_back({line, reason});
  } else if (m_faults.size() == kMaxFaults) {
    m_faults.push_back({line, "there are further faults, which are not listed"});
  }
}
