#pragma once

#include <string>
#include <vector>

#include "client/show/RowValues.h"
#include "client/show/Terminal.h"

/// Whether any of the labels stands under a heading.
[[nodiscard]] bool HasGroups(const std::vector<ColumnStyle>& styles);

/// Each row as pairs of label and value, side by side as the screen's width allows (80 columns
/// where it has no limit). What stands under no heading comes first, then the headings in the order
/// of their first coming, each once. An empty line parts headings and rows.
[[nodiscard]] std::string GroupedText(const Json& rows, const std::vector<ColumnStyle>& styles,
                                      const Screen& screen);
