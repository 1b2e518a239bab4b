#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>

/// Blocks of 512 bytes by owner.
using OwnerBlocks = std::unordered_map<::uid_t, std::uint64_t>;

/// How far a walk has come.
struct WalkProgress {
  std::uint64_t files = 0;  ///< all that is no directory; one with several names once
  std::uint64_t directories = 0;
  std::uint64_t blocks = 0;  ///< of 512 bytes
  std::uint64_t unread = 0;  ///< directories that could not be read, or only in part
};

/// Sums what each owner has in the directory `root` and below, by openat(2) and statx(2). Links are
/// not followed, other mounts not entered, and a file with several names counts once. However
/// deep the tree is, three descriptors do. What vanishes meanwhile is passed over.
/// `goOn(progress)` is asked after each directory and each thousand entries of one. False if it
/// said no or the root can't be read.
[[nodiscard]] bool SumByOwner(const std::string& root, OwnerBlocks& owners, WalkProgress& progress,
                              const std::function<bool(const WalkProgress&)>& goOn);
