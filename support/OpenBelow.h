#pragma once

#include <cstdint>
#include <string>

// Opening what stands in a tree of somebody else's. The kernel resolves the path (openat2), so that
// no link on the way leads out, however many it takes. `folder` is a descriptor of the tree's top;
// `path` is relative to it, an absolute one being so only where the links say.

/// How links on the way are taken.
enum class LinkRule {
  kRooted,  ///< as if the top were the root: "..", and absolute links, end there
  kInside,  ///< followed, but a way that passes the top is a failure (EXDEV)
  kNone     ///< a link anywhere on the way is a failure (ELOOP)
};

/// A descriptor that is the caller's, closed on exec; -1 with errno set. `flags` as of open(2).
[[nodiscard]] int OpenBelow(int folder, const std::string& path, int flags, LinkRule rule);
/// Opens a regular file for reading that no link leads to, without waiting for a pipe; -1 with
/// errno, which is ENXIO for what is no regular file and ELOOP where there is a link.
[[nodiscard]] int OpenRegularBelow(int folder, const std::string& path);
/// Whether the link at `path` leads out of the tree, or the kernel can't tell that it does not. One
/// that leads nowhere does not.
[[nodiscard]] bool LeadsOut(int folder, const std::string& path);
