#pragma once

#include <string>
#include <string_view>

/// What an Authorization header says.
struct Authorization {
  enum class Kind { kNone, kBasic, kBearer, kBroken };

  Kind kind = Kind::kNone;
  std::string name;    ///< of Basic
  std::string secret;  ///< the password of Basic, the token of Bearer
};

/// Reads the value of the header, which is empty where there is none. Broken is another scheme, a
/// base64 text that is not exact, a name or password of more than 256 bytes or with a control
/// character, and a token of more than 256 bytes or with anything but visible ASCII.
[[nodiscard]] Authorization ParseAuthorization(std::string_view header);
