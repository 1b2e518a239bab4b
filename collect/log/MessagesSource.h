#pragma once

#include <chrono>
#include <vector>

#include "collect/Source.h"
#include "collect/log/FileEvent.h"

/// One message as builders see it.
class Messages : public x_messages {
 public:
  [[nodiscard]] static const char* name() { return "Messages"; }

  [[nodiscard]] std::uint32_t GetId() const { return id; }
  [[nodiscard]] const char* GetText() const { return text.data(); }
};

/// Reads one row per new line of the followed files: the main message file, option
/// Messages/FileName, and those of the options Messages/EventFile1, EventFile2 and so on, each
/// `path*id*filter`. A line that no filter takes is a row without a serial number.
///
/// The followed files outlive the object: the first one opens them at their ends. One run reads
/// kMaxRunBytes or kMaxRunTime at most and leaves the rest to the next.
class MessagesSourceUser : public PtrSource<x_messages, Messages, std::vector<Messages>> {
 public:
  /// Lines and rows together.
  static constexpr long kMaxRunBytes = 64L << 20;
  static constexpr std::chrono::seconds kMaxRunTime{10};

  /// Loads the followed files, if there are none yet.
  MessagesSourceUser();
  ~MessagesSourceUser() override;

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  void read(x_messages* record) override;

  /// Checks the main message file, and follows it if there is no followed file yet. Null, also if
  /// none is named, or why it can't be read.
  [[nodiscard]] UtlErrorPtr initialize();
  /// Begins to follow the main message file and those of the options. An option without filter
  /// takes every line, one whose file can't be opened is passed over, and one that names path and
  /// id of an earlier one adds its filter there.
  void loadEventFiles();
  /// Forgets files and serial numbers, for a process that changes its host root.
  static void ResetState();

 private:
  [[nodiscard]] bool IsRunOver() const;
  void ReadLine(x_messages& record);

  inline static SourceStatistics s_statistics;

  long m_bytesLeft = kMaxRunBytes;
  std::chrono::steady_clock::time_point m_end;
};
