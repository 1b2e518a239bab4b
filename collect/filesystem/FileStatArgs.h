#pragma once

#include <span>

/// The paths that a run's file-stat step looks at, process-wide, for the length of that run.
class FileStatArgs {
 public:
  static void Set(std::span<const char* const> paths) { s_paths = paths; }
  /// Takes the next path; null when all are taken.
  [[nodiscard]] static const char* Next() {
    if (s_paths.empty()) {
      return nullptr;
    }
    const char* path = s_paths.front();
    s_paths = s_paths.subspan(1);
    return path;
  }

 private:
  inline static std::span<const char* const> s_paths;
};
