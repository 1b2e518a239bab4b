#pragma once

#include <string>
#include <string_view>

#include "client/ask/Answers.h"
#include "json/RowText.h"

/// The field of that label, exact or else without regard to (ASCII) case where only one is meant;
/// null if there is none.
[[nodiscard]] const Field* FindField(const Schema& schema, std::string_view label);

/// The same, but throws UsageError for no field: it names the label and those that come nearest.
[[nodiscard]] const Field& NeedField(const Schema& schema, std::string_view label);

/// Whether a whole number of the field is seconds since the epoch.
[[nodiscard]] bool IsTime(const Field& field);

/// Whether the values of the field are numbers.
[[nodiscard]] bool IsNumeric(const Field& field);
