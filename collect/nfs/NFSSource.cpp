#include "collect/nfs/NFSSource.h"

#include <sys/stat.h>

#include "collect/TextScanner.h"
#include "support/HostPaths.h"

constexpr NFSSide kNFSClientSide{
    kProcNetRpcNfs,
    "NFSC",
    "NFSClientTotalSourceUser::NFSClientTotalSourceUser",
    "NFSClientTotalSourceUser::read",
    "An error occured in a function (NFSClientTotalSourceUser::Get_NFSC2_Info). (rc=%1, arg1=%2, "
    "arg2=%3)",
    "An error occured in a function (NFSClientTotalSourceUser::Get_NFSC3_Info). (rc=%1, arg1=%2, "
    "arg2=%3)"};
constexpr NFSSide kNFSServerSide{
    kProcNetRpcNfsd,
    "NFSS",
    "NFSServerTotalSourceUser::NFSServerTotalSourceUser",
    "NFSServerTotalSourceUser::read",
    "An error occured in a function (NFSServerTotalSourceUser::Get_NFSS2_Info). (rc=%1, arg1=%2, "
    "arg2=%3)",
    "An error occured in a function (NFSServerTotalSourceUser::Get_NFSS3_Info).(rc=%1, arg1=%2, "
    "arg2=%3)"};

namespace {

constexpr const char* kScanFormatV2 = "%*u %u %u %u %u %u %u %u %u %u %u %u %u %u %u %u %u %u %u";
constexpr const char* kScanFormatV3 =
    "%*u %u %u %u %u %u %u %u %u %u %u %u %u %u %u %u %u %u %u %u %u %u %u";

template <class Calls>
int ScanCalls(const char* value, const char* format, Calls& calls, std::uint32_t& totalCalls) {
  TextScanner scanner(value);
  scanner.SkipNumbers(1);
  std::uint32_t sum = 0;
  for (std::uint32_t& count : calls) {
    scanner.Unsigned(count);
    sum += count;
  }
  if (scanner.Count() != static_cast<int>(calls.size())) {
    Trace(20, kError, "An error occurred in a function (sscanf). (rc=%1, arg1=%2, arg2=%3)",
          scanner.Count(), value, format);
    return -1;
  }
  totalCalls += sum;
  return 0;
}

int ScanV2(const char* value, NFSWork* work) {
  return ScanCalls(value, kScanFormatV2, work->callsV2, work->totalCalls);
}
int ScanV3(const char* value, NFSWork* work) {
  return ScanCalls(value, kScanFormatV3, work->callsV3, work->totalCalls);
}

/// Whether the line of that key was there and could be read.
bool ReadVersion(const ProcLib& proc, const char* key, int (*scan)(const char*, NFSWork*),
                 const char* scanFailed, NFSWork& work) {
  ProcLine value{};
  if (const int code = proc.GetProcMapValue(key, value); code == -1) {
    Trace(20, kError,
          "An error occured in a function (ProcLib::GetProcMapValue). (rc=%1, arg1=%2, arg2=%3)",
          code, key, value.data());
    return false;
  }
  if (const int code = scan(value.data(), &work); code == -1) {
    Trace(20, kError, scanFailed, code, value.data(), AddressOf(&work));
    return false;
  }
  return true;
}

}  // namespace

template <class Structure, class Row, const NFSSide& side>
NFSTotalSource<Structure, Row, side>::NFSTotalSource() {
  TraceEntry(side.constructor, side.argument);
  ++s_statistics.constructed;
  this->m_pendingError.reset(m_proc.Initialize(side.file));
  if (this->m_pendingError != nullptr) {
    struct ::stat status {};
    m_isSupported = Os().stat(HostPath(ProcLib::FilePath(side.file)).c_str(), &status) == 0;
    Trace(20, kError, "An error occured in a function (ProcLib::Initialize). (rc=%1, arg1=%2)",
          AddressOf(this->m_pendingError.get()), side.argument);
  }
  TraceExit(side.constructor);
}

template <class Structure, class Row, const NFSSide& side>
void NFSTotalSource<Structure, Row, side>::read(Structure* record) {
  TraceEntry(side.read, AddressOf(record));
  this->m_more = false;
  if (this->m_pendingError != nullptr) {
    TraceExit(side.read);
    return;
  }
  if (const int code = m_proc.BuildProcMap(" "); code == -1) {
    Trace(20, kError, "An error occured in a function (ProcLib::BuildProcMap). (rc=%1, arg1=%2)",
          code, "DELIM_SPACE");
    TraceExit(side.read);
    return;
  }
  NFSWork work;
  if (ReadVersion(m_proc, "proc2", ScanV2, side.scanV2Failed, work)) {
    record->callsV2 = work.callsV2;
  }
  if (ReadVersion(m_proc, "proc3", ScanV3, side.scanV3Failed, work)) {
    record->callsV3 = work.callsV3;
  }
  record->totalCalls = work.totalCalls;
  TraceExit(side.read);
}

template class NFSTotalSource<x_nfsclienttotal, NFSClientTotal, kNFSClientSide>;
template class NFSTotalSource<x_nfsservertotal, NFSServerTotal, kNFSServerSide>;

int NFSClientTotalSourceUser::Get_NFSC2_Info(const char* value, NFSWork* work) {
  return ScanV2(value, work);
}
int NFSClientTotalSourceUser::Get_NFSC3_Info(const char* value, NFSWork* work) {
  return ScanV3(value, work);
}
int NFSServerTotalSourceUser::Get_NFSS2_Info(const char* value, NFSWork* work) {
  return ScanV2(value, work);
}
int NFSServerTotalSourceUser::Get_NFSS3_Info(const char* value, NFSWork* work) {
  return ScanV3(value, work);
}
