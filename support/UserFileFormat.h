#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

// The binary files through which users feed figures of their own into the agent: one for each kind
// of user record, a header of 60 bytes and then records of one size without padding. Integers are
// 32 bits and doubles are IEEE 754, both little-endian.

/// What a field of a user record holds in its file.
enum class UserFieldType : std::uint8_t {
  kText,      ///< `size` bytes, without a NUL when they are full
  kUnsigned,  ///< 32 bits
  kSigned,    ///< 32 bits
  kTime,      ///< 32 bits, signed, seconds since the epoch
  kDouble,    ///< 64 bits
};

/// One field of a user record.
struct UserField {
  std::string label;  ///< the label of the same field in the agent's record
  UserFieldType type;
  std::size_t offset;  ///< bytes from the record's start in the file
  std::size_t size;    ///< bytes in the file
};

/// One of the four kinds of user records.
struct UserFileKind {
  const char* name;        ///< the agent's record, such as "UPI"
  const char* fileName;    ///< below kUserDataDirectory
  int projectId;           ///< with kUserFileKeyPath gives the semaphore's key by ftok(3)
  std::size_t recordSize;  ///< bytes in the file
  std::span<const UserField> fields;  ///< all of them, in the order of the file
};

/// Where each kind stands among the four, and the size of its records.
enum UserFileIndex : std::size_t { kUPI, kUPIB, kUPD, kUPDB };
inline constexpr std::array<std::size_t, 4> kUserRecordSizes{308, 772, 276, 692};

/// The four kinds: UPI, UPIB, UPD, UPDB.
[[nodiscard]] std::span<const UserFileKind> UserFileKinds();
/// The kind of that name, or null.
[[nodiscard]] const UserFileKind* FindUserFileKind(std::string_view name);

inline constexpr std::size_t kUserFileHeaderSize = 60;
/// The product tag, whose text ends in a NUL within its 50 bytes, and the version in the last 10.
inline constexpr std::string_view kUserFileTag = "QMT-Agent for Hostsets (UNIX)";
inline constexpr std::size_t kUserFileVersionOffset = 50;
inline constexpr std::string_view kUserFileVersion = "0001";
/// The header that a writer puts first.
[[nodiscard]] std::array<char, kUserFileHeaderSize> MakeUserFileHeader();
/// Whether tag and version are those of this format.
[[nodiscard]] bool IsUserFileHeader(std::span<const char, kUserFileHeaderSize> header);

/// The records that the agent takes of one file unless the site says otherwise.
inline constexpr long kUserFileDefaultLimit = 1440;

/// The directory of the four files and the path of the semaphores' keys, as plain absolute paths
/// without the product root.
inline constexpr const char* kUserDataDirectory = "/opt/qmtrx/mond/agent/qmtuser/userdata";
inline constexpr const char* kUserFileKeyPath = "/opt/qmtrx/mond/agent/qmtuser";
