#pragma once

#include <sys/types.h>

#include <cstdint>
#include <span>

#include "collect/ProcessWalk.h"

// Reads of single files of a process below an open /proc.

/// Bytes read, -1 with `errno` on failure. One read: the kernel gives such a file in one piece.
[[nodiscard]] ssize_t ReadOnce(const ProcessWalk& walk, const char* path, std::span<char> buffer);
/// Fills all of `field` with the command line fit to be shown, and zeros behind it; all zeros where
/// it can't be read.
void ReadArguments(const ProcessWalk& walk, ProcessFolder& folder, std::span<char> field);
/// Tells one working folder of a process from another by its path, as the folder itself may lie on
/// a mount that keeps who looks at it waiting; 0 if it cannot be told.
[[nodiscard]] std::uint64_t ReadFolderMark(const ProcessWalk& walk, ProcessFolder& folder);
