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

/// Keeps the terminal that the library works with, which the full screen may have opened.
class CurrentTerminal {
 public:
  CurrentTerminal() = default;
  ~CurrentTerminal() {
    if (::cur_term != m_before) {
      ::del_curterm(::set_curterm(m_before));
    }
  }
  CurrentTerminal(const CurrentTerminal&) = delete;
  CurrentTerminal& operator=(const CurrentTerminal&) = delete;

 private:
  TERMINAL* m_before = ::cur_term;
};

bool OpenKind(const char* kind) {
  int outcome = 0;
  return kind != nullptr && *kind != '\0' && ::setupterm(kind, STDOUT_FILENO, &outcome) == OK;
}

}  // namespace

TerminalCodes CodesOfTerminal(const char* kind) {
  const CurrentTerminal current;
  if (!OpenKind(kind) && !OpenKind(kCommonKind)) {
    return {};
  }
  return {Capability("bold"), Capability("dim"), Capability("sgr0"),
          Capability("home") + Capability("ed")};
}

const TerminalCodes& OutputCodes() {
  static const TerminalCodes codes = CodesOfTerminal(std::getenv("TERM"));
  return codes;
}
