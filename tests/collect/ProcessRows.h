#pragma once

#include "collect/modern/process/ProcessDetail.h"
#include "collect/process/ProcessSourceLINUX.h"
#include "tests/collect/CollectFixture.h"

/// All processes that the source reads without an error, by number.
template <class Source>
[[nodiscard]] std::vector<Process> ReadProcesses() {
  std::vector<Process> rows = ReadAll<Source, Process>();
  std::sort(rows.begin(), rows.end(),
            [](const Process& a, const Process& b) { return a.GetPid() < b.GetPid(); });
  return rows;
}

/// The texts of all rows.
[[nodiscard]] inline std::string DumpEach(const std::vector<Process>& rows,
                                          std::string (*dump)(const Process& row)) {
  std::string text;
  for (const Process& row : rows) {
    text += dump(row);
  }
  return text;
}

/// What the profile `modern` tells of a process, as text.
[[nodiscard]] inline std::string DumpModern(const Process& row) {
  const ModernProcessFigures& modern = row.modern;
  std::ostringstream out;
  out << row.size << ' ' << row.pid << ' ' << row.ppid << ' ' << row.pgrp << ' ' << row.session
      << " <" << row.GetName() << "> [" << row.GetCmdline() << "] " << modern.state << row.state
      << " flags=" << row.flags << '/' << modern.kernelFlags << " policy=" << modern.policy << ' '
      << row.priority << ' ' << row.nice << " tty=" << static_cast<std::int64_t>(row.tty)
      << " start=" << row.startTime.seconds << '.' << row.startTime.nanoseconds << '/'
      << modern.startTicks << " faults=" << row.minorFaults << ',' << row.majorFaults
      << " times=" << row.userTime.seconds << '.' << row.userTime.nanoseconds << ','
      << row.systemTime.seconds << '.' << row.systemTime.nanoseconds << " rss=" << modern.residentKB
      << '/' << row.residentBytes << " virtual=" << modern.virtualKB << '/' << row.virtualSize
      << " total=" << modern.totalKB << '/' << row.totalBytes << " heap=" << modern.heapKB
      << " data=" << row.dataKB << " lib=" << modern.sharedLibKB << " stack=" << row.stackKB
      << " code=" << row.codeKB << " swap=" << modern.swapKB << " shared=" << row.sharedKB
      << " switches=" << row.contextSwitches << " io=" << row.reads << ',' << row.writes << ','
      << row.blockOps << ',' << row.ioKbytes << ',' << modern.ioBytes << ' ' << modern.isIoUnknown
      << " ids=" << row.ruid << row.euid << row.suid << row.rgid << row.egid << row.sgid << '\n';
  return out.str();
}

/// A process as text; what is not told is "-".
[[nodiscard]] inline std::string DumpDetail(const ProcessDetail& row) {
  std::ostringstream out;
  out << row.pid << " <" << row.name << "> " << row.state << ' ' << row.startTicks << ' '
      << Told({row.startTime,         row.threads,          row.userSeconds,
               row.systemSeconds,     row.lastCpu,          row.uid,
               row.voluntarySwitches, row.otherSwitches,    row.anonBytes,
               row.fileBytes,         row.sharedBytes,      row.swapBytes,
               row.peakBytes,         row.storageReadBytes, row.storageWriteBytes,
               row.callReadBytes,     row.callWriteBytes,   row.readCalls,
               row.writeCalls,        row.runDelaySeconds,  row.openFiles,
               row.oomScore,          row.oomScoreAdjust})
      << " [" << row.blockedIn << "] [" << row.controlGroup << "] [" << row.executable << "] ["
      << row.commandLine << "]\n";
  return out.str();
}
