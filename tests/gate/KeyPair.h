#pragma once

#include <ctime>
#include <filesystem>

/// Makes a certificate of its own signature in `stem`.crt and its key, which its owner alone may
/// read, in `stem`.key.
void MakeKeyPair(const std::filesystem::path& stem, std::time_t expires);
