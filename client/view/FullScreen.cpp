#include "client/view/FullScreen.h"

#define NCURSES_WIDECHAR 1
#define NCURSES_NOMACROS 1
#include <curses.h>
#include <langinfo.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <clocale>
#include <cstdlib>
#include <cwchar>
#include <string>
#include <string_view>

#include "client/ask/Errors.h"
#include "client/show/TerminalCodes.h"
#include "client/show/TerminalGuard.h"

namespace {

/// Adds a sequence that the terminal can do.
void AddSequence(std::string& text, const char* sequence) {
  if (sequence != nullptr && sequence != reinterpret_cast<const char*>(-1)) {
    text += sequence;
  }
}

/// What a terminal of this kind calls that; null for one that can't do it.
char* Capability(const char* name) { return ::tigetstr(name); }

/// What gives the terminal back.
std::string Farewell() {
  std::string text;
  char* mouse = Capability("XM");
  if (mouse != nullptr && mouse != reinterpret_cast<char*>(-1)) {
    AddSequence(text, ::tiparm(mouse, 0));
  } else if (Capability("kmous") != nullptr) {
    // What ncurses switches on where the terminal's entry does not say how.
    AddSequence(text, "\x1b[?1006;1000l");
  }
  for (const char* name : {"sgr0", "rmkx", "rmcup", "cnorm"}) {
    AddSequence(text, Capability(name));
  }
  return text;
}

/// The tones as pairs of colours; on the terminal's own background.
struct Colour {
  Tone tone;
  short foreground;
};
constexpr std::array kColours{Colour{Tone::kTitle, COLOR_CYAN}, Colour{Tone::kGood, COLOR_GREEN},
                              Colour{Tone::kWarning, COLOR_YELLOW}, Colour{Tone::kBad, COLOR_RED},
                              Colour{Tone::kMark, COLOR_MAGENTA}};

attr_t AttributesOf(Tone tone) {
  switch (tone) {
    case Tone::kPlain:
    case Tone::kGood:
      return A_NORMAL;
    case Tone::kDim:
      return A_DIM;
    case Tone::kSelected:
      return A_REVERSE;
    case Tone::kBold:
    case Tone::kTitle:
    case Tone::kWarning:
    case Tone::kBad:
    case Tone::kMark:
      break;
  }
  return A_BOLD;
}

short PairOf(Tone tone, bool hasColor) {
  const auto colour = std::find_if(kColours.begin(), kColours.end(),
                                   [tone](const Colour& one) { return one.tone == tone; });
  return hasColor && colour != kColours.end() ? static_cast<short>(colour - kColours.begin() + 1)
                                              : short{0};
}

/// Ctrl-S is no key that stops the screen here, as a program that waits to write can't be ended.
void LeaveFlowAlone() {
  termios keys{};
  if (::tcgetattr(STDIN_FILENO, &keys) == 0) {
    keys.c_iflag &= ~static_cast<tcflag_t>(IXON);
    static_cast<void>(::tcsetattr(STDIN_FILENO, TCSANOW, &keys));
    ::def_prog_mode();
  }
}

void StartColours() {
  ::start_color();
  ::use_default_colors();
  for (std::size_t i = 0; i < kColours.size(); ++i) {
    ::init_pair(static_cast<short>(i + 1), kColours[i].foreground, -1);
  }
}

/// UTF-8 of a cell as the wide characters of the terminal's locale, which has UTF-8.
std::array<wchar_t, CCHARW_MAX + 1> WideText(const std::string& text) {
  std::array<wchar_t, CCHARW_MAX + 1> wide{};
  std::mbstate_t state{};
  const char* at = text.c_str();
  for (std::size_t i = 0; i + 1 < wide.size() && *at != '\0'; ++i) {
    const std::size_t bytes = std::mbrtowc(
        &wide[i], at, static_cast<std::size_t>(text.c_str() + text.size() - at), &state);
    if (bytes == 0 || bytes > text.size()) {
      wide[i] = L'\0';
      break;
    }
    at += bytes;
  }
  if (wide[0] == L'\0') {
    wide[0] = L'?';
  }
  return wide;
}

bool IsAscii(const std::string& text) { return text.size() == 1 && text.front() >= ' '; }

std::string Utf8Of(wint_t character) {
  std::array<char, MB_LEN_MAX> bytes{};
  std::mbstate_t state{};
  const std::size_t size = std::wcrtomb(bytes.data(), static_cast<wchar_t>(character), &state);
  return size == static_cast<std::size_t>(-1) ? "" : std::string(bytes.data(), size);
}

/// The key of a code of ncurses that is no character.
KeyCode FunctionKey(wint_t code) {
  switch (code) {
    case KEY_UP:
      return KeyCode::kUp;
    case KEY_DOWN:
      return KeyCode::kDown;
    case KEY_LEFT:
      return KeyCode::kLeft;
    case KEY_RIGHT:
      return KeyCode::kRight;
    case KEY_PPAGE:
      return KeyCode::kPageUp;
    case KEY_NPAGE:
      return KeyCode::kPageDown;
    case KEY_HOME:
      return KeyCode::kHome;
    case KEY_END:
      return KeyCode::kEnd;
    case KEY_ENTER:
      return KeyCode::kEnter;
    case KEY_BTAB:
      return KeyCode::kBackTab;
    case KEY_BACKSPACE:
    case KEY_DC:
      return KeyCode::kBackspace;
    case KEY_RESIZE:
      return KeyCode::kResize;
    default:
      return KeyCode::kOther;
  }
}

Key MouseKey() {
  MEVENT event{};
  if (::getmouse(&event) != OK || event.x < 0 || event.y < 0) {
    return {};
  }
  Key key;
  if ((event.bstate & (BUTTON1_PRESSED | BUTTON1_CLICKED)) != 0) {
    key.code = KeyCode::kClick;
  } else if ((event.bstate & BUTTON4_PRESSED) != 0) {
    key.code = KeyCode::kWheelUp;
  } else if ((event.bstate & BUTTON5_PRESSED) != 0) {
    key.code = KeyCode::kWheelDown;
  }
  key.line = static_cast<std::size_t>(event.y);
  key.column = static_cast<std::size_t>(event.x);
  return key;
}

Key CharacterKey(wint_t character) {
  constexpr wint_t kEscape = 27;
  constexpr wint_t kDelete = 127;
  switch (character) {
    case '\r':
    case '\n':
      return {KeyCode::kEnter, {}, 0, 0};
    case '\t':
      return {KeyCode::kTab, {}, 0, 0};
    case '\b':
    case kDelete:
      return {KeyCode::kBackspace, {}, 0, 0};
    case kEscape:
      return {KeyCode::kEscape, {}, 0, 0};
    default:
      break;
  }
  if (character < ' ') {
    // Ctrl-L is the letter that a terminal is drawn anew by, and so on.
    return {KeyCode::kOther, std::string(1, static_cast<char>(character)), 0, 0};
  }
  return {KeyCode::kCharacter, Utf8Of(character), 0, 0};
}

}  // namespace

