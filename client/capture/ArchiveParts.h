#pragma once

#include <archive.h>
#include <archive_entry.h>

#include <memory>
#include <string>

// What packing and unpacking share. This header is for the sources of archives alone.

using ArchiveReader = std::unique_ptr<::archive, int (*)(::archive*)>;
using ArchiveWriter = std::unique_ptr<::archive, int (*)(::archive*)>;
using ArchiveEntry = std::unique_ptr<::archive_entry, void (*)(::archive_entry*)>;

/// The library's words for the last failure.
[[nodiscard]] inline std::string ArchiveFault(::archive* archive) {
  const char* words = ::archive_error_string(archive);
  return words == nullptr ? "unknown failure" : words;
}
