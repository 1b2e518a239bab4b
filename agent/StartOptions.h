#pragma once

#include <string>

/// What the command line says; each text is empty where it says nothing.
struct StartOptions {
  static constexpr std::size_t kMaxText = 4095;

  std::string instanceName;   ///< -n, cut to kMaxText
  std::string dataDirectory;  ///< -d, cut to kMaxText
};

/// Reads the options "n:d:fhv?". All but -n and -d, known or not, are passed over in silence.
[[nodiscard]] StartOptions ReadStartOptions(int argc, char** argv);

/// What the whole words --help and --version on the command line ask for, to be printed instead of
/// a start; empty without them. What follows "--" or is the value of -n or -d is no such word.
[[nodiscard]] std::string AnswerToWords(int argc, char** argv);

/// Takes SAUNIXPMAP and APP_COLLECTOR_LOG into the process-wide switches.
void ReadEnvironment();

/// The release of the monitored host's kernel: what a captured host tree says in
/// /proc/sys/kernel/osrelease, else `own`, this machine's.
[[nodiscard]] std::string HostRelease(const std::string& own);

/// The kernel generation that a `uname` release belongs to: 1 with "2.4.9" in it, 2 with "2.4.21",
/// 3 for all others.
[[nodiscard]] int KernelVariantOf(const std::string& release);
