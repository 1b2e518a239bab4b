#include "support/ProductOptions.h"

#include <utility>

struct ProductOptions::Entry {
  std::string key;
  std::string value;
  std::unique_ptr<Entry> next;
};

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

ProductOptions::ProductOptions() = default;

// One entry at a time: the entries' own destructors would nest as deep as the list is long.
ProductOptions::~ProductOptions() {
  while (m_head != nullptr) {
    m_head = std::move(m_head->next);
  }
}

int ProductOptions::Set(const char* section, const char* name, const char* value) {
  std::string key = KeyOf(section, name);
  std::unique_ptr<Entry>* place = &m_head;
  while (*place != nullptr) {
    if ((*place)->key == key) {
      (*place)->value = OrEmpty(value);
      return 0;
    }
    place = &(*place)->next;
  }
  *place = std::make_unique<Entry>(Entry{std::move(key), OrEmpty(value), nullptr});
  return 0;
}

const char* ProductOptions::Get(const char* section, const char* name) const {
  const std::string key = KeyOf(section, name);
  for (const Entry* entry = m_head.get(); entry != nullptr; entry = entry->next.get()) {
    if (entry->key == key) {
      return entry->value.c_str();
    }
  }
  return nullptr;
}
