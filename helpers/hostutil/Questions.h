#pragma once

#include <cstdio>

/// Answers the questions of one pipe into another until the agent has gone; a record of another
/// length, or whose query has no end, is refused. What goes wrong, and with `isTelling` each
/// answer, is told in `told`. The program's exit value.
[[nodiscard]] int ServeQuestions(int questions, int answers, bool isTelling, std::FILE* told);
