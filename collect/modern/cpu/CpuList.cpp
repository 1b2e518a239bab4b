#include "collect/modern/cpu/CpuList.h"

#include <charconv>
#include <system_error>

namespace {

/// Takes the number of a processor from the front of `text`.
bool TakeProcessor(std::string_view& text, std::size_t& processor) {
  const char* const end = text.data() + text.size();
  const auto [stop, code] = std::from_chars(text.data(), end, processor);
  text.remove_prefix(static_cast<std::size_t>(stop - text.data()));
  return code == std::errc{} && processor < kMostProcessors;
}

bool TakeListLetter(std::string_view& text, char letter) {
  const bool isThere = text.starts_with(letter);
  text.remove_prefix(isThere ? 1 : 0);
  return isThere;
}

/// Takes one number or one range.
bool TakeCpuRange(std::string_view& text, CpuSet& processors) {
  std::size_t first = 0;
  if (!TakeProcessor(text, first)) {
    return false;
  }
  std::size_t last = first;
  if (TakeListLetter(text, '-') && (!TakeProcessor(text, last) || last < first)) {
    return false;
  }
  for (std::size_t processor = first; processor <= last; ++processor) {
    processors.set(processor);
  }
  return true;
}

}  // namespace

bool ParseCpuList(std::string_view text, CpuSet& processors) {
  text = text.substr(0, text.find('\n'));
  if (text.empty()) {
    return true;
  }
  // A list of as many ranges as there are processors is whole; a longer one would only cost time.
  for (std::size_t ranges = 0; ranges < kMostProcessors; ++ranges) {
    if (!TakeCpuRange(text, processors)) {
      return false;
    }
    if (!TakeListLetter(text, ',')) {
      return text.empty();
    }
  }
  return false;
}
