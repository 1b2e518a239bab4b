#pragma once

#include <functional>
#include <string>

/// Takes a problem that the operator should see: one line that names what is at fault.
using ProblemReport = std::function<void(const std::string&)>;
