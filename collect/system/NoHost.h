#pragma once

/// Traces at level 10, once for each place, that /proc holds none of the system's files; a place
/// that has some is told again when it loses them.
void TellNoHost(bool isNowhere);
