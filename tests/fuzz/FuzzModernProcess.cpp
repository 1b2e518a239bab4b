#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "collect/modern/process/ProcessDetail.h"
#include "collect/modern/process/ProcessDetailText.h"
#include "collect/modern/process/ProcessText.h"
#include "collect/modern/process/TaskStream.h"
#include "collect/process/ProcessSourceLINUX.h"
#include "tests/fuzz/FuzzHelp.h"

namespace {

/// Whether no bit stands beyond those of the keys.
bool IsWithin(std::uint32_t found, std::size_t keys) { return std::uint64_t{found} >> keys == 0; }

void TakeProcessStat(std::string_view text) {
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

void TakeProcessIo(std::string_view text) {
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

/// Structures that a byte in front cuts into pieces; their size and version are put right, which no
/// input would find.
void TakeTasks(std::string_view text) {
  const std::size_t piece = text.empty() ? 1 : static_cast<unsigned char>(text[0]) + std::size_t{1};
  std::string bytes(text.substr(std::min<std::size_t>(text.size(), 1)));
  for (std::size_t at = 0; at + sizeof(TaskFigures) <= bytes.size(); at += sizeof(TaskFigures)) {
    constexpr std::uint32_t kHead[]{sizeof(TaskFigures), QMT_TASK_FIGURES_VERSION};
    std::memcpy(bytes.data() + at, kHead, sizeof kHead);
  }
  std::vector<TaskGroup> groups;
  TaskStream stream(groups);
  for (std::size_t at = 0; at < bytes.size(); at += piece) {
    if (!stream.Take(
            std::as_bytes(std::span(bytes).subspan(at, std::min(piece, bytes.size() - at))))) {
      Require(groups.empty() && !stream.Fault().empty());
      return;
    }
  }
  Require(stream.Finish() == stream.Fault().empty());
  for (std::size_t index = 1; index < groups.size(); ++index) {
    Require(groups[index - 1].task.tgid < groups[index].task.tgid);
  }
}

}  // namespace

/// The first byte, a digit in the seeds, chooses the file, the others are its text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr void (*kFiles[])(std::string_view) = {
      TakeProcessStat,
      TakeStatus,
      TakeProcessIo,
      TakeLimits,
      TakeArguments,
      [](std::string_view text) {
        ProcessPages pages;
        static_cast<void>(ParseProcessStatm(text, pages));
      },
      TakeDetail,
      TakeTasks};
  return TakeChosen(data, size, kFiles, '0');
}
