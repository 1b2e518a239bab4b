#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/RegExp.h"
#include "support/TextFile.h"
#include "support/UtlError.h"

/// One message of a followed file.
struct x_messages {
  static constexpr std::uint32_t kSize = 524;

  std::uint32_t size = 0;  ///< kSize, or 0 while there is no message
  std::uint32_t id = 0;    ///< serial number, 0 if none
  std::array<char, 512> text{};
};

/// Follows one text file of the monitored host from its end on, and makes a message of each new
/// line that one of its filters takes. Rotation is not noticed: the open file is read on.
class FileEvent {
 public:
  /// Of a longer line filters see this much.
  static constexpr std::size_t kKeptBytes = std::size_t{128} << 10;
  /// A line of this length is taken without its end; the rest of it is passed over.
  static constexpr std::size_t kMaxLineBytes = std::size_t{64} << 20;

  /// `id` labels the messages; if it is empty the file's base name does. Opens the file.
  FileEvent(const char* path, const char* id, const char* filter);

  /// Opens the file anew and goes to its end. Null, or why it can't be followed: what is no regular
  /// file is refused.
  [[nodiscard]] UtlErrorPtr openEventFn();
  /// "*" takes every line; anything else is for addRegex.
  void AddFilter(const char* filter);
  /// Adds expressions, parted by TABs.
  void addRegex(const char* text);
  /// Reads one line: whether there was one, and the failure of reading or of the last opening.
  /// `out` is written only if a filter takes the line, and then `serial` is raised to the message's
  /// number. A last line without a newline is read and lost, at the price of a serial number if a
  /// filter takes it.
  [[nodiscard]] std::pair<bool, UtlErrorPtr> collect(x_messages& out, unsigned& serial);

  [[nodiscard]] bool IsOpen() const { return m_stream != nullptr; }
  [[nodiscard]] const std::string& Path() const { return m_path; }
  [[nodiscard]] const std::string& Id() const { return m_id; }
  /// The place in the file behind the last line.
  [[nodiscard]] long Offset() const { return m_offset; }

 private:
  enum class LineEnd { kNewline, kTooLong, kEndOfFile, kFailed };

  [[nodiscard]] UtlErrorPtr Open();
  [[nodiscard]] LineEnd ReadLine();
  [[nodiscard]] LineEnd ReadToNewline(std::size_t keptBytes);
  [[nodiscard]] bool IsTaken() const;
  void Format(x_messages& out, unsigned serial) const;
  /// `errno` is the reason.
  [[nodiscard]] UtlErrorPtr Failure(const char* operation, const char* call, int line) const;
  [[nodiscard]] UtlErrorPtr OpenFailure(const char* call, int line) const;

  std::string m_path;
  std::string m_id;
  bool m_matchesAll = false;
  UtlErrorPtr m_failure;  ///< of the last opening
  TextFilePtr m_stream;   ///< null while the file is not open
  long m_offset = 0;
  bool m_isInLongLine = false;  ///< the next bytes belong to a line that has been taken
  std::vector<std::unique_ptr<RegExp>> m_filters;
  std::string m_line;    ///< the line just read
  bool m_isCut = false;  ///< it goes on behind what was kept
};
