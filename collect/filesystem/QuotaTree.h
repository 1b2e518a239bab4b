#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// The layouts in which quotas are kept in files and told by the kernel; numbers of the host's byte
// order.

/// What every format says of a user.
struct QuotaFigures {
  std::uint64_t usedKB = 0;
  std::uint64_t softKB = 0;
  std::uint64_t hardKB = 0;
  std::uint64_t usedFiles = 0;
  std::uint64_t softFiles = 0;
  std::uint64_t hardFiles = 0;
};

/// A user's limits and usage in a file of the second format.
struct v2_disk_dqblk {
  std::uint32_t id;
  std::uint32_t inodeHardLimit;
  std::uint32_t inodeSoftLimit;
  std::uint32_t inodes;
  std::uint32_t blockHardLimit;  ///< Kbytes, as the next one
  std::uint32_t blockSoftLimit;
  std::uint64_t space;  ///< bytes
  std::uint64_t blockTime;
  std::uint64_t inodeTime;
};
static_assert(sizeof(v2_disk_dqblk) == 48);

/// The same as the kernel tells it, which was asked for a user by id.
struct mem_dqblk {
  std::uint32_t inodeHardLimit;
  std::uint32_t inodeSoftLimit;
  std::uint32_t inodes;
  std::uint32_t blockHardLimit;
  std::uint32_t blockSoftLimit;
  std::uint64_t space;
  long blockTime;
  long inodeTime;
};
static_assert(sizeof(mem_dqblk) <= 48);

/// The first format: in the file an array of these, by id; the kernel's has longer times.
struct v1_disk_dqblk {
  std::uint32_t blockHardLimit;  ///< Kbytes, as the next two
  std::uint32_t blockSoftLimit;
  std::uint32_t blocks;
  std::uint32_t inodeHardLimit;
  std::uint32_t inodeSoftLimit;
  std::uint32_t inodes;
  std::uint32_t blockTime;
  std::uint32_t inodeTime;
};
static_assert(sizeof(v1_disk_dqblk) == 32);

/// A file of the second format is a tree of blocks. Block 1 is its root, three more floors of
/// blocks follow, each an array of block numbers by one byte of the id, the highest first; the last
/// floor's numbers are those of blocks of data: a header and entries.
inline constexpr std::size_t kQuotaBlock = 1024;
inline constexpr std::uint32_t kQuotaRoot = 1;
inline constexpr unsigned kQuotaDepth = 4;
inline constexpr std::size_t kQuotaHeader = 16;
inline constexpr std::size_t kQuotaEntries = 21;
static_assert(kQuotaHeader + kQuotaEntries * sizeof(v2_disk_dqblk) == kQuotaBlock);

using QuotaBlock = std::array<char, kQuotaBlock>;
