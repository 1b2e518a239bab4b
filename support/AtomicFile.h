#pragma once

#include <string>
#include <string_view>

/// Replaces a file so that a crash at any point leaves the old content or the new: writes and syncs
/// a temporary file of the same directory, renames it, syncs the directory. Keeps the old file's
/// permissions and, where that is allowed, its owner; a new file gets 0644. False, with the reason
/// in `error`, if the old file still stands. After a failure to sync the directory the result is
/// true and `error` is filled all the same.
[[nodiscard]] bool ReplaceFile(const std::string& path, std::string_view content,
                               std::string& error);
