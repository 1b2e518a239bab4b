#pragma once

#include <cstdint>

/// Accounting records read since this process started, each of them the end of a process. The
/// accounting source raises it; 0 while none runs.
inline std::uint32_t g_accountingRecords = 0;
