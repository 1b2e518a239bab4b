#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "collect/Source.h"

/// What stat(2) says of one file.
struct x_filestat {
  std::uint32_t size = 0;  ///< the path's length and 97
  std::string path;
  std::uint64_t device = 0;
  std::uint32_t mode = 0;
  std::uint32_t uid = 0;
  std::uint32_t gid = 0;
  std::uint32_t inode = 0;  ///< its low 32 bits
  std::int64_t fileSize = 0;
  std::uint32_t links = 0;
  tagUTIME accessTime;  ///< whole seconds, as the next two
  tagUTIME modifyTime;
  tagUTIME changeTime;
};

/// One file as builders see it.
class FileStat : public x_filestat {
 public:
  [[nodiscard]] static const char* name() { return "FileStat"; }

  [[nodiscard]] const std::string& GetPath() const { return path; }
};

/// Looks at the files of FileStatArgs, one row a file in that order. The first that cannot be
/// looked at ends the category with an error.
class FileStatSourceUser : public PtrSource<x_filestat, FileStat, std::vector<FileStat>> {
 public:
  FileStatSourceUser();
  ~FileStatSourceUser() override { ++s_statistics.destroyed; }

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  void read(x_filestat* record) override;

 private:
  inline static SourceStatistics s_statistics;
};
