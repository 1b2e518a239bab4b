#include "collect/filesystem/QuotaTree.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "collect/filesystem/QuotaSource.h"
#include "support/WholeTransfer.h"

namespace {

std::int64_t OffsetOf(std::uint32_t block) {
  return std::int64_t{block} * static_cast<std::int64_t>(kQuotaBlock);
}

std::uint32_t NumberAt(const QuotaBlock& block, std::size_t offset) {
  std::uint32_t number = 0;
  std::memcpy(&number, block.data() + offset, sizeof number);
  return number;
}

bool ReadTraced(int fd, std::uint32_t block, QuotaBlock& buffer) {
  const int rc = QuotaSourceUser::ReadBlock(fd, block, buffer.data());
  if (rc < 0) {
    Trace(30, kError,
          "Error occured in function (QuotaSourceUser::ReadBlock).(rc=%1, arg1=%2, arg2=%3, "
          "arg3=%4)",
          rc, fd, block, AddressOf(buffer.data()));
  }
  return rc >= 0;
}

}  // namespace

int QuotaSourceUser::ReadBlock(int fd, std::uint32_t block, char* buf) {
  std::memset(buf, 0, kQuotaBlock);
  const std::int64_t offset = OffsetOf(block);
  if (::lseek64(fd, offset, SEEK_SET) < 0) {
    Trace(20, kError, "The error occurred by OS API(lseek). (en=%1, arg1=%2, arg2=%3, arg3=%4)",
          errno, fd, offset, "SEEK_SET");
    return -1;
  }
  const ssize_t count = ReadFully(fd, {buf, kQuotaBlock});
  if (count < 0) {
    Trace(20, kError, "The error occurred by OS API(read). (en=%1, arg1=%2, arg2=%3, arg3=%4)",
          errno, fd, AddressOf(buf), kQuotaBlock);
    return -1;
  }
  return static_cast<int>(count);
}

std::int64_t QuotaSourceUser::FindBlockDQEntry(int fd, std::uint32_t block, std::uint32_t uid,
                                               v2_disk_dqblk* entry) {
  QuotaBlock buffer;
  if (!ReadTraced(fd, block, buffer)) {
    return 0;
  }
  for (std::size_t index = 0; index < kQuotaEntries; ++index) {
    const std::size_t place = kQuotaHeader + index * sizeof *entry;
    if (NumberAt(buffer, place) == uid) {
      std::memcpy(entry, buffer.data() + place, sizeof *entry);
      return OffsetOf(block) + static_cast<std::int64_t>(place);
    }
  }
  return 0;
}

std::int64_t QuotaSourceUser::FindDQEntry(int fd, std::uint32_t uid, v2_disk_dqblk* entry) {
  QuotaBlock buffer;
  std::uint32_t block = kQuotaRoot;
  for (unsigned depth = 0; depth < kQuotaDepth; ++depth) {
    if (!ReadTraced(fd, block, buffer)) {
      return 0;
    }
    const std::size_t index = (uid >> ((kQuotaDepth - 1 - depth) * 8)) & 0xffU;
    block = NumberAt(buffer, index * sizeof block);
    if (block == 0) {
      return 0;
    }
  }
  return FindBlockDQEntry(fd, block, uid, entry);
}
