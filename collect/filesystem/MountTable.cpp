#include "collect/filesystem/MountTable.h"

#include <string_view>

#include "collect/HostFile.h"
#include "support/HostPaths.h"

namespace {

// The longest device name and mount point, each of 4095 characters that may all be escaped by four,
// and their options: what is cut from a longer line are options, which come last.
constexpr std::size_t kLineBuffer = 64 * 1024;

}  // namespace

bool MountTable::Open(const char* path) {
  m_line.resize(kLineBuffer);
  m_stream =
      OpenHostFileAt(std::string_view(path) == kMtab ? HostMountTable() : HostPath(path), path);
  return m_stream != nullptr;
}

mntent* MountTable::Next(std::FILE* stream) {
  return ::getmntent_r(stream, &m_entry, m_line.data(), static_cast<int>(m_line.size()));
}

bool MountTable::Rewind() { return std::fseek(m_stream.get(), 0, SEEK_SET) == 0; }
