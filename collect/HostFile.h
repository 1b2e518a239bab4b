#pragma once

#include <memory>
#include <string>

#include "support/TextFile.h"

class UtlError;

/// Opens a regular file of the host, named by its plain absolute path, for reading. Null with
/// `errno` set if it can't be opened. A captured tree may hold a file without end: reading stops
/// with EFBIG at the file's limit, which is what a host of 4,096 processors, 10,000 interfaces and
/// 100,000 mounts needs, and the run of the source fails with it.
[[nodiscard]] TextFilePtr OpenHostFile(const char* path);
/// The same for one that stands elsewhere; `path` tells its limit and names it.
[[nodiscard]] TextFilePtr OpenHostFileAt(const std::string& place, const char* path);

/// The error of a file that went beyond its limit, or under `modern` had no descriptor to be opened
/// with, since the last call; null if none did.
[[nodiscard]] std::unique_ptr<UtlError> TakeHostFileError();
