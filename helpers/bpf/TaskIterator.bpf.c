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
enum bpf_map_type { BPF_MAP_TYPE_PERCPU_ARRAY = 6 };
#include <bpf/bpf_core_read.h>
#include <bpf/bpf_helpers.h>

char kLicense[] SEC("license") = "GPL";

/// How many processors there can be, numbered without a gap; 0 where that is not known.
const volatile uint32_t kProcessors = 0;
/// A value for each processor: how far they lie apart tells how far all does that is a processor's
/// own. In each stands where it is, which a program may know as a number in this way alone, and the
/// head of this map as the kernel has it, which tells the first place.
enum { kHeadSize = 1024 };
struct OfProcessor {
  volatile uint64_t self;
  uint64_t head[kHeadSize / sizeof(uint64_t)];
};
struct {
  __uint(type, BPF_MAP_TYPE_PERCPU_ARRAY);
  __uint(max_entries, 1);
  __type(key, uint32_t);
  __type(value, struct OfProcessor);
} g_ofProcessors SEC(".maps");

enum { kProcess = 0, kGroup = 1, kProcessGroup = 2, kSession = 3 };  // the kernel's pid_type
enum { kFilePages = 0, kAnonymousPages = 1, kSwapPages = 2, kSharedPages = 3 };
enum { kKernelThread = 0x00200000, kNormalPriority = 120, kRealTimePriorities = 100 };
enum { kMostNamespaces = 32 };
/// A whole structure does not fit onto the program's stack: what a thread shares with its group, from
/// deadUtime on, is made and written apart.
enum {
  kThreadPart = __builtin_offsetof(struct TaskFigures, deadUtime),
  kGroupPart = sizeof(struct TaskFigures) - kThreadPart
};

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
}

static __always_inline void TellProgram(struct TaskFigures* figures, struct task_struct* task) {
  figures->selfExecId = task->self_exec_id;
  if (bpf_core_type_exists(struct css_set)) {
    figures->controlGroup = task->cgroups->dfl_cgrp->kn->id;
  }
  bpf_probe_read_kernel(figures->name, sizeof figures->name, task->comm);
}

static __always_inline void TellTimes(struct TaskFigures* figures, struct task_struct* task) {
  figures->utime = task->utime;
  figures->stime = task->stime;
  figures->runTime = task->se.sum_exec_runtime;
  figures->minorFaults = task->min_flt;
  figures->majorFaults = task->maj_flt;
  figures->voluntarySwitches = task->nvcsw;
  figures->otherSwitches = task->nivcsw;
  if (bpf_core_field_exists(task->sched_info.run_delay)) {
    figures->present |= kTaskHasRunDelay;
    figures->runDelay = task->sched_info.run_delay;
  }
}

static __always_inline void TellTransfers(struct TaskFigures* figures, struct task_struct* task) {
  if (bpf_core_field_exists(task->ioac.rchar)) {
    figures->present |= kTaskHasCharacters;
    figures->readChars = task->ioac.rchar;
    figures->writeChars = task->ioac.wchar;
    figures->readCalls = task->ioac.syscr;
    figures->writeCalls = task->ioac.syscw;
  }
  if (bpf_core_field_exists(task->ioac.read_bytes)) {
    figures->present |= kTaskHasBytes;
    figures->readBytes = task->ioac.read_bytes;
    figures->writeBytes = task->ioac.write_bytes;
    figures->cancelledBytes = task->ioac.cancelled_write_bytes;
  }
}

static __always_inline void TellEnded(struct TaskFigures* figures, struct task_struct* task) {
  struct signal_struct* group = task->signal;
  figures->deadUtime = group->utime;
  figures->deadStime = group->stime;
  figures->deadRunTime = group->sum_sched_runtime;
  figures->deadMinorFaults = group->min_flt;
  figures->deadMajorFaults = group->maj_flt;
  figures->deadVoluntarySwitches = group->nvcsw;
  figures->deadOtherSwitches = group->nivcsw;
  figures->childUtime = group->cutime;
  figures->childStime = group->cstime;
  if (bpf_core_field_exists(group->ioac.rchar)) {
    figures->deadReadChars = group->ioac.rchar;
    figures->deadWriteChars = group->ioac.wchar;
    figures->deadReadCalls = group->ioac.syscr;
    figures->deadWriteCalls = group->ioac.syscw;
  }
  if (bpf_core_field_exists(group->ioac.read_bytes)) {
    figures->deadReadBytes = group->ioac.read_bytes;
    figures->deadWriteBytes = group->ioac.write_bytes;
    figures->deadCancelledBytes = group->ioac.cancelled_write_bytes;
  }
}

static __always_inline uint64_t NotBelowZero(int64_t count) {
  return count < 0 ? 0 : (uint64_t)count;
}

static __always_inline int PartAt(const int32_t* counters, uint64_t distance) {
  int32_t part = 0;
  bpf_probe_read_kernel(&part, sizeof part, (const char*)counters + distance);
  return part;
}

/// The address of all processors' values, to which each adds its distance; 0 if it is not found.
static __always_inline uint64_t FirstOfProcessors(void) {
  const struct bpf_array* none = 0;
  const uint64_t place = bpf_core_field_offset(none->pptrs);
  const uint32_t key = 0;
  struct OfProcessor* own = bpf_map_lookup_elem(&g_ofProcessors, &key);
  if (own == 0 || place > kHeadSize - sizeof(uint64_t)) {
    return 0;
  }
  const uint64_t* first = (const uint64_t*)((const char*)own->head + place);
  // Whoever comes in between writes the same.
  if (*first == 0) {
    bpf_probe_read_kernel(own->head, place + sizeof *first, &g_ofProcessors);
  }
  return *first;
}

