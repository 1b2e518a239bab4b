#include "collect/modern/nfs/NFSTotals.h"

#include <numeric>

#include "collect/modern/HostText.h"

namespace {

/// Calls `take(index, number)` for the numbers of a line behind the one that counts them.
template <class Take>
void ForEachCount(TextScanner line, const Take& take) {
  std::uint64_t count = 0;
  line.Unsigned(count);
  std::uint64_t number = 0;
  for (std::size_t index = 0; index < count && line.Unsigned(number); ++index) {
    take(index, static_cast<std::uint32_t>(number));
  }
}

template <class Calls>
void TakeCalls(const TextScanner& line, Calls& calls) {
  ForEachCount(line, [&](std::size_t index, std::uint32_t number) {
    if (index < calls.size()) {
      calls[index] = number;
    }
  });
}

void TakeOperations(const TextScanner& line, const NFSVersion4& version4,
                    ModernNFSFigures& figures) {
  ForEachCount(line, [&](std::size_t index, std::uint32_t number) {
    figures.operationsV4 += number;
    if (index == version4.lookup) {
      figures.lookupsV4 = number;
    } else if (index == version4.read) {
      figures.readsV4 = number;
    } else if (index == version4.write) {
      figures.writesV4 = number;
    }
  });
}

template <class Calls>
std::uint32_t SumOf(const Calls& calls) {
  return std::accumulate(calls.begin(), calls.end(), std::uint32_t{0});
}

}  // namespace

NFSFigures ParseNFSFile(std::string_view text, const NFSVersion4& version4) {
  NFSFigures figures;
  std::string_view key;
  for (std::string_view line; NextTextLine(text, line);) {
    TextScanner scanner(line);
    if (!scanner.Word(key)) {
      continue;
    }
    if (key == "proc2") {
      TakeCalls(scanner, figures.callsV2);
    } else if (key == "proc3") {
      TakeCalls(scanner, figures.callsV3);
    } else if (key == version4.key) {
      TakeOperations(scanner, version4, figures.modern);
    }
  }
  return figures;
}

std::uint32_t ParseNFSBadCalls(std::string_view text) {
  std::string_view key;
  for (std::string_view line; NextTextLine(text, line);) {
    TextScanner scanner(line);
    std::uint32_t badCalls = 0;
    if (scanner.Word(key) && key == "rpc" && scanner.SkipNumbers(1) && scanner.Unsigned(badCalls)) {
      return badCalls;
    }
  }
  return 0;
}

template <class Structure, class Row, const ModernNFSSide& side>
void ModernNFSSource<Structure, Row, side>::read(Structure* record) {
  TraceEntry("ModernNFSSource::read", side.path, AddressOf(record));
  this->m_more = false;
  m_isSupported = ReadHostText(side.path, m_text);
  const NFSFigures figures = ParseNFSFile(m_text, side.version4);
  record->callsV2 = figures.callsV2;
  record->callsV3 = figures.callsV3;
  record->totalCalls = SumOf(figures.callsV2) + SumOf(figures.callsV3);
  record->modern = figures.modern;
  record->modern.badCalls = side.tellsBadCalls ? ParseNFSBadCalls(m_text) : 0;
  TraceExit("ModernNFSSource::read");
}

template class ModernNFSSource<x_nfsclienttotal, NFSClientTotal, kModernNFSClient>;
template class ModernNFSSource<x_nfsservertotal, NFSServerTotal, kModernNFSServer>;
