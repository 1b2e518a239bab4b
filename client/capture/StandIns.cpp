#include "client/capture/StandIns.h"

#include <sys/random.h>

#include <algorithm>
#include <bit>

#include "client/ask/Errors.h"

namespace {

constexpr std::size_t kBytes4 = 4;
constexpr std::size_t kBytes6 = 16;
constexpr int kAllLetters = 26;
constexpr int kHexLetters = 6;
/// How often a stand-in that another has already is tried again.
constexpr std::uint64_t kTries = 10'000;

unsigned char ByteOf(const std::string& bytes, std::size_t place) {
  return static_cast<unsigned char>(bytes[place]);
}

bool IsAll(const std::string& bytes, std::size_t size, char value) {
  return std::all_of(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size),
                     [value](char byte) { return byte == value; });
}

/// ::ffff:a.b.c.d
bool IsMapped4(const std::string& bytes) {
  constexpr std::size_t kZeros = 10;
  constexpr std::size_t kPrefix = 12;
  return bytes.size() == kBytes6 && IsAll(bytes, kZeros, 0) &&
         bytes.substr(kZeros, kPrefix - kZeros) == "\xff\xff";
}

bool StandsForNoHost(const std::string& bytes) {
  if (bytes.size() == kBytes4) {
    constexpr unsigned char kLoopback = 127;
    constexpr unsigned char kMulticast = 224;
    const unsigned char first = ByteOf(bytes, 0);
    return first == 0 || first == kLoopback || first >= kMulticast;
  }
  if (bytes.size() == kBytes6) {
    return bytes[0] == '\xff' || (IsAll(bytes, kBytes6 - 1, 0) && ByteOf(bytes, kBytes6 - 1) <= 1);
  }
  // The lowest bit of the first byte says that a group is meant.
  return (ByteOf(bytes, 0) & 1U) != 0 || IsAll(bytes, bytes.size(), 0);
}

/// Records have a blank for each of these.
bool IsBetween(char letter) {
  const auto byte = static_cast<unsigned char>(letter);
  return byte <= ' ' || byte == 0x7f;
}

}  // namespace

KeyedHash::KeyedHash(const Key& key)
    : m_state{key[0] ^ 0x736f6d6570736575U, key[1] ^ 0x646f72616e646f6dU,
              key[0] ^ 0x6c7967656e657261U, key[1] ^ 0x7465646279746573U} {}

void KeyedHash::Round(std::array<std::uint64_t, 4>& state) {
  auto& [v0, v1, v2, v3] = state;
  v0 += v1;
  v1 = std::rotl(v1, 13) ^ v0;
  v0 = std::rotl(v0, 32);
  v2 += v3;
  v3 = std::rotl(v3, 16) ^ v2;
  v0 += v3;
  v3 = std::rotl(v3, 21) ^ v0;
  v2 += v1;
  v1 = std::rotl(v1, 17) ^ v2;
  v2 = std::rotl(v2, 32);
}

void KeyedHash::Add(unsigned char byte) {
  m_word |= std::uint64_t{byte} << (8 * (m_count % 8));
  if (++m_count % 8 == 0) {
    m_state[3] ^= m_word;
    Round(m_state);
    Round(m_state);
    m_state[0] ^= m_word;
    m_word = 0;
  }
}

std::uint64_t KeyedHash::Value() const {
  std::array<std::uint64_t, 4> state = m_state;
  const std::uint64_t last = m_word | (m_count << 56U);
  state[3] ^= last;
  Round(state);
  Round(state);
  state[0] ^= last;
  state[2] ^= 0xff;
  for (int round = 0; round < 4; ++round) {
    Round(state);
  }
  return state[0] ^ state[1] ^ state[2] ^ state[3];
}

StandIns StandIns::Fresh() {
  KeyedHash::Key key{};
  if (::getrandom(key.data(), sizeof(key), 0) != static_cast<ssize_t>(sizeof(key))) {
    throw ClientError("the system gives no random bits");
  }
  return StandIns(key);
}

KeyedHash StandIns::Salted(std::uint64_t salt) const {
  return KeyedHash({m_key[0] ^ salt, m_key[1]});
}

