#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>

/// SipHash-2-4 of the bytes so far, under a key of 128 bits.
class KeyedHash {
 public:
  using Key = std::array<std::uint64_t, 2>;

  explicit KeyedHash(const Key& key);
  void Add(unsigned char byte);
  /// Of what was added; more may follow.
  [[nodiscard]] std::uint64_t Value() const;

 private:
  static void Round(std::array<std::uint64_t, 4>& state);

  std::array<std::uint64_t, 4> m_state;
  std::uint64_t m_word = 0;   ///< bytes that make no whole word yet, the first the lowest
  std::uint64_t m_count = 0;  ///< bytes that were added
};

/// What stands in a private capture instead of texts that tell of people and places. The same text
/// has the same stand-in of its kind, and nobody can go back who has not the key.
class StandIns {
 public:
  explicit StandIns(const KeyedHash::Key& key) : m_key(key) {}
  /// One with a key of random bits that nobody else ever has. Throws ClientError.
  [[nodiscard]] static StandIns Fresh();

  /// A letter for each letter, a digit for each digit, a letter for each byte beyond ASCII, the
  /// rest as it is. What begins alike has stand-ins that begin alike, so that one which was cut is
  /// the beginning of the whole one.
  [[nodiscard]] std::string Word(std::string_view word) const;
  /// The same, but with letters that are hexadecimal digits alone if the word has no others.
  [[nodiscard]] std::string Serial(std::string_view serial) const;
  /// Has no stand-in be `name`.
  void Avoid(const std::string& name) { m_taken.insert(name); }
  /// As Word, but no two names have the same.
  [[nodiscard]] std::string Name(const std::string& name);
  /// Arguments with NUL, blanks or control characters between, of which the first stays.
  [[nodiscard]] std::string Arguments(std::string_view line) const;
  /// How long the first of them is.
  [[nodiscard]] static std::size_t ProgramSize(std::string_view line);
  /// The 4 or 16 bytes of an address of IP, or the bytes of a hardware address, in the order of the
  /// network. What stands for no one host stays: loopback, no address, masks, multicast. No two
  /// have the same.
  [[nodiscard]] std::string Address(const std::string& bytes);

 private:
  [[nodiscard]] KeyedHash Salted(std::uint64_t salt) const;
  [[nodiscard]] std::string Mapped(std::string_view text, std::uint64_t salt, int letters) const;
  [[nodiscard]] std::string AddressOf(const std::string& bytes, std::uint64_t salt) const;

  KeyedHash::Key m_key;
  std::map<std::string, std::string> m_names;
  std::map<std::string, std::string> m_addresses;
  std::set<std::string> m_taken;
};
