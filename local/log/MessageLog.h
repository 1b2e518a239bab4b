#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "local/log/ErrorStream.h"
#include "local/log/LogFile.h"
#include "local/log/LogText.h"
#include "local/log/RecentMessages.h"
#include "node/IniFile.h"
#include "node/NodeLayer.h"

/// Where the message log writes, and how much.
struct MessageLogSettings {
  static constexpr int kDefaultLogLevel = 10;
  static constexpr int kDefaultDataLevel = 0;

  std::string directory = ".";  ///< its folder log/ is made if it is missing
  int logLevel = kDefaultLogLevel;
  int dataLevel = kDefaultDataLevel;
  std::size_t maxFileBytes = std::size_t{10} << 20;
  std::size_t oldFiles = 4;
  std::chrono::seconds lookPause = LogFile::kLookPause;
  int errorDescriptor = 2;
};

/// Takes the two thresholds from section "Node", keys "Message Log Level" and "Message Data Level".
/// A value that is missing, no number or not within 0 to 999 leaves the setting as it is.
void ReadLogLevels(CMBIniFile& ini, MessageLogSettings& settings);

/// The two keys, and whether a text is a value that they may have: 0 to 999.
inline constexpr const char* kLogLevelKey = "Message Log Level";
inline constexpr const char* kDataLevelKey = "Message Data Level";
[[nodiscard]] bool IsLevel(std::string_view text);

/// The program's messages and traces. One line each, to standard error and to log/qmtdmon.log:
///
///     2031-05-07T09:12:44.031+02:00 4711 10 W 10300 QMTX10300-W An attempt to ... (record=PI)
///     2031-05-07T09:12:44.032+02:00 4711 20 I UnixAgent.cpp:88 Started the function (...).
///
/// time, process, level, kind (E error, W warning, I information), origin, text. The origin is the
/// number of a message, the source line of a trace, "event" for the node's event log and "node" for
/// what the local node says of itself. Under the journal (JOURNAL_STREAM names standard error) the
/// lines there begin with a priority, as in "<4>". Control characters are made harmless.
///
/// Lines of level 1 are always written, others up to the log level. Level 204 marks a second copy
/// of a message, meant for a log that several products share: it is written where an operator
/// message (level 10) would be, but to the file only and with the origin "common:" and the number.
///
/// A file that can't be written is told once on standard error, and tried again later. Nothing here
/// throws. For one thread.
class MessageLog {
 public:
  static constexpr int kOperatorLevel = 10;
  static constexpr int kDetailLevel = 30;
  static constexpr int kCommonLogLevel = 204;
  static constexpr std::size_t kMaxText = 8192;  ///< bytes of a line's text; the rest is cut

  explicit MessageLog(MessageLogSettings settings);

  [[nodiscard]] int LogLevel() const { return m_settings.logLevel; }
  [[nodiscard]] int DataLevel() const { return m_settings.dataLevel; }
  /// Whether a line of this level is written.
  [[nodiscard]] bool IsShown(int level) const;

  /// The last messages up to level 10, traces left out.
  [[nodiscard]] const RecentMessages& Recent() const { return m_recent; }

  void PrintMsg(const MessageLine& line) noexcept;
  /// One line of the node's event log, at level 1.
  void EventText(const char* text) noexcept;
  /// One line of the node's debug output, at level 30. `file` may be a path; its base name is
  /// shown.
  void DebugText(const char* file, int line, const char* text) noexcept;
  /// One line at level 1.
  void AssertLog(const char* expression, const char* file, int line) noexcept;
  /// A line of the local node itself.
  void Note(int level, int kind, std::string_view text) noexcept;

  /// Writes a block of text to log/qmtdmon.dat if `level` is within the data level. Line ends stay,
  /// other control characters are made harmless. Returns how many bytes of `data` are dealt with
  /// (at most 32767), whether they were written or not wanted, and stores it in `*written`; -1, and
  /// 0 stored, on a bad argument or if the file can't be written.
  [[nodiscard]] short PrintDat(const char* data, int length, int level, int kind,
                               int* written) noexcept;

 private:
  /// Runs the action; says so on standard error if there is no memory for it.
  template <class Action>
  void Guarded(Action action) noexcept;
  bool WriteData(std::string_view data);
  void Write(int level, int kind, std::string_view origin, std::string_view text);
  void WriteToErrors(int level, int kind, std::string_view line);

  MessageLogSettings m_settings;
  bool m_isJournal;
  ErrorStream m_errors;
  RecentMessages m_recent;
  LogFile m_messages;
  LogFile m_data;
};
