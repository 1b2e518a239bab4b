#pragma once

#include <cstdint>
#include <vector>

class Process;

/// How many processes there are, and distinct real user ids among them.
struct ProcessCount {
  std::uint32_t processes = 0;
  std::uint32_t users = 0;
};

/// Those of rows that a walk has filled.
[[nodiscard]] ProcessCount CountRows(const std::vector<Process>& rows);
/// Those of this moment: of the task iterator where it is in use, else of /proc.
[[nodiscard]] ProcessCount CountPresent();
/// Those of /proc. A process that has ended by the time that its status is read, which then
/// tells no user, is left out; one whose status may not be opened counts without a user.
[[nodiscard]] ProcessCount CountInProc();
