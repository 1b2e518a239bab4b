#pragma once

/// Runs `qmtdmon --capture DIR ...`: the agent reads the host as it would as a daemon, and what it
/// reads is kept below DIR. It serves nobody and writes nothing elsewhere. Gives the exit value: 0,
/// 1 for a failure, 2 for a wrong command line; what is wrong goes to standard error in one line.
[[nodiscard]] int RunCapture(int argc, char** argv);
