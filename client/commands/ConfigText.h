#pragma once

#include <string>
#include <vector>

#include "client/ask/Answers.h"
#include "client/show/Terminal.h"

/// The tree by indentation, wrapped to the screen's width (80 columns where it has no limit):
/// folders by their label, items as "id  label: value", help below both. A choice shows all that
/// can be chosen, the present one in brackets. The host profile, if it is not empty, stands above.
[[nodiscard]] std::string ConfigText(const std::vector<ConfigNode>& tree, const Screen& screen,
                                     const std::string& hostProfile = "");
