#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

/// What an archive may unpack to.
struct UnpackLimits {
  std::uint64_t bytes = std::uint64_t{4} << 30U;  ///< of all files together
  std::uint64_t entries = 1'000'000;  ///< folders that are there by a name below them counted too
  std::uint64_t nameBytes = std::uint64_t{256} << 20U;  ///< of the names of all entries together
  std::uint64_t depth = 128;                            ///< folders within each other
};

/// Packs all files and folders below `folder` into a new file (0600), a tar archive in the pax
/// format compressed by zstd, without owners. `stop`, -1 for none, ends it with Interrupted once it
/// is readable; what is left of the file is the caller's. Throws ClientError.
void PackFolder(const std::string& folder, const std::string& file, int stop = -1);

/// renameat2(2) of the C library.
using RenameCall = int (*)(int, const char*, int, const char*, unsigned);

/// Gives an archive that is complete its name, which nothing has yet. Throws ClientError, which
/// tells where the archive stays if it can't.
void NameArchive(const std::string& growing, const std::string& file,
                 RenameCall rename = ::renameat2);

/// Unpacks an archive of anybody's into an empty folder, named without links. Nothing is written
/// outside of it, and of kinds other than file, folder and a link that stays inside there is none.
/// Throws ClientError, naming the entry; Interrupted as PackFolder.
void UnpackArchive(const std::string& file, const std::string& folder,
                   const UnpackLimits& limits = {}, int stop = -1);
