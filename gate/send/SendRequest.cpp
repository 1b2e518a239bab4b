#include "gate/send/SendRequest.h"

#include <algorithm>

std::string WordsOf(const SendResult& result) {
  constexpr std::size_t kMostWords = 200;
  if (result.status == 0) {
    return result.error;
  }
  std::string words =
      result.body.substr(0, std::min(result.body.find_first_of("\r\n"), kMostWords));
  std::ranges::replace_if(
      words, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }, ' ');
  return "status " + std::to_string(result.status) + (words.empty() ? "" : ": ") + words;
}
