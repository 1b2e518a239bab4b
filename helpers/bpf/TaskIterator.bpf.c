// SPDX-License-Identifier: GPL-2.0-only
//
// The kernel's part of the helper: writes a TaskFigures for each thread into the file that the
// iterator is pinned at. The kernel lends what this program calls to programs under the GPL alone;
// so this file and KernelTypes.h are under it, and nothing else is.

#include "helpers/bpf/KernelTypes.h"
#include "support/TaskFigures.h"
// Behind the types, which it wants under these names.
typedef uint8_t __u8;
typedef uint16_t __u16;
typedef uint32_t __u32;
typedef uint64_t __u64;
typedef int64_t __s64;
typedef int32_t __s32;
typedef __u16 __be16;
typedef __u32 __be32;
typedef __u32 __wsum;
enum bpf_map_type { BPF_MAP_TYPE_UNSPEC };
#include <bpf/bpf_core_read.h>
#include <bpf/bpf_helpers.h>

char kLicense[] SEC("license") = "GPL";

/// How many processors there can be, numbered without a gap; 0 where that is not known.
const volatile uint32_t kProcessors = 0;
/// Where each processor keeps what is its own, added to an address that is of all.
extern const void __per_cpu_offset __ksym __weak;

enum { kProcess = 0, kGroup = 1, kProcessGroup = 2, kSession = 3 };  // the kernel's pid_type
enum { kFilePages = 0, kAnonymousPages = 1, kSwapPages = 2, kSharedPages = 3 };
enum { kKernelThread = 0x00200000, kNormalPriority = 120, kRealTimePriorities = 100 };
enum { kMostNamespaces = 32 };

/// The place in the kernel's tree of PID namespaces whose numbers are told.
struct Reader {
  struct pid_namespace* ns;
  uint32_t level;
};
/// upid as it lies in the kernel.
struct Number {
  int32_t nr;
  void* ns;
};


/// The number of `pid` where the reader is; 0 if it is not there.
static __noinline int NumberBelow(struct pid* pid, struct pid_namespace* ns, uint32_t level) {
  if (pid == 0 || level >= kMostNamespaces || pid->level < level) {
    return 0;
  }
  struct Number number;
  const char* place = (const char*)pid + bpf_core_field_offset(pid->numbers) +
                      level * bpf_core_type_size(struct upid);
  if (bpf_probe_read_kernel(&number, sizeof number, place) != 0 || number.ns != (void*)ns) {
    return 0;
  }
  return number.nr;
}

static __always_inline int NumberOf(struct pid* pid, const struct Reader* reader) {
  if (reader->level != 0) {
    return NumberBelow(pid, reader->ns, reader->level);
  }
  return pid == 0 ? 0 : pid->numbers[0].nr;
}

static __always_inline void TellNumbers(struct TaskFigures* figures, struct task_struct* task,
                                        const struct Reader* reader) {
  struct task_struct* parent = task->real_parent;
  if (reader->level == 0) {
    figures->pid = task->pid;
    figures->tgid = task->tgid;
    figures->ppid = parent->tgid;
  } else {
    figures->pid = NumberOf(task->thread_pid, reader);
    figures->tgid = NumberOf(task->signal->pids[kGroup], reader);
    figures->ppid = NumberOf(parent->signal->pids[kGroup], reader);
  }
  figures->pgrp = NumberOf(task->signal->pids[kProcessGroup], reader);
  figures->session = NumberOf(task->signal->pids[kSession], reader);
}

static __always_inline void TellTerminal(struct TaskFigures* figures, struct task_struct* task,
                                         const struct Reader* reader) {
  struct tty_struct* terminal = task->signal->tty;
  figures->ttyNumber = 0;
  figures->ttyGroup = -1;
  if (terminal == 0) {
    return;
  }
  struct tty_driver* driver = terminal->driver;
  const uint32_t minor = (uint32_t)(driver->minor_start + terminal->index);
  figures->ttyNumber = (int32_t)((minor & 0xff) | ((uint32_t)driver->major << 8) |
                                 ((minor & 0xfff00) << 12));
  struct tty_struct___flat* older = (struct tty_struct___flat*)terminal;
  figures->ttyGroup = bpf_core_field_exists(older->pgrp) ? NumberOf(older->pgrp, reader)
                                                         : NumberOf(terminal->ctrl.pgrp, reader);
}

