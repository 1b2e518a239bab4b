#pragma once

#include <grp.h>
#include <net/if.h>
#include <pwd.h>
#include <sys/msg.h>
#include <sys/resource.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <sys/time.h>
#include <sys/timex.h>
#include <sys/types.h>
#include <sys/utsname.h>
#include <sys/vfs.h>

#include <ctime>

/// The calls of the operating system that tests replace to inject a figure or a failure. Each has
/// the signature and the error convention of the call of its name; `semctl` takes what its last
/// argument points to.
struct OsCalls {
  int (*sysinfo)(struct ::sysinfo*);
  int (*uname)(struct ::utsname*);
  int (*getrlimit)(int resource, struct ::rlimit*);
  int (*setrlimit)(int resource, const struct ::rlimit*);
  int (*get_nprocs)();
  int (*get_nprocs_conf)();
  int (*getpagesize)();
  struct ::passwd* (*getpwuid)(uid_t);
  struct ::group* (*getgrgid)(gid_t);
  int (*socket)(int domain, int type, int protocol);
  int (*ioctl)(int fd, unsigned long request, struct ::ifreq*);
  int (*acct)(const char* file);
  int (*stat)(const char* path, struct ::stat*);
  int (*statfs64)(const char* path, struct ::statfs64*);
  int (*quotactl)(int command, const char* device, int id, char* address);
  int (*semctl)(int id, int number, int command, void* answer);
  int (*shmctl)(int id, int command, struct ::shmid_ds*);
  int (*msgctl)(int id, int command, struct ::msqid_ds*);
  void (*setpwent)();
  struct ::passwd* (*getpwent)();
  void (*endpwent)();
  pid_t (*fork)();
  std::time_t (*time)(std::time_t*);
  int (*gettimeofday)(struct ::timeval*);
  int (*clock_gettime)(clockid_t, struct ::timespec*);
  int (*adjtimex)(struct ::timex*);
  unsigned (*sleep)(unsigned seconds);
};

/// The table in force; the real calls unless a test has replaced some.
[[nodiscard]] OsCalls& Os();
