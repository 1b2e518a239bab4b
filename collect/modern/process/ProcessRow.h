#pragma once

#include <cstdint>

class Process;
struct ProcessIo;
struct ProcessPages;
struct ProcessStat;
struct ProcessStatus;

// What the sources of the profile `modern` make of the figures of one process, wherever they have
// them from. `pageBytes` are those of a page of the machine.

/// Seconds since 1970; 0, which is told once, where the host does not tell it. It moves when the
/// clock is set.
[[nodiscard]] std::int32_t PresentBootTime();

void BeginProcessRow(std::int32_t pid, Process& record);
/// All that a process has as a whole; without a boot time it has no start time.
void FillFromStat(const ProcessStat& stat, std::int32_t bootTime, Process& record);
/// What the stat of a live thread tells as well as that of its leader.
void FillFromThread(const ProcessStat& stat, std::uint64_t pageBytes, Process& record);
void FillResident(std::uint64_t pages, std::uint64_t pageBytes, Process& record);
void FillSwitches(const ProcessStatus& status, Process& record);
/// Identities and sizes, and the switches.
void FillFromStatus(const ProcessStatus& status, Process& record);
/// All but those in memory; wants what is swapped out filled.
void FillPages(const ProcessPages& pages, std::uint64_t pageBytes, Process& record);
void FillIo(const ProcessIo& io, Process& record);
