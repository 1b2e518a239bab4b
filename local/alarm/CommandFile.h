#pragma once

#include <sys/types.h>

/// Why the agent, which runs as `user`, must not start the program at an absolute path: it is no
/// regular file, or somebody but root and that user owns it, or its folder, or may write to one of
/// them. Of a link that holds of the folder of the link and of that where the file lies. Null if it
/// may be started. To be called between fork(2) and exec(2) as well.
[[nodiscard]] const char* CommandFault(const char* path, uid_t user);
