#pragma once

#include <sys/socket.h>

#include <optional>
#include <string>

/// An address that a program listens on, as bind(2) takes it.
struct ListenAddress {
  ::sockaddr_storage address{};
  ::socklen_t size = 0;

  [[nodiscard]] const ::sockaddr* Get() const {
    return reinterpret_cast<const ::sockaddr*>(&address);
  }
};

/// What a text that is no such address is told to be.
inline constexpr const char* kListenAddressForm = "ADDRESS:PORT, as 127.0.0.1:9964 or [::1]:9964";

/// Reads "127.0.0.1:9964" or "[::1]:9964": numbers alone, so that nothing is looked up. Port 0 is
/// any that is free. Nothing for any other text.
[[nodiscard]] std::optional<ListenAddress> ParseListenAddress(const std::string& text);

/// An address, and what stands before it.
struct SchemedAddress {
  enum class Scheme { kNone, kPlain, kTls };

  Scheme scheme = Scheme::kNone;
  std::string address;
};
/// Takes "http://" or "https://" off an address.
[[nodiscard]] SchemedAddress SplitScheme(const std::string& text);
