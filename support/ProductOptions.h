#pragma once

#include <memory>
#include <string>

/// The process-wide store of text options. The key is section and name run together.
class ProductOptions {
 public:
  /// The one instance, made on first use.
  static ProductOptions& Instance();
  ProductOptions();
  ~ProductOptions();
  ProductOptions(const ProductOptions&) = delete;
  ProductOptions& operator=(const ProductOptions&) = delete;

  /// Replaces an entry in place or appends one; copies the value, a null one as empty. Always 0.
  int Set(const char* section, const char* name, const char* value);
  /// The stored text, owned by the store, or null. Case matters.
  [[nodiscard]] const char* Get(const char* section, const char* name) const;

 private:
  struct Entry;
  std::unique_ptr<Entry> m_head;
};
