#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "collect/Source.h"
#include "collect/nfs/NFSSource.h"

/// Where a side counts the operations of version 4, and under which numbers.
struct NFSVersion4 {
  std::string_view key;
  std::size_t lookup;
  std::size_t read;
  std::size_t write;
};
/// The client's line `proc4` counts in the order of the kernel's NFSPROC4_CLNT_ constants
/// (include/linux/nfs4.h), which has grown at its end alone.
inline constexpr NFSVersion4 kNFSClientVersion4{"proc4", 19, 1, 2};
/// The server's line `proc4ops` counts by the protocol's operation numbers (RFC 7530, 16.2); its
/// `proc4` counts the compounds that hold them.
inline constexpr NFSVersion4 kNFSServerVersion4{"proc4ops", 15, 25, 38};

/// What is taken of /proc/net/rpc/nfs or nfsd; each the low 32 bits of the kernel's counter.
struct NFSFigures {
  NFSCallsV2 callsV2{};
  NFSCallsV3 callsV3{};
  ModernNFSFigures modern;
};

/// The numbers of each line stand behind how many they are; a line with fewer counts as far as it
/// goes. A version without a line counts 0.
[[nodiscard]] NFSFigures ParseNFSFile(std::string_view text, const NFSVersion4& version4);
/// The refused calls of the server's line `rpc`: its second number.
[[nodiscard]] std::uint32_t ParseNFSBadCalls(std::string_view text);

/// What the client's and the server's source differ in.
struct ModernNFSSide {
  const char* path;
  NFSVersion4 version4;
  bool tellsBadCalls;
};
inline constexpr ModernNFSSide kModernNFSClient{"/proc/net/rpc/nfs", kNFSClientVersion4, false};
inline constexpr ModernNFSSide kModernNFSServer{"/proc/net/rpc/nfsd", kNFSServerVersion4, true};

/// Reads the one row, whose total is that of versions 2 and 3. The file exists only where the
/// kernel has the module; without it the category is not supported and the row is all 0.
template <class Structure, class Row, const ModernNFSSide& side>
class ModernNFSSource : public PtrSource<Structure, Row, std::vector<Row>> {
 public:
  ModernNFSSource() { ++s_statistics.constructed; }
  ~ModernNFSSource() override { ++s_statistics.destroyed; }

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  void read(Structure* record) override;

  /// Whether the kernel has the module, as of the last read.
  [[nodiscard]] bool IsSupported() const { return m_isSupported; }

 private:
  inline static SourceStatistics s_statistics;

  bool m_isSupported = true;
  std::string m_text;
};

using ModernNFSClientSource = ModernNFSSource<x_nfsclienttotal, NFSClientTotal, kModernNFSClient>;
using ModernNFSServerSource = ModernNFSSource<x_nfsservertotal, NFSServerTotal, kModernNFSServer>;
extern template class ModernNFSSource<x_nfsclienttotal, NFSClientTotal, kModernNFSClient>;
extern template class ModernNFSSource<x_nfsservertotal, NFSServerTotal, kModernNFSServer>;
