#pragma once

#include <cstdio>
#include <memory>
#include <string>

struct CloseTextFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using TextFilePtr = std::unique_ptr<std::FILE, CloseTextFile>;

/// Opens a regular file for reading, as /proc's are. Null with `errno` set if it can't be opened or
/// is something else (EINVAL): a pipe or a device in a captured tree must not block the agent.
[[nodiscard]] TextFilePtr OpenTextFile(const std::string& path);
