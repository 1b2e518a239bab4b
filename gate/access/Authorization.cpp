#include "gate/access/Authorization.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace {

constexpr std::size_t kMaxSecret = 256;
constexpr std::size_t kMaxBase64 = 1024;
constexpr std::string_view kBase64Letters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// Nothing unless the text is what an encoder makes: whole groups, no bits left over.
std::optional<std::string> DecodeBase64(std::string_view text) {
  if (text.size() % 4 != 0 || text.size() > kMaxBase64) {
    return std::nullopt;
  }
  const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
  text.remove_suffix(padding);
  std::string bytes;
  std::uint32_t bits = 0;
  unsigned count = 0;
  for (const char letter : text) {
    const std::size_t value = kBase64Letters.find(letter);
    if (value == kBase64Letters.npos) {
      return std::nullopt;
    }
    bits = (bits << 6 | static_cast<std::uint32_t>(value)) & 0xffff;
    count += 6;
    if (count >= 8) {
      count -= 8;
      bytes += static_cast<char>(bits >> count & 0xff);
    }
  }
  if ((bits & ((1U << count) - 1)) != 0) {
    return std::nullopt;
  }
  return bytes;
}

bool IsPlain(std::string_view text) {
  return text.size() <= kMaxSecret && std::none_of(text.begin(), text.end(), [](char letter) {
           return static_cast<unsigned char>(letter) < ' ' || letter == '\x7f';
         });
}

bool IsVisible(std::string_view text) {
  return !text.empty() && text.size() <= kMaxSecret &&
         std::all_of(text.begin(), text.end(),
                     [](char letter) { return letter > ' ' && letter < '\x7f'; });
}

Authorization ReadBasic(std::string_view text) {
  const std::optional<std::string> bytes = DecodeBase64(text);
  const std::size_t colon = bytes ? bytes->find(':') : std::string::npos;
  if (colon == std::string::npos) {
    return {Authorization::Kind::kBroken, {}, {}};
  }
  Authorization read{Authorization::Kind::kBasic, bytes->substr(0, colon),
                     bytes->substr(colon + 1)};
  return IsPlain(read.name) && IsPlain(read.secret)
             ? read
             : Authorization{Authorization::Kind::kBroken, {}, {}};
}

bool IsScheme(std::string_view text, std::string_view scheme) {
  return text.size() == scheme.size() &&
         ::strncasecmp(text.data(), scheme.data(), scheme.size()) == 0;
}

}  // namespace

Authorization ParseAuthorization(std::string_view header) {
  if (header.empty()) {
    return {};
  }
  const std::size_t space = std::min(header.find(' '), header.size());
  const std::string_view scheme = header.substr(0, space);
  std::string_view rest = header.substr(space);
  rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
  if (IsScheme(scheme, "Basic")) {
    return ReadBasic(rest);
  }
  if (IsScheme(scheme, "Bearer") && IsVisible(rest)) {
    return {Authorization::Kind::kBearer, {}, std::string(rest)};
  }
  return {Authorization::Kind::kBroken, {}, {}};
}