static __always_inline void TellOwner(struct TaskFigures* figures, struct task_struct* task) {
  const struct cred* owner = task->real_cred;
  figures->uid = owner->uid.val;
  figures->euid = owner->euid.val;
  figures->suid = owner->suid.val;
  figures->fsuid = owner->fsuid.val;
  figures->gid = owner->gid.val;
  figures->egid = owner->egid.val;
  figures->sgid = owner->sgid.val;
  figures->fsgid = owner->fsgid.val;
}

static __always_inline void TellState(struct TaskFigures* figures, struct task_struct* task) {
  struct task_struct___old* older = (struct task_struct___old*)task;
  figures->state = (uint32_t)task->exit_state;
  if (bpf_core_field_exists(older->state)) {
    figures->state |= (uint32_t)older->state;
  } else {
    figures->state |= task->__state;
  }
  figures->lastCpu = (int32_t)(bpf_core_field_exists(older->cpu) ? older->cpu
                                                                 : task->thread_info.cpu);
  figures->flags = task->flags;
  figures->isKernel = (task->flags & kKernelThread) != 0;
  figures->priority = task->prio - kRealTimePriorities;
  figures->nice = task->static_prio - kNormalPriority;
  figures->policy = task->policy;
  figures->threads = (uint32_t)task->signal->nr_threads;
  figures->startTime = task->start_boottime;
  figures->selfExecId = task->self_exec_id;
  figures->controlGroup = 0;
  if (bpf_core_type_exists(struct css_set)) {
    figures->controlGroup = task->cgroups->dfl_cgrp->kn->id;
  }
  bpf_probe_read_kernel(figures->name, sizeof figures->name, task->comm);
}

static __always_inline void TellTimes(struct TaskFigures* figures, struct task_struct* task) {
  struct signal_struct* group = task->signal;
  figures->utime = task->utime;
  figures->stime = task->stime;
  figures->runTime = task->se.sum_exec_runtime;
  figures->minorFaults = task->min_flt;
  figures->majorFaults = task->maj_flt;
  figures->voluntarySwitches = task->nvcsw;
  figures->otherSwitches = task->nivcsw;
  figures->deadUtime = group->utime;
  figures->deadStime = group->stime;
  figures->deadRunTime = group->sum_sched_runtime;
  figures->deadMinorFaults = group->min_flt;
  figures->deadMajorFaults = group->maj_flt;
  figures->deadVoluntarySwitches = group->nvcsw;
  figures->deadOtherSwitches = group->nivcsw;
  figures->childUtime = group->cutime;
  figures->childStime = group->cstime;
  if (bpf_core_field_exists(task->sched_info.run_delay)) {
    figures->present |= kTaskHasRunDelay;
    figures->runDelay = task->sched_info.run_delay;
  }
}

static __always_inline void TellTransfers(struct TaskFigures* figures, struct task_struct* task) {
  struct signal_struct* group = task->signal;
  if (bpf_core_field_exists(task->ioac.rchar)) {
    figures->present |= kTaskHasCharacters;
    figures->readChars = task->ioac.rchar;
    figures->writeChars = task->ioac.wchar;
    figures->readCalls = task->ioac.syscr;
    figures->writeCalls = task->ioac.syscw;
    figures->deadReadChars = group->ioac.rchar;
    figures->deadWriteChars = group->ioac.wchar;
    figures->deadReadCalls = group->ioac.syscr;
    figures->deadWriteCalls = group->ioac.syscw;
  }
  if (bpf_core_field_exists(task->ioac.read_bytes)) {
    figures->present |= kTaskHasBytes;
    figures->readBytes = task->ioac.read_bytes;
    figures->writeBytes = task->ioac.write_bytes;
    figures->cancelledBytes = task->ioac.cancelled_write_bytes;
    figures->deadReadBytes = group->ioac.read_bytes;
    figures->deadWriteBytes = group->ioac.write_bytes;
    figures->deadCancelledBytes = group->ioac.cancelled_write_bytes;
  }
}

