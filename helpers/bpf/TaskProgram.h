#pragma once

#include <string>

#include "support/Descriptor.h"

/// Loads the program that writes TaskFigures into the running kernel and binds it to the kernel's
/// walk of tasks. Gives the link, which is to be pinned and by which the kernel keeps both; one
/// that is not open, with the reason in words, if that can't be. With `isTelling` the words of the
/// kernel and of the library go to standard error as they come.
[[nodiscard]] Descriptor LoadTaskProgram(bool isTelling, std::string& reason);
