#pragma once

#include <cstddef>
#include <filesystem>
#include <set>
#include <string>

#include "helpers/ufss/OwnerWalk.h"

/// A scan's results on their way into the folder of results: they stand beside it until the scan is
/// complete, so that one that is broken off changes nothing. Errors go to standard error.
class Results {
 public:
  /// `folder` is the folder of results, "./storage.d". Removes what a killed scan has left beside
  /// it.
  explicit Results(std::filesystem::path folder);
  /// Removes what has not been published.
  ~Results();
  Results(const Results&) = delete;
  Results& operator=(const Results&) = delete;

  /// Makes the folder beside. False if that fails.
  [[nodiscard]] bool Prepare();
  /// Whether a file can have the mount point's name, which may be longer than a file's.
  [[nodiscard]] static bool CanName(const std::string& mountPoint);
  /// Writes a file system's file: a line per owner by ascending id, with its id, name (the id again
  /// if it has none) and blocks, parted by tabs. False if it can't be written.
  [[nodiscard]] bool Write(const std::string& mountPoint, const OwnerBlocks& owners);
  /// Renames all files into the folder of results, removes there what was not written anew and sets
  /// the folder's time. False if one of the files could not be put there.
  [[nodiscard]] bool Publish();

 private:
  std::filesystem::path m_folder;
  std::filesystem::path m_beside;
  std::set<std::string> m_names;
};
