#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "collect/process/ProcessSourceLINUX.h"
#include "support/TimeValues.h"
#include "tests/fuzz/FuzzHelp.h"

// The parsers of a process's files against the scanning of the C library, which they must equal.

namespace {

void CompareStat(const std::string& line, const ProcessSourceUser& source) {
  x_proc expected;
  char state = '\0';
  int tty = 0;
  int flags = 0;
  unsigned long minor = 0;
  unsigned long major = 0;
  unsigned long user = 0;
  unsigned long system = 0;
  unsigned long start = 0;
  unsigned long size = 0;
  unsigned long resident = 0;
  unsigned long swaps = 0;
  const int count = std::sscanf(
      line.c_str(),
      "%*d %*s %c %d %d %d %d %*d %d %lu %*u %lu %*u %lu %lu %*d %*d %d %d %*u %*u %lu %lu %lu "
      "%*u %*u %*u %*u %*u %*u %*d %*d %*d %*d %*u %lu %*u %*d %*d",
      &state, &expected.ppid, &expected.pgrp, &expected.session, &tty, &flags, &minor, &major,
      &user, &system, &expected.priority, &expected.nice, &start, &size, &resident, &swaps);
  x_proc record;
  const int result = source.Get_Stat_Info(line.c_str(), &record);
  Require((result == 0) == (count == 16), "stat: count");
  if (result != 0) {
    return;
  }
  Require(record.ppid == expected.ppid && record.pgrp == expected.pgrp &&
              record.session == expected.session && record.nice == expected.nice &&
              static_cast<std::uint32_t>(record.priority) ==
                  static_cast<std::uint32_t>(expected.priority) + 60,
          "stat: whole numbers");
  Require(record.minorFaults == static_cast<std::uint32_t>(minor) &&
              record.majorFaults == static_cast<std::uint32_t>(major) &&
              record.swaps == static_cast<std::uint32_t>(swaps) &&
              record.virtualSize == static_cast<std::uint32_t>(size),
          "stat: counters");
  Require(record.tty == (tty == 0 ? ~std::uint64_t{0} : static_cast<std::uint32_t>(tty)),
          "stat: tty");
  Require((record.state == kStateRunning) == (state == 'R'), "stat: state");
  const auto pages = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
  Require(record.residentBytes == static_cast<std::uint32_t>(resident * pages), "stat: rss");
  const tagNTIME times[] = {TicksToNTIME(user), TicksToNTIME(system)};
  Require(std::memcmp(&record.userTime, &times[0], sizeof times[0]) == 0 &&
              std::memcmp(&record.systemTime, &times[1], sizeof times[1]) == 0 &&
              record.startTime.nanoseconds == TicksToNTIME(start).nanoseconds,
          "stat: times");
}

void CompareStatm(const std::string& line, const ProcessSourceUser& source) {
  long total = 0;
  long shared = 0;
  const int count = std::sscanf(line.c_str(), "%ld %*d %ld %*d %*d %*d %*d", &total, &shared);
  x_proc record;
  Require((source.Get_Statm_Info(line.c_str(), &record) == 0) == (count == 2), "statm: count");
  const auto pages = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
  Require(
      count != 2 || (record.totalBytes ==
                         static_cast<std::uint32_t>(static_cast<std::uint64_t>(total) * pages) &&
                     record.sharedKB ==
                         static_cast<double>((static_cast<std::uint64_t>(shared) * pages) >> 10)),
      "statm: sizes");
}

/// The text from the first line on that begins with a key; null without one.
const char* LineOf(const std::string& text, const std::string& key) {
  if (text.starts_with(key)) {
    return text.c_str();
  }
  const std::size_t place = text.find('\n' + key);
  return place == std::string::npos ? nullptr : text.c_str() + place + 1;
}

void CompareStatus(const std::string& text, const ProcessSourceUser& source) {
  x_proc expected;
  const char* line = LineOf(text, "Name:");
  const bool named = line != nullptr && std::sscanf(line, "%*s %255s", expected.name.data()) == 1;
  if ((line = LineOf(text, "Uid:")) != nullptr) {
    static_cast<void>(
        std::sscanf(line, "%*s %d %d %d", &expected.ruid, &expected.euid, &expected.suid));
  }
  if ((line = LineOf(text, "Gid:")) != nullptr) {
    static_cast<void>(
        std::sscanf(line, "%*s %d %d %d", &expected.rgid, &expected.egid, &expected.sgid));
  }
  struct Size {
    const char* key;
    std::uint64_t x_proc::*field;
  };
  for (const auto& [key, field] :
       {Size{"VmData:", &x_proc::dataKB}, Size{"VmStk:", &x_proc::stackKB},
        Size{"VmExe:", &x_proc::codeKB}}) {
    int kilobytes = 0;
    if ((line = LineOf(text, key)) != nullptr && std::sscanf(line, "%*s %d", &kilobytes) == 1) {
      expected.*field = static_cast<std::uint32_t>(kilobytes);
    }
  }
  x_proc record;
  Require((source.Get_Status_Info(text.c_str(), &record) == 0) == named, "status: name");
  if (named) {
    Require(record.name == expected.name, "status: text of the name");
    Require(record.ruid == expected.ruid && record.euid == expected.euid &&
                record.suid == expected.suid && record.rgid == expected.rgid &&
                record.egid == expected.egid && record.sgid == expected.sgid,
            "status: identities");
    Require(record.dataKB == expected.dataKB && record.stackKB == expected.stackKB &&
                record.codeKB == expected.codeKB,
            "status: sizes");
  }
}

void CompareCmdline(std::string text) {
  std::string expected = text;
  for (std::size_t at = 0; at + 1 < expected.size(); ++at) {
    expected[at] = expected[at] == '\0' ? ' ' : expected[at];
  }
  ProcessSourceUser::Get_CmdLine_Info(text.data(), static_cast<int>(text.size()));
  Require(text == expected, "cmdline");
}

}  // namespace

/// Any bytes as each of the files of one process, cut as a read cuts them.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const ProcessSourceUser source;
  const std::string text(reinterpret_cast<const char*>(data), size);
  // Up to its first NUL, and for the files of one line up to the end of that.
  const std::string whole = text.substr(0, 1024).c_str();
  const std::string line = whole.substr(0, 1023).substr(0, whole.find('\n'));
  CompareStat(line, source);
  CompareStatm(line, source);
  CompareStatus(whole, source);
  CompareCmdline(text.substr(0, 120));
  return 0;
}
