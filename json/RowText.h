#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

/// `text` without the blanks and tabs at its ends.
[[nodiscard]] std::string_view Trimmed(std::string_view text);

/// The text with the (ASCII) capitals as small letters.
[[nodiscard]] std::string LowerCase(std::string_view text);

/// Which of `count` labels is meant: the one that is `label`, or else the only one that is without
/// regard to (ASCII) case.
[[nodiscard]] std::optional<std::size_t> FindLabel(
    std::string_view label, std::size_t count,
    const std::function<std::string_view(std::size_t)>& labelAt);

/// Whether a whole number of a field is seconds since the epoch, by its meaning, type and label: a
/// key can be a time too, which its label tells ("Start Time").
[[nodiscard]] bool IsTimeField(std::string_view meaning, std::string_view type,
                               std::string_view label);

/// Decimals that a float is shown with, at most.
inline constexpr int kDecimals = 3;
/// From here on a float has no decimals worth showing.
inline constexpr double kLargeFloat = 1e15;

[[nodiscard]] std::string FixedText(double value, int decimals);
/// Decimals of a value up to its last one that is not 0, of kDecimals at most.
[[nodiscard]] int DecimalsOf(double value);
/// Seconds since the epoch of a local or a universal date; nothing for a day that its month does
/// not have.
[[nodiscard]] std::optional<std::int64_t> SecondsOfDate(std::tm date, bool isUniversal = false);
/// "2023-11-14 23:13:20" in local time; "-" for 0, the figure itself if there is no such date.
[[nodiscard]] std::string DateText(std::int64_t seconds);
