#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <string>
#include <string_view>

#include "collect/modern/process/ProcessDetail.h"
#include "collect/modern/process/ProcessDetailText.h"
#include "collect/modern/process/ProcessText.h"
#include "collect/process/ProcessSourceLINUX.h"

namespace {

void Require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

/// Whether no bit stands beyond those of the keys.
bool IsWithin(std::uint32_t found, std::size_t keys) { return std::uint64_t{found} >> keys == 0; }

void TakeStat(std::string_view text) {
  ProcessStat stat;
  if (ParseProcessStat(text, stat)) {
    Require(stat.name.empty() ||
            (stat.name.data() >= text.data() &&
             stat.name.data() + stat.name.size() <= text.data() + text.size()));
  }
}

void TakeStatus(std::string_view text) {
  ProcessStatus status;
  Require(IsWithin(ParseProcessStatus(text, status), ProcessStatusKeys().size()));
}

void TakeIo(std::string_view text) {
  ProcessIo io;
  Require(IsWithin(ParseProcessIo(text, io), ProcessIoKeys().size()));
}

void TakeLimits(std::string_view text) {
  ProcessLimits limits;
  Require(IsWithin(ParseProcessLimits(text, limits), ProcessLimitKeys().size()));
}

void TakeArguments(std::string_view text) {
  std::string arguments(text);
  const std::size_t length = TidyArguments(arguments);
  Require(length <= text.size());
  Require(length == 0 || arguments[length - 1] != ' ');
}

void TakeDetail(std::string_view text) {
  ProcessDetail detail;
  if (!TakeStatDetail(text, 0, detail)) {
    Require(detail.name.empty());
  }
  TakeStatusDetail(text, detail);
  TakeIoDetail(text, detail);
  TakeSchedDetail(text, detail);
  Require(!(detail.readCalls < 0) && !(detail.runDelaySeconds < 0));
  Require(WaitChannelOf(text).find('\n') == std::string_view::npos);
  const std::string_view group = ControlGroupOf(text);
  Require(group.empty() || group.front() == '/');
}

}  // namespace

/// The first byte, a digit in the seeds, chooses the file, the others are its text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  constexpr void (*kFiles[])(std::string_view) = {
      TakeStat,
      TakeStatus,
      TakeIo,
      TakeLimits,
      TakeArguments,
      [](std::string_view text) {
        ProcessPages pages;
        static_cast<void>(ParseProcessStatm(text, pages));
      },
      TakeDetail};
  const auto file = static_cast<std::uint8_t>(data[0] - '0');
  kFiles[file % std::size(kFiles)]({reinterpret_cast<const char*>(data) + 1, size - 1});
  return 0;
}
