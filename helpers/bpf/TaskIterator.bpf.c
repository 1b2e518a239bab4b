// SPDX-License-Identifier: GPL-2.0-only OR BSD-2-Clause
//
// The kernel's part of the helper: writes a TaskFigures for each thread into the file that the
// iterator is pinned at. The kernel lends what this program calls to programs under the GPL alone;
// so this file and KernelTypes.h are under it as well, and nothing else is.

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

char kLicense[] SEC("license") = "Dual BSD/GPL";

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

/// The counts of resident pages by kind: what is common, and where each processor has its part.
struct Resident {
  int64_t counts[4];
  const char* parts[4];  ///< null before 6.2
  uint64_t first;
};

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

static __always_inline int PartAt(const char* parts, uint64_t distance) {
  int32_t part = 0;
  bpf_probe_read_kernel(&part, sizeof part, parts + distance);
  return part;
}

/// Adds what one processor has counted and not yet put into the common counts.
static long AddParts(uint32_t processor, struct Resident* resident) {
  const uint32_t key = 0;
  struct OfProcessor* value = bpf_map_lookup_percpu_elem(&g_ofProcessors, &key, processor);
  if (value == 0) {
    return 0;
  }
  if (value->self == 0) {
    value->self = (uint64_t)value;
  }
  const uint64_t distance = value->self - resident->first;
  resident->counts[kFilePages] += PartAt(resident->parts[kFilePages], distance);
  resident->counts[kAnonymousPages] += PartAt(resident->parts[kAnonymousPages], distance);
  resident->counts[kSwapPages] += PartAt(resident->parts[kSwapPages], distance);
  resident->counts[kSharedPages] += PartAt(resident->parts[kSharedPages], distance);
  return 0;
}

static __noinline int CountPages(struct Resident* resident, struct mm_struct* memory) {
  resident->counts[kFilePages] = memory->rss_stat[kFilePages].count;
  resident->counts[kAnonymousPages] = memory->rss_stat[kAnonymousPages].count;
  resident->counts[kSwapPages] = memory->rss_stat[kSwapPages].count;
  resident->counts[kSharedPages] = memory->rss_stat[kSharedPages].count;
  resident->parts[kFilePages] = (const char*)memory->rss_stat[kFilePages].counters;
  resident->parts[kAnonymousPages] = (const char*)memory->rss_stat[kAnonymousPages].counters;
  resident->parts[kSwapPages] = (const char*)memory->rss_stat[kSwapPages].counters;
  resident->parts[kSharedPages] = (const char*)memory->rss_stat[kSharedPages].counters;
  resident->first = FirstOfProcessors();
  if (kProcessors != 0 && resident->first != 0) {
    bpf_loop(kProcessors, AddParts, resident, 0);
  }
  return 0;
}

static __noinline int CountOlderPages(struct Resident* resident, struct mm_struct* memory) {
  struct mm_struct___atomics* older = (struct mm_struct___atomics*)memory;
  resident->counts[kFilePages] = older->rss_stat.count[kFilePages].counter;
  resident->counts[kAnonymousPages] = older->rss_stat.count[kAnonymousPages].counter;
  resident->counts[kSwapPages] = older->rss_stat.count[kSwapPages].counter;
  resident->counts[kSharedPages] = older->rss_stat.count[kSharedPages].counter;
  return 0;
}

static __always_inline void TellResident(struct TaskFigures* figures,
                                         const struct Resident* resident, uint64_t peak) {
  figures->filePages = NotBelowZero(resident->counts[kFilePages]);
  figures->anonymousPages = NotBelowZero(resident->counts[kAnonymousPages]);
  figures->swapPages = NotBelowZero(resident->counts[kSwapPages]);
  figures->sharedPages = NotBelowZero(resident->counts[kSharedPages]);
  const uint64_t now = figures->filePages + figures->anonymousPages + figures->sharedPages;
  figures->peakPages = peak > now ? peak : now;
}

/// Whether the memory of a thread is told with it: all threads of a group have the same, and a thread
/// of the kernel has some for the while alone in which it works for a process.
static __always_inline int HasOwnMemory(struct task_struct* task) {
  return task->mm != 0 && (task->flags & kKernelThread) == 0 &&
         (task->pid == task->tgid || task->group_leader->mm == 0);
}

typedef int (*Counting)(struct Resident* resident, struct mm_struct* memory);

static __always_inline void TellMemory(struct TaskFigures* figures, struct task_struct* task,
                                       Counting count) {
  struct mm_struct* memory = task->mm;
  struct Resident resident;
  __builtin_memset(&resident, 0, sizeof resident);
  figures->virtualPages = memory->total_vm;
  figures->dataPages = memory->data_vm;
  figures->stackPages = memory->stack_vm;
  figures->execPages = memory->exec_vm;
  count(&resident, memory);
  TellResident(figures, &resident, memory->hiwater_rss);
}

/// 0 where it is written.
static __noinline int WriteThread(struct seq_file* file, struct task_struct* task,
                                  struct pid_namespace* ns, uint32_t level) {
  const struct Reader reader = {ns, level};
  uint64_t words[kThreadPart / sizeof(uint64_t)];
  __builtin_memset(words, 0, sizeof words);
  struct TaskFigures* figures = (struct TaskFigures*)words;
  figures->size = sizeof(struct TaskFigures);
  figures->version = QMT_TASK_FIGURES_VERSION;
  TellNumbers(figures, task, &reader);
  // A task that was reaped since the kernel took it up has no number any more.
  if (figures->pid == 0 || figures->tgid == 0) {
    return -1;
  }
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

static __always_inline int WriteGroup(struct seq_file* file, struct task_struct* task,
                                      Counting count) {
  uint64_t words[kGroupPart / sizeof(uint64_t)];
  __builtin_memset(words, 0, sizeof words);
  // Where the whole structure would begin.
  struct TaskFigures* figures = (struct TaskFigures*)((char*)words - kThreadPart);
  TellEnded(figures, task);
  if (HasOwnMemory(task)) {
    TellMemory(figures, task, count);
  }
  TellProgram(figures, task);
  return (int)bpf_seq_write(file, words, sizeof words);
}

static __noinline int WriteGroupOfNow(struct seq_file* file, struct task_struct* task) {
  return WriteGroup(file, task, CountPages);
}

static __noinline int WriteOlderGroup(struct seq_file* file, struct task_struct* task) {
  return WriteGroup(file, task, CountOlderPages);
}

static __always_inline void WriteTask(struct bpf_iter__task* context,
                                      int (*writeGroup)(struct seq_file*, struct task_struct*)) {
  struct task_struct* task = context->task;
  if (task == 0) {
    return;
  }
  struct seq_file* file = context->meta->seq;
  struct bpf_iter_seq_task_common* walk = file->private;
  struct pid_namespace* ns = BPF_CORE_READ(walk, ns);
  // Where one of the two does not fit into the kernel's buffer any more, both are written again by
  // the next read.
  if (WriteThread(file, task, ns, BPF_CORE_READ(ns, level)) == 0) {
    writeGroup(file, task);
  }
}

// One of the two is loaded: the loop over the processors is nothing that kernels before 5.17 know.

SEC("iter/task")
int QmtTasks(struct bpf_iter__task* context) {
  WriteTask(context, WriteGroupOfNow);
  return 0;
}

/// Before 6.2.
SEC("iter/task")
int QmtTasksOlder(struct bpf_iter__task* context) {
  WriteTask(context, WriteOlderGroup);
  return 0;
}
