#pragma once

#include <termios.h>

#include <string_view>

/// Whether this process may touch the terminal of the standard input: whoever does so from the
/// background is stopped.
[[nodiscard]] bool IsForeground();

/// What a terminal is given back by: `kEnds` are signals that end the program where it is, without
/// having asked it to stop (SIGSEGV and its kin, SIGABRT, SIGQUIT, SIGHUP), `kStops` also Ctrl-Z,
/// after which it is to be guarded anew.
enum class Guarded { kEnds, kStops };

/// Has these signals leave the terminal as `before`, once it was sent `farewell`. Those that are
/// ignored stay so. Holds for one terminal, and until LeaveTerminal().
void GuardTerminal(const termios& before, Guarded guarded, std::string_view farewell = {});

/// These signals are as at the program's start again.
void LeaveTerminal();
