#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// Calls of the library that this test program stands before, as whoever calls them finds its own
/// first: the code at test and the libraries that it uses. fsync and fdatasync do nothing, since
/// what a process has written is the kernel's: waits for the disk would tell nothing here.
namespace faults {

/// Those that can fail, by their names.
[[nodiscard]] std::vector<std::string> SystemCallNames();

/// Counts the calls of all threads from now on. The `place`-th of that name, counted from 1, fails
/// once; none does for 0.
void ArmSystemCall(const std::string& name, std::size_t place);
/// Nothing is counted or fails from now on.
void DisarmSystemCalls();
/// The calls of that name until then.
[[nodiscard]] std::size_t SystemCallsOf(const std::string& name);

}  // namespace faults
