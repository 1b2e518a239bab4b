#pragma once

#include <termios.h>

#include <optional>

#include "client/show/Terminal.h"
#include "client/view/Canvas.h"
#include "client/view/Key.h"

/// The terminal in full-screen mode, by ncurses. One at a time. However it ends, by the destructor
/// or by a crash (SIGSEGV and its kin, SIGABRT), the terminal is left as it was.
class FullScreen {
 public:
  /// Colours by the terminal; none with NO_COLOR, or as `color` says. Throws UsageError unless
  /// standard input and output are a terminal, ClientError for a terminal of an unknown kind.
  explicit FullScreen(ColorMode color);
  ~FullScreen();
  FullScreen(const FullScreen&) = delete;
  FullScreen& operator=(const FullScreen&) = delete;

  /// A frame of the terminal's present size, blank.
  [[nodiscard]] Canvas NewFrame() const;
  /// Brings the frame to the terminal: only what has changed is sent. Characters that its locale
  /// lacks are shown as "?".
  void Show(const Canvas& frame);
  /// Has the next Show() send everything, for a terminal that others have written to.
  void Forget();
  /// What was typed, one key after the other, without waiting; nothing when all has been taken.
  [[nodiscard]] std::optional<Key> TakeKey();
  /// Whether the terminal's locale has characters beyond ASCII.
  [[nodiscard]] bool HasUtf8() const { return m_hasUtf8; }

 private:
  bool m_hasUtf8 = false;
  bool m_hasColor = false;
  termios m_before{};
};