/// The sum of what stands at the counter and at each processor; not below 0.
static __noinline uint64_t Sum(int64_t sum, const char* counters) {
  const uint64_t* offsets = &__per_cpu_offset;
  if (counters != 0 && offsets != 0) {
    for (uint32_t processor = 0; processor < kProcessors; ++processor) {
      uint64_t offset = 0;
      int32_t part = 0;
      bpf_probe_read_kernel(&offset, sizeof offset, offsets + processor);
      bpf_probe_read_kernel(&part, sizeof part, counters + offset);
      sum += part;
    }
  }
  return sum < 0 ? 0 : (uint64_t)sum;
}

#define PAGES(memory, kind) \
  Sum((memory)->rss_stat[kind].count, (const char*)(memory)->rss_stat[kind].counters)

static __always_inline void TellResident(struct TaskFigures* figures, struct mm_struct* memory) {
  if (bpf_core_type_exists(struct mm_rss_stat)) {
    struct mm_struct___atomics* older = (struct mm_struct___atomics*)memory;
    figures->filePages = Sum(older->rss_stat.count[kFilePages].counter, 0);
    figures->anonymousPages = Sum(older->rss_stat.count[kAnonymousPages].counter, 0);
    figures->swapPages = Sum(older->rss_stat.count[kSwapPages].counter, 0);
    figures->sharedPages = Sum(older->rss_stat.count[kSharedPages].counter, 0);
  } else {
    figures->filePages = PAGES(memory, kFilePages);
    figures->anonymousPages = PAGES(memory, kAnonymousPages);
    figures->swapPages = PAGES(memory, kSwapPages);
    figures->sharedPages = PAGES(memory, kSharedPages);
  }
  const uint64_t now = figures->filePages + figures->anonymousPages + figures->sharedPages;
  figures->peakPages = memory->hiwater_rss > now ? memory->hiwater_rss : now;
}

static __always_inline void TellMemory(struct TaskFigures* figures, struct task_struct* task) {
  struct mm_struct* memory = task->mm;
  // A thread of the kernel has some for the while in which it works for a process.
  if (memory == 0 || figures->isKernel != 0) {
    return;
  }
  // All threads have the same.
  if (task->pid != task->tgid && task->group_leader->mm != 0) {
    return;
  }
  figures->present |= kTaskHasMemory;
  figures->virtualPages = memory->total_vm;
  figures->dataPages = memory->data_vm;
  figures->stackPages = memory->stack_vm;
  figures->execPages = memory->exec_vm;
  TellResident(figures, memory);
}

SEC("iter/task")
int QmtTasks(struct bpf_iter__task* context) {
  struct task_struct* task = context->task;
  if (task == 0) {
    return 0;
  }
  struct bpf_iter_seq_task_common* walk = context->meta->seq->private;
  struct pid_namespace* ns = BPF_CORE_READ(walk, ns);
  const struct Reader reader = {ns, BPF_CORE_READ(ns, level)};
  struct TaskFigures figures;
  __builtin_memset(&figures, 0, sizeof figures);
  figures.size = sizeof figures;
  figures.version = QMT_TASK_FIGURES_VERSION;
  TellNumbers(&figures, task, &reader);
  TellTerminal(&figures, task, &reader);
  TellOwner(&figures, task);
  TellState(&figures, task);
  TellTimes(&figures, task);
  TellTransfers(&figures, task);
  TellMemory(&figures, task);
  // What does not fit into the kernel's buffer any more is written again by the next read.
  bpf_seq_write(context->meta->seq, &figures, sizeof figures);
  return 0;
}
