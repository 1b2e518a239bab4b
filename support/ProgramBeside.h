#pragma once

#include <string>

/// The path of a program that lies beside this one, or in the folder `folder` beside its folder;
/// empty if there is none that can be started.
[[nodiscard]] std::string FindProgramBeside(const std::string& name, const std::string& folder);
