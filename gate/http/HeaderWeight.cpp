#include "gate/http/HeaderWeight.h"

#include <cstdlib>
#include <string>

#include "support/TrimmedText.h"

namespace {

/// Takes what stands before the next separator off the text.
std::string_view TakePart(std::string_view& text, char separator) {
  const std::string_view part = text.substr(0, text.find(separator));
  text.remove_prefix(part.size() == text.size() ? part.size() : part.size() + 1);
  return Trimmed(part, " \t");
}

}  // namespace

double WeightOf(std::string_view header, std::string_view name) {
  while (!header.empty()) {
    std::string_view choice = TakePart(header, ',');
    if (TakePart(choice, ';') != name) {
      continue;
    }
    while (!choice.empty()) {
      if (const std::string_view parameter = TakePart(choice, ';'); parameter.starts_with("q=")) {
        return std::strtod(std::string(parameter.substr(2)).c_str(), nullptr);
      }
    }
    return 1;
  }
  return 0;
}
