#include "helpers/bpf/TaskProgram.h"

#include <TaskIterator.skel.h>
#include <bpf/bpf.h>
#include <bpf/btf.h>
#include <bpf/libbpf.h>
#include <fcntl.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <memory>

#include "helpers/bpf/Reasons.h"

namespace {

struct ProgramDeleter {
  void operator()(TaskIterator_bpf* program) const { TaskIterator_bpf__destroy(program); }
};
using ProgramPtr = std::unique_ptr<TaskIterator_bpf, ProgramDeleter>;

struct LinkDeleter {
  void operator()(::bpf_link* link) const { ::bpf_link__destroy(link); }
};

int Tell(::libbpf_print_level /*level*/, const char* format, std::va_list values) {
  return std::vfprintf(stderr, format, values);
}

struct BtfDeleter {
  void operator()(::btf* types) const { ::btf__free(types); }
};

/// Whether this kernel counts resident pages as those before 6.2 do. Without its description, which
/// the loader then misses too, any answer is right.
bool HasOlderCounts() {
  const std::unique_ptr<::btf, BtfDeleter> types(::btf__load_vmlinux_btf());
  return types != nullptr &&
         ::btf__find_by_name_kind(types.get(), "mm_rss_stat", BTF_KIND_STRUCT) > 0;
}

Descriptor BindTaskProgram(const ::bpf_program& program, std::string& reason) {
  const std::unique_ptr<::bpf_link, LinkDeleter> link(
      ::bpf_program__attach_iter(&program, nullptr));
  if (link == nullptr) {
    reason = WhyNotLoaded(errno);
    return {};
  }
  // The library closes its own.
  Descriptor kept(::fcntl(::bpf_link__fd(link.get()), F_DUPFD_CLOEXEC, 0));
  if (!kept.IsOpen()) {
    reason = WhyNotLoaded(errno);
  }
  return kept;
}

}  // namespace

Descriptor LoadTaskProgram(bool isTelling, std::string& reason) {
  ::libbpf_set_print(isTelling ? Tell : nullptr);
  const ProgramPtr program(TaskIterator_bpf__open());
  if (program == nullptr) {
    reason = WhyNotLoaded(errno);
    return {};
  }
  program->rodata->kProcessors = ProcessorsWithoutGap();
  ::bpf_program* const chosen =
      HasOlderCounts() ? program->progs.QmtTasksOlder : program->progs.QmtTasks;
  for (::bpf_program* other : {program->progs.QmtTasks, program->progs.QmtTasksOlder}) {
    ::bpf_program__set_autoload(other, other == chosen);
  }
  if (const int failed = TaskIterator_bpf__load(program.get()); failed != 0) {
    reason = WhyNotLoaded(-failed);
    return {};
  }
  return BindTaskProgram(*chosen, reason);
}
