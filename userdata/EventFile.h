#pragma once

#include <string>

#include "userdata/DefinitionFile.h"

/// The event definition file: entries of one monitored log file each, with the keywords `logfile`
/// (opens an entry), `id` and `regexp`.
class mondEvFile : public mondFile {
 public:
  static constexpr std::size_t kBufferSize = 1024;

  /// Opens the file, as the base does, and enters the keywords.
  [[nodiscard]] int mondInitFileAnalyze(const char* path);
  /// Has what an entry's values would come to at a start told as faults too: expressions that don't
  /// compile, values that would be cut, a '*' that would part them. Each failed expression is
  /// reported besides, so it is for a check of the file alone.
  void CheckValues() { m_checksValues = true; }
  /// The next entry: each buffer holds kBufferSize bytes and gets 1022 characters at most. The
  /// expressions are joined by TABs. 0, -1 at the end, -2 if the entry is refused.
  [[nodiscard]] int mondGetEvFileEntry(char* logfile, char* id, char* regexp);

 private:
  void CheckValue(const x_mondline& line, int keyword);
  void CheckLength(const x_mondline& line, std::size_t length);

  bool m_checksValues = false;
};
