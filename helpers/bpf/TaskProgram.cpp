#include "helpers/bpf/TaskProgram.h"

#include <TaskIterator.skel.h>
#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <fcntl.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <memory>

#include "helpers/bpf/Reasons.h"

namespace {

/// More, and the kernel's check of the program, which walks the sum for each, takes too long.
constexpr unsigned kMostProcessors = 1024;

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

Descriptor BindTaskProgram(TaskIterator_bpf& program, std::string& reason) {
  const std::unique_ptr<::bpf_link, LinkDeleter> link(
      ::bpf_program__attach_iter(program.progs.QmtTasks, nullptr));
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
  const unsigned processors = ProcessorsWithoutGap();
  program->rodata->kProcessors = processors <= kMostProcessors ? processors : 0;
  if (const int failed = TaskIterator_bpf__load(program.get()); failed != 0) {
    reason = WhyNotLoaded(-failed);
    return {};
  }
  return BindTaskProgram(*program, reason);
}
