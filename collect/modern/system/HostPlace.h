#pragma once

#include <string>

class HostFolder;

// Where a host runs: in a virtual machine, in a container, on how many processors. Each takes the
// open root of the host.

/// The usual short name of the virtualisation that the host runs in; empty for none. The first that
/// tells one counts: /sys/hypervisor/type, but for the domain that governs the others; the texts of
/// the firmware; the clock sources that only a guest has; at last "other", where a processor has
/// the flag of a hypervisor. A machine that QEMU makes is "kvm" where its clock is that of KVM.
[[nodiscard]] std::string FindVirtualisation(const HostFolder& root, bool hasHypervisorFlag);

/// The manager of the container that the host's root is one of; empty for none. The first that
/// tells one counts: `container=` in the environment of process 1, which only its owner and root
/// can read, /run/systemd/container, /.dockerenv ("docker"), /run/.containerenv ("podman").
[[nodiscard]] std::string FindContainer(const HostFolder& root);

/// How many processors are on, and what they are parts of.
struct ProcessorCounts {
  double sockets;
  double cores;
  double threads;
};
/// Counts what is on: a core is a set of processors that the kernel names as siblings of each
/// other, a socket what has its own physical_package_id. Processors without such files count as
/// threads alone; kNotTold where no processor tells.
[[nodiscard]] ProcessorCounts CountProcessors(const HostFolder& root);
