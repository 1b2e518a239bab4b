#pragma once

#include <string>
#include <string_view>

/// Replaces a file so that a crash at any point leaves the old content or the new: writes and syncs
/// a file of the same folder with ".new" behind its name, renames it, syncs the folder. Keeps the
/// old file's permissions and, where that is allowed, its owner; a new file gets 0644. A link is
/// replaced as such, see BehindLinks(). One writer at a time; what an earlier one left under the
/// name with ".new" goes. False, with the reason in `error` and `errno`, if the old file still
/// stands. After a failure to sync the folder the result is true and `error` is filled all the
/// same.
[[nodiscard]] bool ReplaceFile(const std::string& path, std::string_view content,
                               std::string& error);
/// ReplaceFile() with the permissions and the owner of another file, `model`.
[[nodiscard]] bool ReplaceFileLike(const std::string& model, const std::string& path,
                                   std::string_view content, std::string& error);

/// Makes what was done in a file's folder last. False, with `errno` set, if it may not; file
/// systems that have no sync of folders are no failure.
bool SyncFolderOf(const std::string& path);

/// The file that a path leads to whose last part is a link; any other path comes back as it is.
[[nodiscard]] std::string BehindLinks(const std::string& path);
