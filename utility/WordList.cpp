#include "utility/WordList.h"

#include <cstring>

void AppendWord(std::span<char> field, std::string_view word) {
  std::size_t length = ::strnlen(field.data(), field.size());
  if (length > 0 && field[length - 1] == '>') {
    return;
  }
  if (length + word.size() + 2 <= field.size()) {
    if (length > 0) {
      field[length++] = ',';
    }
    word.copy(field.data() + length, word.size());
    field[length + word.size()] = '\0';
    return;
  }
  if (length + 2 <= field.size()) {
    field[length] = '>';
    field[length + 1] = '\0';
    return;
  }
  field.back() = '\0';
  const std::size_t comma = std::string_view(field.data()).rfind(',');
  if (comma != std::string_view::npos) {
    field[comma] = '>';
    field[comma + 1] = '\0';
  }
}
