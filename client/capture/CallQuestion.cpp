#include "client/capture/CallQuestion.h"

#include <algorithm>

#include "client/capture/BinaryMask.h"

std::string PlainQuestion(std::string_view coded) {
  std::string plain;
  for (std::size_t place = 0; place < coded.size(); ++place) {
    const std::string byte = coded[place] == '%' ? BytesOfHex(coded.substr(place + 1, 2)) : "";
    plain += byte.empty() ? coded[place] : byte[0];
    place += 2 * byte.size();
  }
  return plain;
}

std::string CodedQuestion(std::string_view plain) {
  std::string coded;
  for (const char letter : plain) {
    const bool isPlain = letter >= ' ' && letter < '\x7f' && letter != '%';
    coded += isPlain ? std::string(1, letter) : '%' + HexOfBytes({&letter, 1});
  }
  return coded;
}

std::string PathOfQuestion(std::string_view plain) {
  for (const std::string_view call :
       {"open ", "opendir ", "opennofollow ", "list ", "readlink ", "stat ", "lstat ", "statfs "}) {
    if (plain.starts_with(call) && plain.substr(call.size()).starts_with('/')) {
      return std::string(plain.substr(call.size()));
    }
  }
  return {};
}

std::string MaskList(std::string_view answer, const TextMask& mask) {
  std::string masked;
  while (!answer.empty()) {
    const std::size_t end = std::min(answer.find('/'), answer.size());
    const std::string_view entry = answer.substr(0, end);
    masked.append(entry.substr(0, 1))
        .append(mask.Text(entry.substr(std::min<std::size_t>(1, end))));
    masked.append(end < answer.size() ? "/" : "");
    answer.remove_prefix(std::min(end + 1, answer.size()));
  }
  return masked;
}
