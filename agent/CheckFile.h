#pragma once

/// Serves `qmtdmon --check FILE [--kind KIND]`, where the kind is workgroup, event, application,
/// optional, ini or alarms; without one the file's name, or else its first keyword, tells it. The
/// agent's own reader reads the file as it is named, and each fault goes to standard output as
/// "file:line: what is wrong". Nothing is started and no file written. 0 for a clean file, 1 for
/// one with faults, 2 if the file can't be read or its kind not told.
[[nodiscard]] int CheckFile(int argc, char** argv);
