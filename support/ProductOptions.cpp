#include "support/ProductOptions.h"

#include <utility>

namespace {

const char* OrEmpty(const char* text) { return text == nullptr ? "" : text; }

std::string KeyOf(const char* section, const char* name) {
  return std::string(OrEmpty(section)) + OrEmpty(name);
}

}  // namespace

ProductOptions& ProductOptions::Instance() {
  static ProductOptions options;
  return options;
}

int ProductOptions::Set(const char* section, const char* name, const char* value) {
  m_values[KeyOf(section, name)] = OrEmpty(value);
  return 0;
}

const char* ProductOptions::Get(const char* section, const char* name) const {
  const auto found = m_values.find(KeyOf(section, name));
  return found == m_values.end() ? nullptr : found->second.c_str();
}
