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
  /// The next entry: each buffer holds kBufferSize bytes and gets 1022 characters at most. The
  /// expressions are joined by TABs. 0, -1 at the end, -2 if the entry is refused.
  [[nodiscard]] int mondGetEvFileEntry(char* logfile, char* id, char* regexp);
};
