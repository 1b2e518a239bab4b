#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "collect/ProcessWalk.h"

// Reads of single files of a process below an open /proc.

/// The text of an open file; empty, with `errno` (0: the file is so), if it can't be read. One
/// read: the kernel gives such a file in one piece. Where it fills the room and there is `more`,
/// all of it stands there, up to 1 MiB.
[[nodiscard]] std::string_view ReadText(int descriptor, std::span<char> room,
                                        std::string* more = nullptr);
/// The same of one that is not open yet.
[[nodiscard]] std::string_view ReadText(const ProcessWalk& walk, const char* path,
                                        std::span<char> room, std::string* more = nullptr);
/// Fills all of `field` with the command line fit to be shown, and zeros behind it; all zeros where
/// it can't be read.
void ReadArguments(const ProcessWalk& walk, ProcessFolder& folder, std::span<char> field);
/// Tells one working folder of a process from another by its path, as the folder itself may lie on
/// a mount that keeps who looks at it waiting; 0 if it cannot be told.
[[nodiscard]] std::uint64_t ReadFolderMark(const ProcessWalk& walk, ProcessFolder& folder);
