#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// Failures on command of the thread that arms them: the n-th of the calls of one kind fails, all
/// others are the real ones. For one armed thread at a time; other threads are left alone.
namespace faults {

inline constexpr const char* kAllocation = "operator new";
/// An allocation known by its place in the code, of which there are fewer than allocations.
inline constexpr const char* kPlace = "operator new at";
/// To count the calls of each kind; none fails.
inline constexpr const char* kEachCall = "each call";

/// The calls of the table that can fail, by their names there.
[[nodiscard]] std::vector<std::string> OsCallNames();

/// Counts the calls of that kind from now on and has the `place`-th fail once, counted from 1; 0
/// for none. Of kPlace it is the `turn`-th call of that place. The calls of the table are counted
/// on top of the table in force.
void Arm(const std::string& kind, std::size_t place, std::size_t turn = 1);
/// The calls of the armed kind until now; nothing fails from now on.
std::size_t Disarm();
/// Where kPlace was armed: the place of each allocation until Disarm().
[[nodiscard]] const std::vector<std::size_t>& Places();
/// The calls of that kind until then.
[[nodiscard]] std::size_t CallsOf(const std::string& kind);
/// Whether the armed failure has come.
[[nodiscard]] bool HasFailed();
/// Nothing has failed yet.
void ForgetFailure();
/// What to do at the failure, on the armed thread; it must not allocate.
void OnFailure(void (*action)());

}  // namespace faults
