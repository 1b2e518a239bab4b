#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "userdata/EventFile.h"
#include "userdata/WorkgroupFile.h"

namespace {

/// A file in memory with a path of its own.
class MemoryFile {
 public:
  MemoryFile() : m_descriptor(::memfd_create("definitions", MFD_CLOEXEC)) {}
  void Write(const std::uint8_t* data, std::size_t size) const {
    if (::ftruncate(m_descriptor, 0) != 0 ||
        ::pwrite(m_descriptor, data, size, 0) != static_cast<ssize_t>(size)) {
      std::abort();
    }
  }
  [[nodiscard]] std::string Path() const { return "/proc/self/fd/" + std::to_string(m_descriptor); }

 private:
  int m_descriptor;
};

}  // namespace

/// Any bytes as both definition files, and each workgroup against some processes.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const MemoryFile memory;
  memory.Write(data, size);
  const std::string path = memory.Path();
  mondWgFile workgroups;
  if (workgroups.mondInitFileAnalyze(path.c_str()) != 0) {
    std::abort();
  }
  WorkGroup* next = nullptr;
  for (int rc = 0; (rc = workgroups.mondGetWgFileEntry(&next)) != -1;) {
    if (rc != 0) {
      continue;
    }
    const std::unique_ptr<WorkGroup> group(next);
    const WorkGroup copy(*group);
    for (const char* text : {"", "^", "root", "/bin/sh -c \"a,b\""}) {
      if (copy.Matches(text, text, text, text) !=
          group->FindRule(text, text, text, text).has_value()) {
        std::abort();
      }
    }
    static_cast<void>(group->Users());
    static_cast<void>(group->Arguments02());
  }
  mondEvFile events;
  if (events.mondInitFileAnalyze(path.c_str()) != 0) {
    std::abort();
  }
  std::array<std::array<char, mondEvFile::kBufferSize>, 3> out;
  while (events.mondGetEvFileEntry(out[0].data(), out[1].data(), out[2].data()) != -1) {
  }
  return 0;
}