FullScreen::FullScreen(ColorMode color) {
  if (::isatty(STDIN_FILENO) != 1 || ::isatty(STDOUT_FILENO) != 1) {
    throw UsageError("view wants a terminal; \"qmtctl get\" and \"qmtctl top\" do without one");
  }
  std::setlocale(LC_CTYPE, "");
  m_hasUtf8 = std::string_view(::nl_langinfo(CODESET)) == "UTF-8";
  static_cast<void>(::tcgetattr(STDIN_FILENO, &m_before));
  // The library loses memory where it finds that out itself.
  const char* kind = std::getenv("TERM");
  if (!IsKnownTerminal(kind) || ::newterm(nullptr, stdout, stdin) == nullptr) {
    throw ClientError("the terminal's kind, TERM=" + std::string(kind == nullptr ? "" : kind) +
                      ", is not one that is known");
  }
  ::cbreak();
  ::noecho();
  ::nonl();
  LeaveFlowAlone();
  ::nodelay(stdscr, TRUE);
  ::keypad(stdscr, TRUE);
  ::curs_set(0);
  // An escape alone is a key of its own.
  ::set_escdelay(100);
  ::mousemask(BUTTON1_PRESSED | BUTTON1_CLICKED | BUTTON4_PRESSED | BUTTON5_PRESSED, nullptr);
  ::mouseinterval(0);
  const char* noColor = std::getenv("NO_COLOR");
  const bool isWanted = color == ColorMode::kAlways ||
                        (color == ColorMode::kAuto && (noColor == nullptr || *noColor == '\0'));
  m_hasColor = isWanted && ::has_colors();
  if (m_hasColor) {
    StartColours();
  }
  // Ctrl-Z is the library's.
  GuardTerminal(m_before, Guarded::kEnds, Farewell());
}

FullScreen::~FullScreen() {
  LeaveTerminal();
  ::endwin();
  static_cast<void>(::tcsetattr(STDIN_FILENO, TCSADRAIN, &m_before));
}

Canvas FullScreen::NewFrame() const {
  return Canvas(static_cast<std::size_t>(std::max(::getmaxx(stdscr), 0)),
                static_cast<std::size_t>(std::max(::getmaxy(stdscr), 0)));
}

void FullScreen::Show(const Canvas& frame) {
  for (std::size_t line = 0; line < frame.Height(); ++line) {
    for (std::size_t column = 0; column < frame.Width(); ++column) {
      const Canvas::Cell& cell = frame.At(line, column);
      if (cell.text.empty() && m_hasUtf8) {
        continue;
      }
      std::array<wchar_t, CCHARW_MAX + 1> wide{};
      if (IsAscii(cell.text)) {
        wide[0] = static_cast<wchar_t>(cell.text.front());
      } else if (m_hasUtf8) {
        wide = WideText(cell.text);
      } else {
        wide[0] = cell.text.empty() ? L' ' : L'?';
      }
      cchar_t character{};
      ::setcchar(&character, wide.data(), AttributesOf(cell.tone), PairOf(cell.tone, m_hasColor),
                 nullptr);
      ::mvadd_wch(static_cast<int>(line), static_cast<int>(column), &character);
    }
  }
  ::refresh();
}

void FullScreen::Forget() { ::clearok(curscr, TRUE); }

std::optional<Key> FullScreen::TakeKey() {
  wint_t code = 0;
  const int kind = ::get_wch(&code);
  if (kind == ERR) {
    return std::nullopt;
  }
  if (kind != KEY_CODE_YES) {
    return CharacterKey(code);
  }
  if (code == KEY_MOUSE) {
    return MouseKey();
  }
  return Key{FunctionKey(code), {}, 0, 0};
}
