#pragma once

/// The user that the gate runs as, where the system has it.
inline constexpr const char* kGateUser = "qmtgate";
/// The user that it runs as elsewhere.
inline constexpr const char* kOtherGateUser = "nobody";
