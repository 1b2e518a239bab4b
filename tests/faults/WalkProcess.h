#pragma once

#include "tests/faults/Walk.h"
#include "tests/support/Testing.h"

/// What the walks of the daemon and those of the gate have in common.
namespace faults {

/// Has the calling process end after so many seconds, its standard error go to the file
/// `stderr.txt` of the working directory, and NotePlaceOfFailure() be ready.
void BeginProcessOfWalk(unsigned seconds);
/// Writes the callers to the file `place`: at once, since what comes of it may end the process.
void NotePlaceOfFailure();
[[nodiscard]] int CountDescriptors();
/// As soon as no more than `expected` are left, or a second later: a thread that has written a file
/// may still be about to end.
[[nodiscard]] int CountDescriptorsAtRest(int expected);
/// As the sanitizer tells it; false without one.
[[nodiscard]] bool HasLeak();

/// Has a child `live` with each fault, in a folder of its own that is its working directory,
/// several at a time. `look` gets the folder and what waitpid(2) tells in turn, and ends them by
/// false.
void RunWalks(const std::vector<Fault>& faults, const std::function<void(const Fault& fault)>& live,
              const std::function<bool(const Fault& fault, const std::filesystem::path& folder,
                                       int status)>& look);

}  // namespace faults
