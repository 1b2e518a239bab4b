#include "client/capture/TextMask.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>

#include "client/capture/BinaryMask.h"
#include "client/capture/CaptureFolder.h"

namespace {

bool IsHexDigit(char letter) {
  const char lower = static_cast<char>(letter | 0x20);
  return (letter >= '0' && letter <= '9') || (lower >= 'a' && lower <= 'f');
}

int HexValue(char digit) { return digit <= '9' ? digit - '0' : (digit | 0x20) - 'a' + 10; }

/// The letters of a word from its start.
std::string_view StartOf(std::string_view text) {
  const auto end = std::find_if_not(text.begin(), text.end(), IsWordLetter);
  return text.substr(0, static_cast<std::size_t>(end - text.begin()));
}

bool EndsWord(std::string_view text, std::size_t place) {
  return place >= text.size() || !IsWordLetter(text[place]);
}

/// The bytes of pairs of hexadecimal digits with a colon between, where all of the text is that.
std::string PairsOf(std::string_view text) {
  std::string bytes;
  for (std::size_t place = 0; place < text.size(); place += 3) {
    const std::string_view pair = text.substr(place, 3);
    if (pair.size() < 2 || !IsHexDigit(pair[0]) || !IsHexDigit(pair[1]) ||
        (pair.size() == 3 && (pair[2] != ':' || place + 3 == text.size()))) {
      return {};
    }
    bytes += static_cast<char>(HexValue(pair[0]) * 16 + HexValue(pair[1]));
  }
  // Of Ethernet, FireWire and InfiniBand.
  return bytes.size() == 6 || bytes.size() == 8 || bytes.size() == 20 ? bytes : "";
}

}  // namespace

bool IsWordLetter(char letter) {
  return (letter >= '0' && letter <= '9') || (letter >= 'a' && letter <= 'z') ||
         (letter >= 'A' && letter <= 'Z') || letter == '_';
}

void TextMask::Replace(const std::string& word, const std::string& standIn) {
  if (word.empty() || !m_words.emplace(word, standIn).second) {
    return;
  }
  std::vector<std::string>& words = m_byStart[std::string(StartOf(word))];
  words.push_back(word);
  std::sort(words.begin(), words.end(), [](const std::string& left, const std::string& right) {
    return left.size() > right.size();
  });
}

const std::string* TextMask::WordAt(std::string_view text, std::size_t place,
                                    std::size_t& size) const {
  const auto found = m_byStart.find(StartOf(text.substr(place)));
  if (found == m_byStart.end()) {
    return nullptr;
  }
  for (const std::string& word : found->second) {
    if (text.substr(place).starts_with(word) && EndsWord(text, place + word.size())) {
      size = word.size();
      return &m_words.at(word);
    }
  }
  return nullptr;
}

std::string TextMask::AddressAt(std::string_view text, std::size_t place, std::size_t& size) const {
  std::size_t end = place;
  bool isFour = true;
  while (end < text.size() && (IsHexDigit(text[end]) || text[end] == ':' || text[end] == '.')) {
    isFour = isFour && text[end] <= '9';  // a full stop comes before the digits
    ++end;
  }
  // A full stop or a colon behind it ends a sentence, or comes before a port.
  while (end > place && (text[end - 1] == '.' ||
                         (text[end - 1] == ':' && !(end - place > 1 && text[end - 2] == ':')))) {
    --end;
  }
  std::string_view found = text.substr(place, end - place);
  const std::size_t colon = found.find(':');
  const bool hasPort = colon != found.npos && found.substr(0, colon).find('.') != found.npos;
  if (hasPort) {
    found = found.substr(0, colon);
    isFour = true;
  }
  constexpr std::size_t kShortest = 2;
  constexpr std::size_t kLongest = 64;
  if (found.size() < kShortest || found.size() > kLongest ||
      (!hasPort && !EndsWord(text, place + found.size()))) {
    return {};
  }
  size = found.size();
  if (const std::string pairs = PairsOf(found); !pairs.empty()) {
    return TextOfPairs(m_standIns.Address(pairs));
  }
  const int family = isFour ? AF_INET : AF_INET6;
  std::string bytes(isFour ? 4 : 16, '\0');
  if (::inet_pton(family, std::string(found).c_str(), bytes.data()) != 1) {
    return {};
  }
  const std::string standIn = m_standIns.Address(bytes);
  if (standIn == bytes) {
    return std::string(found);
  }
  std::array<char, INET6_ADDRSTRLEN> made{};
  return ::inet_ntop(family, standIn.data(), made.data(), made.size());
}

std::string TextMask::Go(std::string_view text, bool withAddresses) const {
  std::string masked;
  masked.reserve(text.size());
  for (std::size_t place = 0; place < text.size();) {
    std::size_t size = 0;
    const bool isBehindWord = place > 0 && IsWordLetter(text[place - 1]);
    if (const std::string* word = WordAt(text, place, size)) {
      masked += *word;
    } else if (std::string address =
                   withAddresses && (IsHexDigit(text[place]) ||
                                     (!isBehindWord && text.substr(place).starts_with("::")))
                       ? AddressAt(text, place, size)
                       : "";
               !address.empty()) {
      masked += address;
    } else {
      // The rest of a word begins none.
      size = std::max<std::size_t>(StartOf(text.substr(place)).size(), 1);
      const bool isNumber = text.substr(place + size).starts_with('.') && withAddresses;
      masked.append(text.substr(place, size));
      // Nor is the end of a version such as libx.so.1.2.3.4 an address.
      for (place += size, size = 0; isNumber && place + size < text.size() &&
                                    (text[place + size] == '.' ||
                                     (text[place + size] >= '0' && text[place + size] <= '9'));) {
        masked += text[place + size++];
      }
    }
    place += size;
  }
  return masked;
}

std::string TextMask::Text(std::string_view text) const { return Go(text, true); }
std::string TextMask::Bytes(std::string_view bytes) const { return Go(bytes, false); }

std::string FindWord(std::string_view text, const std::vector<std::string>& words, int stop) {
  constexpr std::size_t kLong = 65536;
  for (const std::string& word : words) {
    if (text.size() > kLong) {
      EndIfStopped(stop);
    }
    for (std::size_t place = text.find(word); place != text.npos;
         place = text.find(word, place + 1)) {
      if ((place == 0 || !IsWordLetter(text[place - 1])) && EndsWord(text, place + word.size())) {
        return word;
      }
    }
  }
  return {};
}
