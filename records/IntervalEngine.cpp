#include "records/IntervalEngine.h"

namespace {

template <class... Values>
void TraceBackwardCounter(const char* traceName, const Values&... values) {
  Trace(20, kWarning,
        "Current interval data for field (%1) is less than that during previous "
        "intervalcurrent Interval Data = %2, Previous interval Data = %3)",
        traceName, values...);
}

}  // namespace

void TraceCounterFell(const char* traceName, std::uint32_t current, std::uint32_t previous) {
  TraceBackwardCounter(traceName, current, previous);
}

std::uint32_t CounterDelta(std::uint32_t current, std::uint32_t previous, const char* traceName) {
  if (current < previous) {
    TraceCounterFell(traceName, current, previous);
  }
  return current - previous;
}

std::uint32_t CounterGrowth(std::uint32_t current, std::uint32_t previous, const char* traceName) {
  const std::uint32_t growth = current - previous;
  if (static_cast<std::int32_t>(growth) >= 0) {
    return growth;
  }
  if (current < previous) {
    TraceCounterFell(traceName, current, previous);
  }
  return 0;
}

UtlErrorPtr ZeroIntervalError(const char* ratesOperation) {
  auto error = std::make_unique<UtlError>(__FILE__, __LINE__);
  error->GetStream() << ratesOperation
                     << ": Attempt to calculate rates for a zero second interval.";
  error->CloseStream();
  return error;
}

float FloatCounterDelta(float current, float previous, const char* traceName) {
  const float difference = current - previous;
  if (difference < 0.0F) {
    TraceBackwardCounter(traceName, "non-negative");
  }
  return difference;
}

tagUTIME TimeGrowth(const tagUTIME& now, const tagUTIME& before) {
  const tagUTIME growth = now - before;
  return growth.seconds < 0 ? tagUTIME{} : growth;
}

UtlTime WideTime(const tagUTIME& value) {
  return {std::int64_t{value.seconds}, std::int64_t{value.microseconds} * 1000, UtlTime::kUtc};
}

float PercentOf(const tagUTIME& part, const tagUTIME& total) {
  return WideTime(total).Percent(WideTime(part));
}
