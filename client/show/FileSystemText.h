#pragma once

#include <string>

#include "client/show/Render.h"

/// Whether these are the rows of one look at file systems, whole ones: rows of several times, and
/// chosen columns, are shown as they are.
[[nodiscard]] bool AreFileSystems(const RecordAnswer& answer);

/// The rows as df(1) shows them: sizes rounded up to a few digits, the space in use in per cent of
/// what ordinary users may have.
[[nodiscard]] std::string FileSystemText(const RecordAnswer& answer, const Screen& screen);
