#pragma once

#include <string_view>

// What a file of the host lacks leaves figures 0, in every collection; it is told in the first.

/// Traces at level 20, once until FoundInHost(), that a file of the host, named by its plain
/// absolute path, is not there, or has no entry or column of that name.
void MissingInHost(std::string_view path, std::string_view name = {});
/// It is there; costs nothing while nothing has been told.
void FoundInHost(std::string_view path, std::string_view name = {});
/// Nothing has been told yet, as of a host that is not the one before.
void ForgetTold();
