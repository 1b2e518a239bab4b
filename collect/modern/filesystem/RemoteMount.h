#pragma once

#include <string_view>

// Which file systems lie on another host, and what the text that was mounted says of it.

/// By the type alone, as "nfs4" or "fuse.sshfs". Cluster file systems on a shared block device are
/// local, since their blocks are, and so is what the machine's own host shares with it.
[[nodiscard]] bool IsRemoteType(std::string_view type);

/// Both lie in the text that was split.
struct RemotePlace {
  std::string_view host;  ///< empty where the text names none
  std::string_view path;
};

/// Splits "host:/path", "[address]:/path", "//host/share" and "scheme://host/path", the last two,
/// and the first two of a type "fuse.X", without a user before the host; of another text all is
/// path. An address keeps its brackets.
[[nodiscard]] RemotePlace SplitRemoteSource(std::string_view type, std::string_view source);
