// SPDX-License-Identifier: GPL-2.0-only OR BSD-2-Clause
#pragma once

// Of the kernel's structures the members that the program reads, by their names alone: where they
// lie is looked up in the running kernel's own description (BTF) when the program is loaded. A name
// behind ___ is of another generation of the same structure.

#include <stdint.h>

#pragma clang attribute push(__attribute__((preserve_access_index)), apply_to = record)

struct seq_file {
  void* private;
};
struct bpf_iter_meta {
  struct seq_file* seq;
};
struct pid_namespace {
  unsigned int level;
};
struct bpf_iter_seq_task_common {
  struct pid_namespace* ns;
};

struct upid {
  int nr;
  struct pid_namespace* ns;
};
struct pid {
  unsigned int level;
  struct upid numbers[1];
};

struct task_io_accounting {
  uint64_t rchar;
  uint64_t wchar;
  uint64_t syscr;
  uint64_t syscw;
  uint64_t read_bytes;
  uint64_t write_bytes;
  uint64_t cancelled_write_bytes;
};
struct sched_info {
  unsigned long long run_delay;
};
struct sched_entity {
  uint64_t sum_exec_runtime;
};

typedef struct {
  unsigned int val;
} kuid_t;
typedef struct {
  unsigned int val;
} kgid_t;
struct cred {
  kuid_t uid;
  kgid_t gid;
  kuid_t suid;
  kgid_t sgid;
  kuid_t euid;
  kgid_t egid;
  kuid_t fsuid;
  kgid_t fsgid;
};

struct tty_driver {
  int major;
  int minor_start;
};
struct tty_struct {
  int index;
  struct tty_driver* driver;
  struct {
    struct pid* pgrp;
  } ctrl;
};
/// Before 5.13.
struct tty_struct___flat {
  struct pid* pgrp;
};

struct kernfs_node {
  uint64_t id;
};
struct cgroup {
  struct kernfs_node* kn;
};
struct css_set {
  struct cgroup* dfl_cgrp;
};

struct percpu_counter {
  int64_t count;
  int32_t* counters;
};

/// Of a map that has a value for each processor: where the first is, as an address of all of them.
struct bpf_array {
  void* pptrs[1];
};
struct mm_struct {
  unsigned long hiwater_rss;
  unsigned long total_vm;
  unsigned long data_vm;
  unsigned long exec_vm;
  unsigned long stack_vm;
  struct percpu_counter rss_stat[4];
};
/// Before 6.2.
typedef struct {
  int64_t counter;
} atomic64_t;
struct mm_rss_stat {
  atomic64_t count[4];
};
struct mm_struct___atomics {
  struct mm_rss_stat rss_stat;
};

struct signal_struct {
  int nr_threads;
  struct pid* pids[4];
  struct tty_struct* tty;
  uint64_t utime;
  uint64_t stime;
  uint64_t cutime;
  uint64_t cstime;
  unsigned long nvcsw;
  unsigned long nivcsw;
  unsigned long min_flt;
  unsigned long maj_flt;
  struct task_io_accounting ioac;
  unsigned long long sum_sched_runtime;
};

struct thread_info {
  uint32_t cpu;
};
struct task_struct {
  struct thread_info thread_info;
  unsigned int __state;
  unsigned int flags;
  int prio;
  int static_prio;
  struct sched_entity se;
  unsigned int policy;
  struct sched_info sched_info;
  struct mm_struct* mm;
  int exit_state;
  int pid;
  int tgid;
  struct task_struct* real_parent;
  struct task_struct* group_leader;
  struct pid* thread_pid;
  uint64_t utime;
  uint64_t stime;
  unsigned long nvcsw;
  unsigned long nivcsw;
  uint64_t start_boottime;
  unsigned long min_flt;
  unsigned long maj_flt;
  const struct cred* real_cred;
  char comm[16];
  struct signal_struct* signal;
  uint64_t self_exec_id;
  struct task_io_accounting ioac;
  struct css_set* cgroups;
};
/// Before 5.14 (state) and 5.16 (cpu).
struct task_struct___old {
  volatile long state;
  unsigned int cpu;
};

struct bpf_iter__task {
  struct bpf_iter_meta* meta;
  struct task_struct* task;
};

#pragma clang attribute pop
