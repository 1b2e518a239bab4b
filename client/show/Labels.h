#pragma once

#include <string>
#include <string_view>

#include "client/ask/Answers.h"

/// The field of that label, exact or else without regard to (ASCII) case where only one is meant;
/// null if there is none.
[[nodiscard]] const Field* FindField(const Schema& schema, std::string_view label);

/// The same, but throws UsageError for no field: it names the label and those that come nearest.
[[nodiscard]] const Field& NeedField(const Schema& schema, std::string_view label);

/// Whether a whole number of the field is seconds since the epoch: a key can be a time too, which
/// its label tells ("Start Time").
[[nodiscard]] bool IsTime(const Field& field);

/// `text` without the blanks at its ends.
[[nodiscard]] std::string_view Trimmed(std::string_view text);
