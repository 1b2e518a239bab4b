#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "support/TextFile.h"
#include "support/TraceLog.h"
#include "userdata/FileFault.h"

/// One `keyword = value` line of a definition file.
struct x_mondline {
  std::string key;  ///< in front of the first '=', trimmed, in the case in which it was written
  std::string value;
  std::int32_t lineNumber = 0;  ///< the physical line in which it ends
  std::int32_t firstLine = 0;   ///< the physical line in which it begins
};

/// The line reader's working object.
struct mondLine : x_mondline {
  std::int32_t physicalLine = 0;  ///< lines read so far, comments and blank ones included
  std::string text;               ///< continued lines joined, at most 2048 bytes
  bool isValid = false;           ///< whether the last call of the reader gave a parsed line
};

/// The reader that definition files share. It reads a file once into a list of entries, each a list
/// of `keyword = value` lines; the keyword added first opens an entry. A line that ends in ','
/// goes on in the next one, '#' begins a comment line, and one bad line costs its whole entry.
///
/// Of a file 1 Mbyte is read at most: what is longer fails there like a line that is too long. So
/// memory and time stay bounded whatever the file holds.
class mondFile {
 public:
  static constexpr std::size_t kMaxKeywords = 128;
  static constexpr std::size_t kMaxLogicalLine = 2048;
  static constexpr std::size_t kMaxFileBytes = std::size_t{1} << 20;
  static constexpr std::size_t kMaxFaults = 1000;

  mondFile() = default;
  mondFile(const mondFile&) = delete;
  mondFile& operator=(const mondFile&) = delete;
  virtual ~mondFile() = default;

  /// Opens a regular file by its path as it stands and keeps its name for messages, at most 4095
  /// bytes of it; what an earlier file left, keywords included, is forgotten. 0, or -1 if it can't
  /// be opened.
  [[nodiscard]] int mondInitFileAnalyze(const char* path);
  /// Keeps 15 characters of a keyword. The stored keyword, which the file owns, or null for a null
  /// argument or when 128 are stored.
  const char* AddKeyword(const char* keyword);
  /// Reads the whole file and closes it. The number of entries, 32767 at most, or -1 if there are
  /// none.
  std::int16_t mondFileAnalyze();

  /// What is wrong with the file, as far as it has been read, in order of discovery. Beyond
  /// kMaxFaults the last one only says that there are more.
  [[nodiscard]] const std::vector<FileFault>& Faults() const { return m_faults; }

 protected:
  using Entry = std::vector<x_mondline>;
  struct Keyword {
    const char* name;
    int index;
  };

  enum ReadResult : int { kLine = 0, kFailed = -1, kInvalidLine = -2, kEndOfFile = -3 };
  /// Reads one logical line.
  [[nodiscard]] ReadResult ReadLine(mondLine& line);

  /// The next entry, or null at the end. The first call reads the file.
  [[nodiscard]] const Entry* NextEntry();
  /// The index of a keyword without regard to case, or -1.
  [[nodiscard]] static int Classify(std::string_view key, std::span<const Keyword> table);
  /// Reports a line that an entry getter refuses. %1 of `format` is the file, %2 the line.
  void ReportEntryLine(const TraceFormat& format, const x_mondline& line) const;
  void AddFault(const x_mondline& line, const std::string& reason);

 private:
  enum class PhysicalLine { kComplete, kEnd, kFailed };
  enum class Place { kBeforeFirstEntry, kGoodEntry, kBadEntry };

  [[nodiscard]] PhysicalLine ReadPhysicalLine();
  [[nodiscard]] PhysicalLine FailReading(const std::string& reason);
  [[nodiscard]] ReadResult EndOfFile(mondLine& line, bool isContinued);
  [[nodiscard]] ReadResult Split(mondLine& line);
  [[nodiscard]] bool IsKeyword(const std::string& key) const;
  [[nodiscard]] Place Classified(const mondLine& line, Entry& current, Place place);
  [[nodiscard]] Place Dropped(const mondLine& line, const Entry& current, Place place);
  void AddFault(std::int32_t line, const std::string& reason);
  void ReportReadFailure() const;
  void ReportLine(const mondLine& line) const;

  std::string m_name;
  TextFilePtr m_stream;
  bool m_isGood = false;  ///< neither failed nor at its end
  bool m_isAtEnd = false;
  std::size_t m_bytesRead = 0;
  std::string m_physical;  ///< the physical line just read
  std::string m_reason;    ///< why the last line was refused
  std::size_t m_keywordCount = 0;
  std::array<std::array<char, 16>, kMaxKeywords> m_keywords{};
  std::vector<Entry> m_entries;
  std::size_t m_nextEntry = 0;
  bool m_isAnalyzed = false;
  std::vector<FileFault> m_faults;
};
