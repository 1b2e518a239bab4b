#pragma once

#include <sys/types.h>

#include <string>

/// What lets a file with a password, a token or a key not serve, whoever it is that reads it.
enum class SecretModeFault { kNone, kOthersReach, kGroupWrites };

/// Others may do nothing with it, and its group may only read.
[[nodiscard]] SecretModeFault FaultOfSecretMode(mode_t mode);

/// The first line of the text, which is the password or the token; empty if it can't be one: it is
/// longer than 4096 bytes, or holds what can't be printed.
[[nodiscard]] std::string SecretLineOf(std::string text);
