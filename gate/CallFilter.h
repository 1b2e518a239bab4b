#pragma once

/// Has the kernel refuse this process, and its threads, what the gate has no use for: to start or
/// become a program, to leave its process group or session, to signal, trace or look into other
/// processes, also as the owners of descriptors, and to type into a terminal. Source: seccomp(2).
/// False if the kernel has no such filter; no_new_privs must be set.
[[nodiscard]] bool FilterCalls();
