#include "client/show/TerminalCodes.h"

#define NCURSES_NOMACROS 1
#include <curses.h>
#include <term.h>
#include <unistd.h>

#include <cstdlib>

namespace {

constexpr const char* kCommonKind = "ansi";

std::string Capability(const char* name) {
  const char* text = ::tigetstr(name);
  const bool isThere = text != nullptr && text != reinterpret_cast<const char*>(-1);
  return isThere ? text : "";
}

bool OpenKind(const char* kind) {
  int outcome = 0;
  return kind != nullptr && *kind != '\0' && ::setupterm(kind, STDOUT_FILENO, &outcome) == OK;
}

}  // namespace

TerminalCodes CodesOfTerminal(const char* kind) {
  // A full screen that is on has a terminal of its own, which would be given back below.
  TERMINAL* const before = ::set_curterm(nullptr);
  if (!OpenKind(kind) && !OpenKind(kCommonKind)) {
    ::set_curterm(before);
    return {};
  }
  TerminalCodes codes{Capability("bold"), Capability("dim"), Capability("sgr0"),
                      Capability("home") + Capability("ed")};
  ::del_curterm(::set_curterm(before));
  return codes;
}

bool IsKnownTerminal(const char* kind) {
  TERMINAL* const before = ::set_curterm(nullptr);
  const bool isKnown = OpenKind(kind);
  TERMINAL* const opened = ::set_curterm(before);
  if (isKnown) {
    ::del_curterm(opened);
  }
  return isKnown;
}

const TerminalCodes& OutputCodes() {
  static const TerminalCodes codes = CodesOfTerminal(std::getenv("TERM"));
  return codes;
}
