#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "client/ask/Answers.h"

/// What the processes are ranked by.
enum class TopOrder { kCpu, kMemory, kIo };

/// One process of a look. `cpuPercent` and the figures with "new" are of the time since the look
/// before, or since its start if that look did not show it; those of I/O and faults are no number
/// where the host does not tell them, or a total went backwards.
struct ProcessLine {
  std::int64_t pid = 0;
  std::string user;
  std::string state;
  std::string program;
  std::string arguments;
  double cpuPercent = 0;  ///< of one processor
  double cpuSeconds = 0;
  double realMemKbytes = 0;
  double virtualMemKbytes = 0;
  double newIoKbytes = 0;
  double newIoOps = 0;
  double newMajorFaults = 0;
};

/// Compares consecutive looks at all processes.
class ProcessLooks {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  /// The processes of the record PDI, which were collected at `at`, in the order of the rows. Rows
  /// hold totals. Throws ClientError for a row without a figure that every process has.
  [[nodiscard]] std::vector<ProcessLine> Add(const Json& rows, TimePoint at);

 private:
  struct Totals {
    double startTime = 0;
    double cpuSeconds = 0;
    double ioKbytes = 0;
    double ioOps = 0;
    double majorFaults = 0;
  };

  std::unordered_map<std::int64_t, Totals> m_last;
  TimePoint m_lastAt;
};

/// The most active or the largest first; equal ones by memory, then by number. I/O ranks by Kbytes,
/// then by operations, then by faults that had to read from a device.
void Rank(std::vector<ProcessLine>& processes, TopOrder order);
