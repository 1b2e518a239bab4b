#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

// What the fuzz targets share.

/// Ends the program, which the fuzzer takes for a finding, unless it holds.
inline void Require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

/// The same, and says on standard error what does not hold.
inline void Require(bool holds, const char* what) {
  if (!holds) {
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
  }
}

/// Takes an input apart from its front. What is asked for beyond its end is 0 or empty.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size)
      : m_rest(reinterpret_cast<const char*>(data), size) {}

  [[nodiscard]] bool IsEmpty() const { return m_rest.empty(); }
  std::uint8_t Byte() {
    const std::string_view one = Bytes(1);
    return one.empty() ? std::uint8_t{0} : static_cast<std::uint8_t>(one[0]);
  }
  std::uint16_t Word() {
    const unsigned high = Byte();
    return static_cast<std::uint16_t>(high << 8U | Byte());
  }
  std::string_view Bytes(std::size_t count) {
    const std::string_view bytes = m_rest.substr(0, count);
    m_rest.remove_prefix(bytes.size());
    return bytes;
  }
  /// Up to `mark`, which is passed over, or to the end.
  std::string_view Until(char mark) {
    const std::string_view bytes = Bytes(std::min(m_rest.find(mark), m_rest.size()));
    static_cast<void>(Bytes(1));
    return bytes;
  }
  std::string_view Rest() { return Bytes(m_rest.size()); }

 private:
  std::string_view m_rest;
};

/// Has the parser that the first byte chooses, counted from `base`, take the others.
template <std::size_t N>
int TakeChosen(const std::uint8_t* data, std::size_t size,
               void (*const (&parsers)[N])(std::string_view), char base = 0) {
  if (size != 0) {
    parsers[static_cast<std::uint8_t>(data[0] - base) % N](
        {reinterpret_cast<const char*>(data) + 1, size - 1});
  }
  return 0;
}

/// A folder below $TMPDIR for the life of the program, removed at its end.
class FuzzFolder {
 public:
  FuzzFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "qmtfuzz.XXXXXX").string();
    Require(::mkdtemp(pattern.data()) != nullptr);
    m_path = pattern;
  }
  ~FuzzFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  FuzzFolder(const FuzzFolder&) = delete;
  FuzzFolder& operator=(const FuzzFolder&) = delete;

  [[nodiscard]] std::string Path(const std::string& name = "") const {
    return name.empty() ? m_path : m_path + '/' + name;
  }
  /// Puts the file there anew.
  void Write(const std::string& name, std::string_view text) const {
    std::ofstream(Path(name), std::ios::binary) << text;
  }

 private:
  std::string m_path;
};
