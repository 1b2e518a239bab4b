#include "io/MemoryRest.h"

#include <link.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

namespace {

/// Delays without work that are a rest.
constexpr int kQuiet = 5;

/// Drops the pages of an object's segments that are never written, by dl_iterate_phdr(3).
int DropFilePages(::dl_phdr_info* object, std::size_t, void*) {
  static const auto kPage = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
  for (int i = 0; i < object->dlpi_phnum; ++i) {
    const ElfW(Phdr)& segment = object->dlpi_phdr[i];
    if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) != 0) {
      continue;
    }
    const std::uintptr_t begin = (object->dlpi_addr + segment.p_vaddr) & ~(kPage - 1);
    const std::uintptr_t end =
        (object->dlpi_addr + segment.p_vaddr + segment.p_memsz) & ~(kPage - 1);
    if (begin < end) {
      // What is locked stays, and the kernel puts the pages of its own object back.
      ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_DONTNEED);
    }
  }
  return 0;
}

}  // namespace

MemoryRest::MemoryRest(IoLoop& loop, std::chrono::steady_clock::duration delay)
    : m_delay(delay), m_timer(loop), m_quiet(loop) {
  ::mallopt(M_TRIM_THRESHOLD, kKept);
  ::mallopt(M_MMAP_THRESHOLD, kKept);
}

void MemoryRest::NoteRareWork() {
  if (!m_isDue) {
    m_isDue = true;
    m_bytes = 0;
    m_timer.After(m_delay, [this] { Look(); });
  }
}

void MemoryRest::NoteWork() {
  m_quiet.After(kQuiet * m_delay, [this] { GiveBack(); });
}

void MemoryRest::NoteBytes(std::size_t bytes) {
  m_bytes += bytes;
  if (m_bytes > kRush) {
    NoteRareWork();
  }
}

void MemoryRest::Look() {
  m_isDue = false;
  if (m_bytes > kRush / 4) {
    NoteRareWork();
    return;
  }
  m_bytes = 0;
  GiveBack();
}

void MemoryRest::GiveBack() {
  ::malloc_trim(0);
  ::dl_iterate_phdr(DropFilePages, nullptr);
}
