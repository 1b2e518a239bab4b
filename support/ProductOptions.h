#pragma once

#include <string>
#include <unordered_map>

/// The process-wide store of text options. The key is section and name run together.
class ProductOptions {
 public:
  /// The one instance, made on first use.
  static ProductOptions& Instance();
  ProductOptions() = default;
  ProductOptions(const ProductOptions&) = delete;
  ProductOptions& operator=(const ProductOptions&) = delete;

  /// Replaces an entry in place or adds one; copies the value, a null one as empty. Always 0.
  int Set(const char* section, const char* name, const char* value);
  /// The stored text, owned by the store, or null. Case matters.
  [[nodiscard]] const char* Get(const char* section, const char* name) const;

 private:
  std::unordered_map<std::string, std::string> m_values;
};
