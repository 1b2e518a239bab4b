#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The folder of a capture as the client reads and writes it; docs/captures.md has its format.

inline constexpr const char* kCaptureName = "capture.json";
inline constexpr const char* kHistoryName = "history";
/// What is read of one file.
inline constexpr std::size_t kMostFileBytes = std::size_t{256} << 20U;

/// A folder of one's own (0700) below $TMPDIR or /tmp, removed with the object.
class TemporaryFolder {
 public:
  /// Throws ClientError.
  TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder();
  /// Absolute, without links.
  [[nodiscard]] const std::string& Path() const { return m_path; }

 private:
  std::string m_path;
};

/// The bytes of a regular file that is no link, of kMostFileBytes at most. Throws ClientError.
[[nodiscard]] std::string ReadWhole(const std::string& path);
/// The bytes of a regular file at `path` below a folder of anybody's, which no link leads to; none
/// if there is nothing. Throws ClientError, also for more than `limit` bytes.
[[nodiscard]] std::optional<std::string> ReadBelow(const std::string& folder,
                                                   const std::string& path, std::size_t limit);
/// Replaces a file or makes it, for its owner alone. Throws ClientError.
void WriteWhole(const std::string& path, std::string_view text);

/// What stands in a folder, at any depth, by paths relative to it: a folder before what is in it.
/// Links are not followed. Throws ClientError.
struct FolderEntry {
  std::string path;
  bool isFolder = false;
};
[[nodiscard]] std::vector<FolderEntry> ListFolder(const std::string& folder);

/// Throws Interrupted if `stop`, which may be -1, is readable.
void EndIfStopped(int stop);
