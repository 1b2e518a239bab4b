#pragma once

#include <cstdint>

#include "collect/filesystem/FileSystemSource.h"
#include "node/Packed.h"
#include "support/TraceLog.h"

// What the records of local and of remote file systems have in common. Counts are unsigned 64-bit
// numbers, their differences too: where more is available than free they are huge.

inline double Whole(std::uint64_t count) { return static_cast<double>(count); }

inline constexpr double kMbyte = 1048576.0;

/// The whole size of a file system.
inline double TotalMbytes(const FileSystem& source) {
  return Whole(source.blocks) / kMbyte * source.fragmentSize;
}

/// 100 * part / whole; `whole` is not 0.
inline float PartPercent(std::uint64_t part, std::uint64_t whole) {
  return static_cast<float>(100 * Whole(part) / Whole(whole));
}

/// Shares of blocks or inodes in per cent. What is reserved counts in neither `inUse` nor
/// `available`: these are shares of what ordinary users may have.
struct SpaceShares {
  float free = 0;
  float reserved = 0;
  float inUse = 0;
  float available = 0;
};

inline SpaceShares SharesOf(std::uint64_t total, std::uint64_t free, std::uint64_t available) {
  SpaceShares shares;
  if (total == 0) {
    return shares;
  }
  const std::uint64_t reserved = free - available;
  shares.free = PartPercent(free, total);
  shares.reserved = PartPercent(reserved, total);
  if (reserved < total) {
    shares.inUse = PartPercent(total - free, total - reserved);
    shares.available = PartPercent(available, total - reserved);
  }
  return shares;
}

/// Warns of a file system whose size is beyond belief.
inline void TraceHugeSize(const FileSystem& source, double mbytes) {
  constexpr double kMostMbytes = 17592186044416.0;
  if (mbytes > kMostMbytes) {
    Trace(20, kWarning, "Total Size Mbytes field is over 16Exa Bytes.");
    Trace(20, kWarning, "File System = %1", source.GetMountPoint());
    Trace(20, kWarning, "Total Size Mbytes = %1", mbytes);
  }
}

/// Fills the fields of sizes; `availableBlocks` is the one whose name differs from record to
/// record.
template <class Record>
void FillSizes(Record& row, const FileSystem& source, Double Record::*availableBlocks) {
  const double mbytesEach = source.fragmentSize / kMbyte;
  // Without a block's size there is nothing to count in.
  const double unit =
      source.blockSize == 0 ? 0.0 : static_cast<double>(source.fragmentSize) / source.blockSize;

  row.blockSize = source.blockSize;
  row.totalSizeMbytes = TotalMbytes(source);
  TraceHugeSize(source, row.totalSizeMbytes);
  row.availableSpaceMbytes = Whole(source.blocksAvail) * mbytesEach;
  row.mbytesFree = Whole(source.blocksFree) * mbytesEach;
  row.mbytesInUse = row.totalSizeMbytes - Whole(source.blocksFree) * mbytesEach;
  row.mbytesRsvd = row.mbytesFree - row.availableSpaceMbytes;
  row.totalSizeBlocks = Whole(source.blocks) * unit;
  row.*availableBlocks = Whole(source.blocksAvail) * unit;
  row.blocksFree = Whole(source.blocksFree) * unit;
  row.blocksInUse = Whole(source.blocks - source.blocksFree) * unit;

  const SpaceShares shares = SharesOf(source.blocks, source.blocksFree, source.blocksAvail);
  row.mbytesFreePercent = shares.free;
  row.mbytesRsvdPercent = shares.reserved;
  row.mbytesInUsePercent = shares.inUse;
  row.availableSpacePercent = shares.available;
}
