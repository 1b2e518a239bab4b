#pragma once

#include <sys/types.h>

#include <string>

/// Gives up what the gate has no use for, before a byte of the network is read: root's identity for
/// that of `user`, where it has it, all capabilities, further ones by programs, and, where the
/// kernel knows how (5.13 and newer), the right to write, make, remove or run any file, but for
/// plain files in the folder `state`, which is empty for none, and (6.12 and newer) to signal other
/// processes; see also FilterCalls. False, with the reason in `error`, where the identity or the
/// capabilities can't be given up.
[[nodiscard]] bool GiveUpRights(const std::string& user, const std::string& state,
                                std::string& error);

/// Has the gate end with the process that has started it, which is `parent`. False if that has
/// ended already.
[[nodiscard]] bool EndWithParent(pid_t parent);
