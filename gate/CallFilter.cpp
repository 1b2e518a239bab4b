#include "gate/CallFilter.h"

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <linux/sockios.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

namespace {

#if defined(__x86_64__)
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
#else
constexpr std::uint32_t kArchitecture = 0;
#endif
/// Numbers from here on are the calls of x32, which would pass by under other numbers.
constexpr std::uint32_t kForeignNumbers = 0x40000000;

constexpr std::array<std::uint32_t, 17> kRefusedCalls{SYS_execve,
                                                      SYS_execveat,
                                                      SYS_ptrace,
                                                      SYS_process_vm_readv,
                                                      SYS_process_vm_writev,
                                                      SYS_setsid,
                                                      SYS_setpgid,
                                                      SYS_rt_sigqueueinfo,
                                                      SYS_rt_tgsigqueueinfo,
                                                      SYS_pidfd_open,
                                                      SYS_pidfd_send_signal,
                                                      SYS_pidfd_getfd,
                                                      SYS_process_madvise,
                                                      SYS_kcmp,
                                                      SYS_unshare,
                                                      SYS_setns,
                                                      SYS_mount};

constexpr std::uint32_t Refuse(int error) {
  return SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(error);
}

constexpr std::uint32_t kNumberOffset = offsetof(::seccomp_data, nr);
constexpr std::uint32_t kArchitectureOffset = offsetof(::seccomp_data, arch);
/// Of the low half of an argument, where the low half comes first.
constexpr std::uint32_t ArgumentOffset(unsigned place) {
  return static_cast<std::uint32_t>(offsetof(::seccomp_data, args)) + 8 * place;
}

/// Puts a filter together, a step after the other.
class FilterText {
 public:
  void Load(std::uint32_t offset) { Add(BPF_LD | BPF_W | BPF_ABS, offset); }
  void And(std::uint32_t bits) { Add(BPF_ALU | BPF_AND | BPF_K, bits); }
  void Return(std::uint32_t action) { Add(BPF_RET | BPF_K, action); }
  /// What was loaded is compared; if it is so, the next step is taken, else the `over` after it are
  /// left out.
  void IfEqual(std::uint32_t value, std::uint8_t over = 1) {
    m_steps.push_back({BPF_JMP | BPF_JEQ | BPF_K, 0, over, value});
  }
  void IfAtLeast(std::uint32_t value) {
    m_steps.push_back({BPF_JMP | BPF_JGE | BPF_K, 0, 1, value});
  }
  void UnlessEqual(std::uint32_t value) {
    m_steps.push_back({BPF_JMP | BPF_JEQ | BPF_K, 1, 0, value});
  }
  [[nodiscard]] bool Install() {
    const ::sock_fprog program{static_cast<unsigned short>(m_steps.size()), m_steps.data()};
    return ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
  }

 private:
  void Add(unsigned code, std::uint32_t value) {
    m_steps.push_back({static_cast<std::uint16_t>(code), 0, 0, value});
  }

  std::vector<::sock_filter> m_steps;
};

/// A call that is refused unless its argument is `allowed`.
void AllowOnly(FilterText& filter, std::uint32_t call, unsigned argument, std::uint32_t allowed) {
  filter.IfEqual(call, 4);
  filter.Load(ArgumentOffset(argument));
  filter.UnlessEqual(allowed);
  filter.Return(Refuse(EPERM));
  filter.Return(SECCOMP_RET_ALLOW);
}

/// A call that is refused if its argument is one of `refused`.
void RefuseOnly(FilterText& filter, std::uint32_t call, unsigned argument,
                std::initializer_list<std::uint32_t> refused) {
  filter.IfEqual(call, static_cast<std::uint8_t>(2 * refused.size() + 2));
  filter.Load(ArgumentOffset(argument));
  for (const std::uint32_t value : refused) {
    filter.IfEqual(value);
    filter.Return(Refuse(EPERM));
  }
  filter.Return(SECCOMP_RET_ALLOW);
}

}  // namespace

bool FilterCalls() {
  if (kArchitecture == 0) {
    return false;
  }
  FilterText filter;
  filter.Load(kArchitectureOffset);
  filter.UnlessEqual(kArchitecture);
  filter.Return(SECCOMP_RET_KILL_PROCESS);
  filter.Load(kNumberOffset);
  filter.IfAtLeast(kForeignNumbers);
  filter.Return(Refuse(ENOSYS));
  for (const std::uint32_t call : kRefusedCalls) {
    filter.IfEqual(call);
    filter.Return(Refuse(EPERM));
  }
#ifdef SYS_fork
  for (const auto call : {std::uint32_t{SYS_fork}, std::uint32_t{SYS_vfork}}) {
    filter.IfEqual(call);
    filter.Return(Refuse(EPERM));
  }
#endif
  // Its flags lie in memory, where no filter looks; the C library then takes the older call.
  filter.IfEqual(SYS_clone3);
  filter.Return(Refuse(ENOSYS));
  // A signal to itself is how a program ends that has found a fault of its own.
  const auto self = static_cast<std::uint32_t>(::getpid());
  AllowOnly(filter, SYS_kill, 0, self);
  filter.Load(kNumberOffset);
  AllowOnly(filter, SYS_tgkill, 0, self);
  filter.Load(kNumberOffset);
  // A limit of another one's ends it as a signal does.
  AllowOnly(filter, SYS_prlimit64, 0, 0);
  filter.Load(kNumberOffset);
  filter.IfEqual(SYS_tkill);
  filter.Return(Refuse(EPERM));
  // Threads are made, processes are not.
  filter.IfEqual(SYS_clone, 5);
  filter.Load(ArgumentOffset(0));
  filter.And(CLONE_THREAD);
  filter.UnlessEqual(CLONE_THREAD);
  filter.Return(Refuse(EPERM));
  filter.Return(SECCOMP_RET_ALLOW);
  // The owner of a descriptor is sent a signal, of any number, for what comes by it.
  RefuseOnly(filter, SYS_fcntl, 1, {F_SETOWN, F_SETOWN_EX, F_SETSIG});
  RefuseOnly(filter, SYS_ioctl, 1, {TIOCSTI, FIOSETOWN, SIOCSPGRP});
  filter.Return(SECCOMP_RET_ALLOW);
  return filter.Install();
}
