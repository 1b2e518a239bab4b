#include <cstddef>
#include <cstdint>
#include <string_view>

#include "collect/modern/KernelStat.h"
#include "collect/modern/Loadavg.h"
#include "collect/modern/Meminfo.h"
#include "collect/modern/NFSTotals.h"
#include "collect/modern/ProtocolCounters.h"
#include "collect/modern/Vmstat.h"

/// Any bytes as the files of the whole host that the profile `modern` reads.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  TellMissing(ParseVmstat(text));
  TellMissing(ParseMeminfo(text));
  TellMissing(ParseKernelStat(text));
  static_cast<void>(ParseLoadavg(text));
  TellMissingOfSnmp(ParseSnmp(text));
  TellMissingOfSnmp6(ParseSnmp6(text));
  static_cast<void>(ParseNFSFile(text, kNFSClientVersion4));
  static_cast<void>(ParseNFSFile(text, kNFSServerVersion4));
  static_cast<void>(ParseNFSBadCalls(text));
  return 0;
}
