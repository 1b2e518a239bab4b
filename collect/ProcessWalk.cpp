#include "collect/ProcessWalk.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "collect/ProcLib.h"
#include "support/HostPaths.h"
#include "support/HostReads.h"
#include "support/TraceLog.h"

namespace {

constexpr char kProcFolder[] = "/proc";

/// What the kernel is asked for relative to the open /proc, which spares it the walk there.
const char* BelowProc(const char* path) { return path + sizeof(kProcFolder); }

}  // namespace

ProcessWalk::~ProcessWalk() {
  if (IsOpen() && m_entries.Close() != 0) {
    Trace(20, kError, "The error occurred by OS API(closedir). (en=%1, arg1=%2)", errno,
          kProcFolder);
  }
}

ProcessWalk::ProcessWalk(int level) : m_entries(HostPath(kProcFolder)) {
  if (!IsOpen()) {
    Trace(level, kError, "The error occurred by OS API(opendir). (en=%1, arg1=%2)", errno,
          kProcFolder);
  }
}

const char* ProcessWalk::Next() {
  while (const dirent* entry = m_entries.Next()) {
    if (ProcLib::IsNumeric(entry->d_name) == 0) {
      return entry->d_name;
    }
  }
  return nullptr;
}

int ProcessWalk::Open(const char* path) const {
  // A pipe in a captured tree must not block the agent.
  return OpenHost(m_entries.Folder(), BelowProc(path),
                  O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
}

ssize_t ProcessWalk::ReadLink(const char* path, char* target, std::size_t size) const {
  return ReadHostLink(m_entries.Folder(), BelowProc(path), target, size);
}

ProcessWalk ProcessWalk::Below(const char* path) const {
  ProcessWalk walk;
  if (const int descriptor = Open(path); descriptor >= 0) {
    walk.m_entries = HostEntries(descriptor);
  }
  return walk;
}
