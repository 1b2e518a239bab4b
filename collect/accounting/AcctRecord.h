#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "support/TimeValues.h"

/// One ended process as the kernel's accounting file tells it.
struct x_acct {
  std::uint32_t sequence = 0;  ///< counted from 1 since this process started
  std::uint32_t uid = 0;
  std::uint32_t gid = 0;
  std::uint32_t tty = 0;  ///< device number, 0 without a terminal
  std::uint32_t reserved = 0;
  std::uint32_t mem = 0;
  std::uint32_t io = 0;         ///< bytes
  std::uint32_t rw = 0;         ///< blocks read and written
  std::uint32_t beginTime = 0;  ///< seconds since 1970
  std::array<std::uint32_t, 3> reserved2{};
  tagUTIME userTime;
  tagUTIME systemTime;
  tagUTIME elapsedTime;
  std::array<char, 9> comm{};  ///< up to 8 bytes and a terminator
  std::array<char, 128> userName{};
  std::array<char, 128> groupName{};
};

/// One ended process as builders see it.
class Acct : public x_acct {
 public:
  [[nodiscard]] static const char* name() { return "Acct"; }

  /// The command's name, 8 bytes at most.
  [[nodiscard]] std::string_view GetComm() const {
    return {comm.data(), ::strnlen(comm.data(), 8)};
  }
  [[nodiscard]] tagUTIME GetStartTime() const { return {static_cast<std::int32_t>(beginTime), 0}; }
  [[nodiscard]] tagUTIME GetEndTime() const { return GetStartTime() + elapsedTime; }
};
