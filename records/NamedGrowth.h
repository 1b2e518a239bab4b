#pragma once

#include <cstring>
#include <span>

/// Orders rows by their `name`, an array of characters that ends with NUL.
template <class Named>
[[nodiscard]] int CompareNames(const Named& a, const Named& b) {
  return std::strncmp(a.name.data(), b.name.data(), a.name.size());
}

/// What all rows of `now` have counted since `before`, row by row, so that one that goes or starts
/// again takes nothing from the others' growth; one that is new has counted all since. Both ascend
/// by name. `growthOf(now, before)` is the growth of one row's `counters`.
template <class Named, class Growth>
[[nodiscard]] auto SumOfGrowths(std::span<const Named> now, std::span<const Named> before,
                                const Growth& growthOf) {
  decltype(Named::counters) sum{};
  auto former = before.begin();
  for (const Named& row : now) {
    while (former != before.end() && CompareNames(*former, row) < 0) {
      ++former;
    }
    if (former != before.end() && CompareNames(*former, row) == 0) {
      sum += growthOf(row.counters, former->counters);
      ++former;
    } else {
      sum += row.counters;
    }
  }
  return sum;
}
