#pragma once

#include <string>
#include <vector>

/// A remote-write request, taken apart: for each sample `name=value,... VALUE@TIME`.
std::vector<std::string> WriteText(const std::string& body);
