#pragma once

/// Sets the soft limit of open files to 512, or to the hard limit if that is lower, where it stands
/// below 513. Failures are reported and not fatal.
void RaiseOpenFilesLimit();
