#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "collect/Source.h"
#include "support/HostReads.h"
#include "support/TextFile.h"

/// One owner's share of a file system as the source reads it.
struct x_storage {
  tagUTIME fileTime;       ///< when the result file was written, whole seconds
  std::uint32_t size = 0;  ///< the length of the result file's name and 37
  std::int32_t kind = 0;   ///< the owner's user id
  double freeMB = 0;       ///< Mbytes that the owner uses
  std::string path;        ///< mount point of the file system
};

/// One owner's share as builders see it.
class Storage : public x_storage {
 public:
  [[nodiscard]] static const char* name() { return "Storage"; }

  [[nodiscard]] const std::string& GetPath() const { return path; }
};

/// The folder of results, relative to the working directory: what the options said when a source
/// was last made, "./storage.d" if they have not said anything.
[[nodiscard]] const std::string& StorageDirectory();

/// Reads the results of the file system scan: one file per file system, named by its mount point
/// with ':' for '/', of lines with the owner's id, name and blocks of 512 bytes, parted by tabs.
/// The options' section "Storage", key "Directory", chooses another folder. Fails as a whole if
/// that cannot be opened.
class StorageSourceUser : public PtrSource<x_storage, Storage, std::vector<Storage>> {
 public:
  StorageSourceUser();
  ~StorageSourceUser() override { ++s_statistics.destroyed; }

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  void read(x_storage* record) override;

  /// Opens the folder and its first file. Null, or an error that the caller owns.
  [[nodiscard]] UtlError* initialize(const char* dir);
  /// The next line without its end, from the next file where one ends; `m_more` tells whether there
  /// was one. `size` counts the terminator; a longer line ends its file and is traced.
  void getline(char* buf, int size);
  /// Bytes of a path with its terminator.
  static constexpr std::size_t kPathSize = 4096;
  /// Puts the path of the next file that is not empty into `path`, which has kPathSize bytes, and
  /// notes its time; an empty text at the end. A longer path is passed over.
  void getdirentry(char* path);

 private:
  /// Reads up to a line end, the file's end or `size` - 1 characters; whether it was a line.
  [[nodiscard]] bool ReadLine(char* buf, int size);
  void OpenNextFile();

  inline static SourceStatistics s_statistics;

  TextFilePtr m_file;
  std::string m_path;  ///< of the file being read
  HostEntries m_dir;
  std::string m_directory;  ///< with a "/" at its end
  tagUTIME m_fileTime;
};
