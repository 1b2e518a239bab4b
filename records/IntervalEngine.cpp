#include "records/IntervalEngine.h"

std::uint32_t CounterDelta(std::uint32_t current, std::uint32_t previous, const char* traceName) {
  if (current < previous) {
    Trace(20, kWarning,
          "Current interval data for field (%1) is less than that during previous "
          "intervalcurrent Interval Data = %2, Previous interval Data = %3)",
          traceName, current, previous);
  }
  return current - previous;
}

UtlErrorPtr ZeroIntervalError(const char* ratesOperation) {
  auto error = std::make_unique<UtlError>(__FILE__, __LINE__);
  error->GetStream() << ratesOperation
                     << ": Attempt to calculate rates for a zero second interval.";
  error->CloseStream();
  return error;
}

float PercentOf(const tagUTIME& part, const tagUTIME& total) {
  const auto wide = [](const tagUTIME& value) {
    return UtlTime(std::int64_t{value.seconds}, std::int64_t{value.microseconds} * 1000,
                   UtlTime::kUtc);
  };
  return wide(total).Percent(wide(part));
}
