#include "support/OsCalls.h"

#include <sys/ioctl.h>
#include <sys/quota.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// The library's own names for the resource argument and the time zone differ between C and C++.
int RealGetrlimit(int resource, struct ::rlimit* limit) {
  return ::getrlimit(static_cast<__rlimit_resource_t>(resource), limit);
}
int RealSetrlimit(int resource, const struct ::rlimit* limit) {
  return ::setrlimit(static_cast<__rlimit_resource_t>(resource), limit);
}
int RealIoctl(int fd, unsigned long request, struct ::ifreq* argument) {
  return ::ioctl(fd, request, argument);
}
int RealSemctl(int id, int number, int command, void* answer) {
  return ::semctl(id, number, command, answer);
}
int RealGettimeofday(struct ::timeval* now) { return ::gettimeofday(now, nullptr); }

}  // namespace

OsCalls& Os() {
  static OsCalls calls{
      .sysinfo = ::sysinfo,
      .uname = ::uname,
      .getrlimit = RealGetrlimit,
      .setrlimit = RealSetrlimit,
      .get_nprocs = ::get_nprocs,
      .get_nprocs_conf = ::get_nprocs_conf,
      .getpagesize = ::getpagesize,
      .getpwuid = ::getpwuid,
      .getgrgid = ::getgrgid,
      .socket = ::socket,
      .ioctl = RealIoctl,
      .acct = ::acct,
      .stat = ::stat,
      .statfs64 = ::statfs64,
      .quotactl = ::quotactl,
      .semctl = RealSemctl,
      .shmctl = ::shmctl,
      .msgctl = ::msgctl,
      .setpwent = ::setpwent,
      .getpwent = ::getpwent,
      .endpwent = ::endpwent,
      .fork = ::fork,
      .time = ::time,
      .gettimeofday = RealGettimeofday,
      .clock_gettime = ::clock_gettime,
      .adjtimex = ::adjtimex,
      .sleep = ::sleep,
  };
  return calls;
}