std::string StandIns::Mapped(std::string_view text, std::uint64_t salt, int letters) const {
  KeyedHash hash = Salted(salt);
  std::string mapped(text);
  for (char& letter : mapped) {
    const auto byte = static_cast<unsigned char>(letter);
    hash.Add(byte);
    const std::uint64_t value = hash.Value();
    const auto chosen = static_cast<char>(value % static_cast<std::uint64_t>(letters));
    if (byte >= '0' && byte <= '9') {
      letter = static_cast<char>('0' + value % 10);
    } else if (byte >= 'A' && byte <= 'Z') {
      letter = static_cast<char>('A' + chosen);
    } else if ((byte >= 'a' && byte <= 'z') || byte >= 0x80) {
      letter = static_cast<char>('a' + chosen);
    }
  }
  return mapped;
}

std::string StandIns::Word(std::string_view word) const { return Mapped(word, 1, kAllLetters); }

std::string StandIns::Serial(std::string_view serial) const {
  const bool isHex = std::none_of(serial.begin(), serial.end(), [](char letter) {
    const char lower = static_cast<char>(letter | 0x20);
    return lower > 'f' && lower <= 'z';
  });
  // Firmware pads on the left, too, and readers take that away.
  const std::size_t begin = std::min(serial.find_first_not_of(' '), serial.size());
  return std::string(serial.substr(0, begin)) +
         Mapped(serial.substr(begin), 2, isHex ? kHexLetters : kAllLetters);
}

std::string StandIns::Name(const std::string& name) {
  std::string& known = m_names[name];
  for (std::uint64_t attempt = 0; known.empty() && attempt < kTries; ++attempt) {
    const std::string made = Mapped(name, 3 + 16 * attempt, kAllLetters);
    if (made != name && m_taken.insert(made).second) {
      known = made;
    }
  }
  if (known.empty()) {
    throw ClientError("there is no stand-in left for a name of " + std::to_string(name.size()) +
                      " letters");
  }
  return known;
}

std::size_t StandIns::ProgramSize(std::string_view line) {
  return static_cast<std::size_t>(std::find_if(line.begin(), line.end(), IsBetween) - line.begin());
}

std::string StandIns::Arguments(std::string_view line) const {
  const std::size_t first = ProgramSize(line);
  std::string text(line.substr(0, first));
  for (std::size_t place = first; place < line.size();) {
    const std::size_t size = ProgramSize(line.substr(place));
    text += size == 0 ? std::string(1, line[place]) : Word(line.substr(place, size));
    place += std::max<std::size_t>(size, 1);
  }
  return text;
}

std::string StandIns::AddressOf(const std::string& bytes, std::uint64_t salt) const {
  constexpr char kPrivate4 = 10;
  constexpr char kOwnHardware = 2;
  KeyedHash hash = Salted(salt);
  std::string made = bytes;
  for (const char byte : bytes) {
    hash.Add(static_cast<unsigned char>(byte));
  }
  for (char& byte : made) {
    byte = static_cast<char>(hash.Value() & 0xffU);
    hash.Add(0);
  }
  if (made.size() == kBytes6) {
    // What was local to its link stays so.
    const bool isLocal = ByteOf(bytes, 0) == 0xfe && (ByteOf(bytes, 1) & 0xc0U) == 0x80U;
    if (isLocal) {
      made.replace(0, 8, bytes, 0, 8);
    } else {
      made[0] = '\xfd';
    }
  } else {
    made[0] = made.size() == kBytes4 ? kPrivate4 : kOwnHardware;
  }
  return made;
}

std::string StandIns::Address(const std::string& bytes) {
  if (IsMapped4(bytes)) {
    return bytes.substr(0, kBytes6 - kBytes4) + Address(bytes.substr(kBytes6 - kBytes4));
  }
  if (bytes.empty() || StandsForNoHost(bytes)) {
    return bytes;
  }
  std::string& known = m_addresses[bytes];
  for (std::uint64_t attempt = 0; known.empty(); ++attempt) {
    const std::string made = AddressOf(bytes, 4 + 16 * attempt);
    if (made != bytes && m_taken.insert(made).second) {
      known = made;
    }
  }
  return known;
}
