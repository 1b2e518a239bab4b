#include "records/modern/GrowthRows.h"

#include "support/WholeTime.h"

double ExactTime(std::int32_t now) {
  timeval exact{};
  Os().gettimeofday(&exact);
  const auto whole = static_cast<double>(WholeTime(now, exact.tv_sec));
  const double time = static_cast<double>(exact.tv_sec) + static_cast<double>(exact.tv_usec) / 1e6;
  return std::abs(time - whole) <= 1.0 ? time : whole;
}
