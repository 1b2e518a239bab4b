#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The mounts of the host, as /proc/PID/mountinfo tells them.

/// What is taken of a line; the texts lie in it, blanks and kin still escaped.
struct MountLine {
  std::uint64_t id = 0;
  std::uint64_t parent = 0;
  std::uint64_t device = 0;  ///< major number in the high half, minor in the low
  std::string_view root;
  std::string_view mountPoint;
  std::string_view type;
  std::string_view source;
};

/// Takes a line without its end. False, with the line in no known state, for one that lacks a
/// column, has no number where one belongs, or no absolute mount point.
[[nodiscard]] bool ParseMountLine(std::string_view text, MountLine& line);

/// The text with the kernel's escapes (a backslash and three octal digits) decoded; none becomes
/// a NUL.
[[nodiscard]] std::string DecodeMountText(std::string_view text);

/// A mounted file system, its texts decoded.
struct MountEntry {
  std::uint64_t id = 0;
  std::uint64_t parent = 0;  ///< the mount that it stands on; of the first one its own or unknown
  std::uint64_t device = 0;
  std::string mountPoint;
  std::string type;
  std::string source;
  std::string root = "/";  ///< what of the file system stands there
};

/// Mounts in the order of their lines.
struct Mounts {
  std::vector<MountEntry> entries;
  std::size_t faulty = 0;  ///< lines that were passed over
};
[[nodiscard]] Mounts ParseMountinfo(std::string_view text);

/// Those of the mounts, in their order, that a look at their mount point reaches: none that another
/// one stands on at the same point, and none below a point that is covered. Ids of a broken table
/// may form circles, which nothing reaches.
[[nodiscard]] std::vector<MountEntry> ReachableMounts(std::vector<MountEntry> entries);

/// Whose mounts are told, and where their paths lead to them.
struct MountView {
  const char* table = "";   ///< plain absolute path of a mountinfo file
  const char* prefix = "";  ///< what to put before a mount point to ask for it
};
/// The mounts of process 1 where that has a mount namespace other than this process's, below a root
/// that this process may enter; else this process's own, which its paths always lead to. In a
/// captured host those of process 1.
[[nodiscard]] MountView ViewOfMounts();

/// The mounts that can be reached, and what to put before their mount points to ask for them.
struct HostMounts {
  std::vector<MountEntry> entries;
  const char* prefix = "";
};
/// The mounts of ViewOfMounts() where they may be read, else of this process, within the limits of
/// OpenHostFile(). None if neither can be read, which is told once, as faulty lines are.
[[nodiscard]] HostMounts ReadMounts();
