#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "collect/ProcLib.h"
#include "collect/Source.h"

/// The procedures of both protocol versions in the kernel's order.
namespace nfs2 {
enum Procedure : std::size_t {
  kNull,
  kGetattr,
  kSetattr,
  kRoot,
  kLookup,
  kReadlink,
  kRead,
  kWrcache,
  kWrite,
  kCreate,
  kRemove,
  kRename,
  kLink,
  kSymlink,
  kMkdir,
  kRmdir,
  kReaddir,
  kStatfs,
  kProcedures
};
}
namespace nfs3 {
enum Procedure : std::size_t {
  kNull,
  kGetattr,
  kSetattr,
  kLookup,
  kAccess,
  kReadlink,
  kRead,
  kWrite,
  kCreate,
  kMkdir,
  kSymlink,
  kMknod,
  kRemove,
  kRmdir,
  kRename,
  kLink,
  kReaddir,
  kReaddirplus,
  kFsstat,
  kFsinfo,
  kPathconf,
  kCommit,
  kProcedures
};
}

using NFSCallsV2 = std::array<std::uint32_t, nfs2::kProcedures>;
using NFSCallsV3 = std::array<std::uint32_t, nfs3::kProcedures>;

/// What the profile `modern` knows besides; all 0 under `classic`.
struct ModernNFSFigures {
  std::uint32_t operationsV4 = 0;
  std::uint32_t lookupsV4 = 0;
  std::uint32_t readsV4 = 0;
  std::uint32_t writesV4 = 0;
  std::uint32_t badCalls = 0;  ///< refused calls of all versions; the client's are not told
};

/// Calls by procedure since boot. The reserved words are figures that the kernel does not tell:
/// always 0.
template <std::size_t wordsV2, std::size_t wordsV3>
struct x_nfstotal {
  std::uint32_t totalCalls = 0;  ///< of both versions
  std::uint32_t reserved = 0;
  NFSCallsV2 callsV2{};
  std::array<std::uint32_t, wordsV2> reservedV2{};
  NFSCallsV3 callsV3{};
  std::array<std::uint32_t, wordsV3> reservedV3{};
  ModernNFSFigures modern;
};
struct x_nfsclienttotal : x_nfstotal<13, 10> {};
struct x_nfsservertotal : x_nfstotal<8, 7> {};

/// What is gathered while a file is read.
struct NFSWork {
  std::uint32_t totalCalls = 0;
  NFSCallsV2 callsV2{};
  NFSCallsV3 callsV3{};
};

/// The calls as builders see them.
class NFSClientTotal : public x_nfsclienttotal {
 public:
  [[nodiscard]] static const char* name() { return "NFS Client"; }
};
class NFSServerTotal : public x_nfsservertotal {
 public:
  [[nodiscard]] static const char* name() { return "NFS Server"; }
};

/// What the client's and the server's source differ in.
struct NFSSide {
  ProcFile file;
  const char* argument;  ///< in the trace of a file that cannot be opened
  /// In the traces of entry and exit.
  const char* constructor;
  const char* read;
  const char* scanV2Failed;
  const char* scanV3Failed;
};
extern const NFSSide kNFSClientSide;
extern const NFSSide kNFSServerSide;

/// Reads the one row from /proc/net/rpc/nfs or /proc/net/rpc/nfsd, which exists only where the
/// kernel has the module: without it the category fails. A version whose line is missing or cannot
/// be read counts 0.
template <class Structure, class Row, const NFSSide& side>
class NFSTotalSource : public PtrSource<Structure, Row, std::vector<Row>> {
 public:
  NFSTotalSource();
  ~NFSTotalSource() override { ++s_statistics.destroyed; }

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  void read(Structure* record) override;

  /// Whether the kernel has the module.
  [[nodiscard]] bool IsSupported() const { return m_isSupported; }

 private:
  inline static SourceStatistics s_statistics;

  bool m_isSupported = true;
  ProcLib m_proc;
};

/// The scans take what stands behind the key of a line, whose first number counts the others, and
/// add the calls to the total. 0, or -1 for a line with too few numbers, which is traced: then the
/// total is as it was and the calls hold what was matched.
class NFSClientTotalSourceUser
    : public NFSTotalSource<x_nfsclienttotal, NFSClientTotal, kNFSClientSide> {
 public:
  [[nodiscard]] static int Get_NFSC2_Info(const char* value, NFSWork* work);
  [[nodiscard]] static int Get_NFSC3_Info(const char* value, NFSWork* work);
};
class NFSServerTotalSourceUser
    : public NFSTotalSource<x_nfsservertotal, NFSServerTotal, kNFSServerSide> {
 public:
  [[nodiscard]] static int Get_NFSS2_Info(const char* value, NFSWork* work);
  [[nodiscard]] static int Get_NFSS3_Info(const char* value, NFSWork* work);
};
