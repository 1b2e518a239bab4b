#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "json/Json.h"
#include "json/RowCondition.h"
#include "node/LayoutRegistry.h"

/// Whether the field tells what a program was started with, which may hold what is secret.
[[nodiscard]] bool HoldsArguments(const FieldLayout& field);

/// Where in the layout the field stands that the label means, see FindLabel.
[[nodiscard]] std::optional<std::size_t> FindFieldPlace(const RecordLayout& layout,
                                                        std::string_view label);

/// What choosing among rows needs to know of that field. Throws std::invalid_argument for a label
/// that the record does not have.
[[nodiscard]] RowField RowFieldOf(const RecordLayout& layout, std::string_view label);

/// The value as clients see it, which is what conditions are held against: texts are UTF-8.
[[nodiscard]] Json AsSeen(Json value);