/// Adds what the processors have counted and not yet put into the common count.
static __always_inline void AddParts(int64_t* counts, struct mm_struct* memory) {
  const uint64_t first = FirstOfProcessors();
  for (uint32_t processor = 0; processor < kProcessors; ++processor) {
    const uint32_t key = 0;
    struct OfProcessor* value = bpf_map_lookup_percpu_elem(&g_ofProcessors, &key, processor);
    if (value == 0 || first == 0) {
      continue;
    }
    if (value->self == 0) {
      value->self = (uint64_t)value;
    }
    const uint64_t distance = value->self - first;
    counts[kFilePages] += PartAt(memory->rss_stat[kFilePages].counters, distance);
    counts[kAnonymousPages] += PartAt(memory->rss_stat[kAnonymousPages].counters, distance);
    counts[kSwapPages] += PartAt(memory->rss_stat[kSwapPages].counters, distance);
    counts[kSharedPages] += PartAt(memory->rss_stat[kSharedPages].counters, distance);
  }
}

static __always_inline void TellResident(struct TaskFigures* figures, struct mm_struct* memory) {
  int64_t counts[4];
  if (bpf_core_type_exists(struct mm_rss_stat)) {
    struct mm_struct___atomics* older = (struct mm_struct___atomics*)memory;
    counts[kFilePages] = older->rss_stat.count[kFilePages].counter;
    counts[kAnonymousPages] = older->rss_stat.count[kAnonymousPages].counter;
    counts[kSwapPages] = older->rss_stat.count[kSwapPages].counter;
    counts[kSharedPages] = older->rss_stat.count[kSharedPages].counter;
  } else {
    counts[kFilePages] = memory->rss_stat[kFilePages].count;
    counts[kAnonymousPages] = memory->rss_stat[kAnonymousPages].count;
    counts[kSwapPages] = memory->rss_stat[kSwapPages].count;
    counts[kSharedPages] = memory->rss_stat[kSharedPages].count;
    AddParts(counts, memory);
  }
  figures->filePages = NotBelowZero(counts[kFilePages]);
  figures->anonymousPages = NotBelowZero(counts[kAnonymousPages]);
  figures->swapPages = NotBelowZero(counts[kSwapPages]);
  figures->sharedPages = NotBelowZero(counts[kSharedPages]);
  const uint64_t now = figures->filePages + figures->anonymousPages + figures->sharedPages;
  figures->peakPages = memory->hiwater_rss > now ? memory->hiwater_rss : now;
}

/// Whether the memory of a thread is told with it: all threads of a group have the same, and a thread
/// of the kernel has some for the while alone in which it works for a process.
static __always_inline int HasOwnMemory(struct task_struct* task) {
  return task->mm != 0 && (task->flags & kKernelThread) == 0 &&
         (task->pid == task->tgid || task->group_leader->mm == 0);
}

static __always_inline void TellMemory(struct TaskFigures* figures, struct task_struct* task) {
  struct mm_struct* memory = task->mm;
  figures->virtualPages = memory->total_vm;
  figures->dataPages = memory->data_vm;
  figures->stackPages = memory->stack_vm;
  figures->execPages = memory->exec_vm;
  TellResident(figures, memory);
}

static __noinline int WriteThread(struct seq_file* file, struct task_struct* task,
                                  struct pid_namespace* ns, uint32_t level) {
  const struct Reader reader = {ns, level};
  uint64_t words[kThreadPart / sizeof(uint64_t)];
  __builtin_memset(words, 0, sizeof words);
  struct TaskFigures* figures = (struct TaskFigures*)words;
  figures->size = sizeof(struct TaskFigures);
  figures->version = QMT_TASK_FIGURES_VERSION;
  TellNumbers(figures, task, &reader);
  TellTerminal(figures, task, &reader);
  TellOwner(figures, task);
  TellState(figures, task);
  TellTimes(figures, task);
  TellTransfers(figures, task);
  if (HasOwnMemory(task)) {
    figures->present |= kTaskHasMemory;
  }
  return (int)bpf_seq_write(file, words, sizeof words);
}

static __noinline int WriteGroup(struct seq_file* file, struct task_struct* task) {
  uint64_t words[kGroupPart / sizeof(uint64_t)];
  __builtin_memset(words, 0, sizeof words);
  // Where the whole structure would begin.
  struct TaskFigures* figures = (struct TaskFigures*)((uint64_t)words - kThreadPart);
  TellEnded(figures, task);
  if (HasOwnMemory(task)) {
    TellMemory(figures, task);
  }
  TellProgram(figures, task);
  return (int)bpf_seq_write(file, words, sizeof words);
}

SEC("iter/task")
int QmtTasks(struct bpf_iter__task* context) {
  struct task_struct* task = context->task;
  if (task == 0) {
    return 0;
  }
  struct seq_file* file = context->meta->seq;
  struct bpf_iter_seq_task_common* walk = file->private;
  struct pid_namespace* ns = BPF_CORE_READ(walk, ns);
  // Where one of the two does not fit into the kernel's buffer any more, both are written again by
  // the next read.
  WriteThread(file, task, ns, BPF_CORE_READ(ns, level));
  WriteGroup(file, task);
  return 0;
}
