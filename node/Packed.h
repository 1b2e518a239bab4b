#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <string_view>

/// A value of alignment 1, so that a structure made of such members has no padding and an odd
/// offset is never a misaligned access. Bytes stand in the host's order.
template <class T>
struct Packed {
  std::array<unsigned char, sizeof(T)> raw{};

  constexpr Packed() = default;
  constexpr Packed(T value) : raw(std::bit_cast<decltype(raw)>(value)) {}
  constexpr Packed& operator=(T value) {
    raw = std::bit_cast<decltype(raw)>(value);
    return *this;
  }
  constexpr operator T() const { return std::bit_cast<T>(raw); }
};

/// A zero-filled text field of N bytes that always ends in a terminator: assignment keeps at most
/// N - 1 characters, up to the first terminator of the source. A null source leaves it empty.
template <std::size_t N>
struct Text {
  std::array<char, N> raw{};

  Text& operator=(std::string_view source) {
    raw.fill('\0');
    const std::string_view text = source.substr(0, source.find('\0'));
    const std::size_t length = text.size() < N - 1 ? text.size() : N - 1;
    if (length != 0) {
      std::memcpy(raw.data(), text.data(), length);
    }
    return *this;
  }
  Text& operator=(const char* source) {
    return *this = source == nullptr ? std::string_view{} : std::string_view{source};
  }
  [[nodiscard]] const char* c_str() const { return raw.data(); }
  [[nodiscard]] std::string_view view() const { return {raw.data(), ::strnlen(raw.data(), N)}; }
  [[nodiscard]] bool operator==(const Text& other) const { return view() == other.view(); }
};
