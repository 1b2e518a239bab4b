#pragma once

#include <sys/types.h>

#include <string>

#include "support/TextFile.h"

/// Opens a regular file for writing, or makes it, below a folder that others may write to: what
/// stands there under its name is neither followed nor waited for. `flags` are those of open(2).
/// The descriptor is the caller's and closed on exec; -1, with errno set, if the file can't be
/// opened, is a link (ELOOP) or no regular file (ENXIO).
[[nodiscard]] int OpenRegularFile(const std::string& path, int flags, mode_t mode);
/// The same as a stream of that mode, as in fopen; null for -1.
[[nodiscard]] TextFilePtr OpenRegularStream(const std::string& path, int flags, mode_t mode,
                                            const char* streamMode);
