#include "support/RunningClock.h"

#include <cmath>

#include "support/OsCalls.h"

namespace {

double SecondsOfTheDay() {
  const auto whole = static_cast<double>(Os().time(nullptr));
  timeval exact{};
  Os().gettimeofday(&exact);
  const double time = static_cast<double>(exact.tv_sec) + static_cast<double>(exact.tv_usec) / 1e6;
  return std::abs(time - whole) <= 1.0 ? time : whole;
}

}  // namespace

double RunningSeconds() {
  timespec running{};
  return Os().clock_gettime(CLOCK_BOOTTIME, &running) == 0
             ? static_cast<double>(running.tv_sec) + static_cast<double>(running.tv_nsec) / 1e9
             : SecondsOfTheDay();
}
