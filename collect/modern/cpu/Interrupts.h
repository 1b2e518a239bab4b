#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

/// Takes the head of /proc/interrupts, "CPU0 CPU1 CPU3": the number of each column's processor.
/// Processors that are off line have no column. False if there is none.
[[nodiscard]] bool ParseInterruptColumns(std::string_view line,
                                         std::vector<std::uint32_t>& processors);

/// Adds a line of /proc/interrupts to the sums of its columns: those of numbered interrupts and
/// those of named ones that are counted for each processor ("LOC:", "RES:"). One with a total of
/// all processors ("ERR:", "MIS:") adds nothing. `counts` is room of the same size as `sums`.
void AddInterruptLine(std::string_view line, std::span<std::uint64_t> sums,
                      std::span<std::uint64_t> counts);
