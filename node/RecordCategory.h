#pragma once

/// The category letter of records of an interval.
constexpr unsigned char kIntervalCategory = '4';
