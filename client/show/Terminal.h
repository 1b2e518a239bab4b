#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "json/Json.h"
#include "support/Descriptor.h"

enum class ColorMode { kAuto, kAlways, kNever };

/// What the standard output can show.
struct Screen {
  bool redraws = false;    ///< a terminal whose cursor can be moved
  bool color = false;      ///< emphasis by escape sequences
  std::size_t width = 0;   ///< columns, 0 for no limit
  std::size_t height = 0;  ///< lines, 0 for no limit
};

/// Asks for the kind and the present size of the standard output (isatty, TIOCGWINSZ). Honours
/// NO_COLOR and TERM=dumb unless the mode is kAlways.
[[nodiscard]] Screen ReadScreen(ColorMode mode);

/// Whether the standard output is a terminal.
[[nodiscard]] bool WritesToTerminal();

/// The text in bold if `screen` has colour.
[[nodiscard]] std::string Emphasize(const std::string& text, const Screen& screen);

/// The text dimmed if `screen` has colour.
[[nodiscard]] std::string Dim(const std::string& text, const Screen& screen);

/// The start of a safe text that fits into `width` columns; emphasis takes none and is left whole.
[[nodiscard]] std::string_view CutText(std::string_view text, std::size_t width);

/// The frame of a redrawn screen: cleared, lines cut to the screen's size, no newline after the
/// last. `text` is whole lines of safe text, with emphasis.
[[nodiscard]] std::string Frame(std::string_view text, const Screen& screen);

/// SIGINT and SIGTERM turned into a readable descriptor (signalfd). They stay blocked for the rest
/// of the process.
class StopSignals {
 public:
  StopSignals();

  [[nodiscard]] int Get() const { return m_descriptor.Get(); }
  /// Waits until `time`; true if a signal came first.
  [[nodiscard]] bool WaitUntil(std::chrono::steady_clock::time_point time) const;

 private:
  Descriptor m_descriptor;
};

/// Writes all of `text` to the standard output. Throws OutputClosed if nobody reads it, Interrupted
/// if `stop` (-1 for none) becomes readable while the reader is slow, ClientError otherwise.
void WriteOutput(std::string_view text, int stop = -1);

/// The value as JsonText has it, for the standard output: for a terminal, with what could steer it
/// escaped, so that it is JSON of the same value.
[[nodiscard]] std::string ShownJson(const Json& value, int indent,
                                    bool isForTerminal = WritesToTerminal());

/// One line for the operator on standard error, made safe, with the program's name in front.
void Complain(std::string_view words);
