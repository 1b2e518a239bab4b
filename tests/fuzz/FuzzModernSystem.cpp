#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "collect/modern/device/BlockDevices.h"
#include "collect/modern/network/ProtocolCounters.h"
#include "collect/modern/nfs/NFSTotals.h"
#include "collect/modern/system/HostFactsText.h"
#include "collect/modern/system/KernelSource.h"
#include "collect/modern/system/KernelStat.h"
#include "collect/modern/system/Loadavg.h"
#include "collect/modern/system/Meminfo.h"
#include "collect/modern/system/MemorySource.h"
#include "collect/modern/system/Vmstat.h"
#include "tests/fuzz/FuzzHelp.h"

namespace {

void TakeDiskstats(std::string_view text) {
  for (const DiskstatsLine& line : ParseDiskstats(text)) {
    static_cast<void>(PartitionedName(line.name));
    static_cast<void>(MultipathName(line.name));
    static_cast<void>(IsPseudoDisk(line.name));
    static_cast<void>(IsStackedDisk(line.name));
  }
}

void TakeNFS(std::string_view text) {
  static_cast<void>(ParseNFSFile(text, kNFSClientVersion4));
  static_cast<void>(ParseNFSFile(text, kNFSServerVersion4));
  static_cast<void>(ParseNFSBadCalls(text));
}

void TakeMemory(std::string_view text) {
  MemoryFigures figures;
  TakeMeminfo(text, figures);
  TakeVmstat(text, figures);
  Require(!(figures.freeBytes < 0));
}

void TakeKernelFile(std::string_view text) {
  static_cast<void>(ParseKernelStat(text));
  KernelFigures figures;
  TakeKernelLoad(text, figures);
  TakeKernelStat(text, figures);
  TakeKernelDisks(text, figures);
  Require(!(figures.contextSwitches < 0));
}

void TakeHostFacts(std::string_view text) {
  const OsRelease release = ParseOsRelease(text);
  Require(release.prettyName.size() < 256 && release.id.size() < 256);
  Require(ParseMachineId(text).size() % 32 == 0);
  Require(!(ParseFileNr(text).used < 0));
  Require(!(ParseTaskCount(text) < 0));
  const std::string container = ContainerOfEnvironment(text);
  Require(container.empty() || IsPlainWord(container));
  const std::string whole(text);
  static_cast<void>(VirtualisationOf({whole, whole, whole, whole}));
}

}  // namespace

/// The first byte, a digit in the seeds, chooses the file, the others are its text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr void (*kFiles[])(std::string_view) = {
      TakeDiskstats,
      TakeNFS,
      TakeKernelFile,
      [](std::string_view text) { static_cast<void>(ParseLoadavg(text)); },
      [](std::string_view text) { static_cast<void>(ParseMeminfo(text)); },
      [](std::string_view text) { static_cast<void>(ParseVmstat(text)); },
      [](std::string_view text) { static_cast<void>(ParseSnmp(text)); },
      [](std::string_view text) { static_cast<void>(ParseSnmp6(text)); },
      TakeMemory,
      TakeHostFacts};
  return TakeChosen(data, size, kFiles, '0');
}
