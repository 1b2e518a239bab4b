#pragma once

#include <string>
#include <string_view>

/// The place of a file of the monitored host, named by its plain absolute path: `QMT_HOST_ROOT`
/// stands before it, empty in production. A path that does not begin with '/' comes back as it is.
[[nodiscard]] std::string HostPath(std::string_view absolute);

/// Whether the monitored host is the one that runs this program, which then may ask the kernel as
/// well; false for a tree of files.
[[nodiscard]] bool IsRunningHost();

/// The host's table of mounts, where HostPath has it: /etc/mtab, which tells those of this process;
/// in a mount namespace of its own the table of process 1, if that may be read.
[[nodiscard]] std::string HostMountTable();

/// The place of a file of this product, named by its plain absolute path: `QMT_PRODUCT_ROOT` stands
/// before it, empty in production. A path that does not begin with '/' comes back as it is.
[[nodiscard]] std::string ProductPath(std::string_view absolute);

/// Replace the two prefixes; they are read from the environment at first use.
void SetHostRoot(std::string root);
void SetProductRoot(std::string root);
