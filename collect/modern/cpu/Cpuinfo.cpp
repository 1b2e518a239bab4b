#include "collect/modern/cpu/Cpuinfo.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <iterator>

#include "collect/modern/HostLines.h"

namespace {

constexpr std::string_view kProcessorKey = "processor";
constexpr std::string_view kClockKey = "cpu MHz";

/// What names a processor's type, by how well it does.
constexpr std::array<std::string_view, 6> kTypeKeys{"model name", "Model Name", "cpu model",
                                                    "cpu",        "uarch",      "isa"};

struct KnownCpuPart {
  std::uint32_t implementer;
  std::uint32_t part;
  const char* name;
};
constexpr KnownCpuPart kKnownCpuParts[] = {
    {0x41, 0xd03, "ARM Cortex-A53"},
    {0x41, 0xd04, "ARM Cortex-A35"},
    {0x41, 0xd05, "ARM Cortex-A55"},
    {0x41, 0xd07, "ARM Cortex-A57"},
    {0x41, 0xd08, "ARM Cortex-A72"},
    {0x41, 0xd09, "ARM Cortex-A73"},
    {0x41, 0xd0a, "ARM Cortex-A75"},
    {0x41, 0xd0b, "ARM Cortex-A76"},
    {0x41, 0xd0c, "ARM Neoverse-N1"},
    {0x41, 0xd40, "ARM Neoverse-V1"},
    {0x41, 0xd41, "ARM Cortex-A78"},
    {0x41, 0xd49, "ARM Neoverse-N2"},
    {0x41, 0xd4a, "ARM Neoverse-E1"},
    {0x41, 0xd4f, "ARM Neoverse-V2"},
    {0x42, 0x516, "Broadcom ThunderX2"},
    {0x43, 0x0a1, "Cavium ThunderX"},
    {0x43, 0x0af, "Cavium ThunderX2"},
    {0x46, 0x001, "Fujitsu A64FX"},
    {0x48, 0xd01, "HiSilicon Kunpeng-920"},
    {0x61, 0x022, "Apple Icestorm-M1"},
    {0x61, 0x023, "Apple Firestorm-M1"},
    {0xc0, 0xac3, "Ampere-1"},
    {0xc0, 0xac4, "Ampere-1a"},
};

struct CpuinfoLine {
  std::string_view key;
  std::string_view value;
};

CpuinfoLine SplitCpuinfoLine(std::string_view line) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos) {
    return {};
  }
  return {WithoutEdgeBlanks(line.substr(0, colon)), WithoutEdgeBlanks(line.substr(colon + 1))};
}

std::optional<std::uint32_t> CpuinfoHex(std::string_view text) {
  std::uint32_t value = 0;
  if (!text.starts_with("0x")) {
    return std::nullopt;
  }
  text.remove_prefix(2);
  return TakeCount(text, value, 16) ? std::optional(value) : std::nullopt;
}

void SetCpuType(CpuinfoBlock& block, std::string_view type) {
  block.type.fill('\0');
  type.copy(block.type.data(), CpuinfoBlock::kTypeLength);
}

}  // namespace

bool IsProcessorLine(std::string_view line) { return SplitCpuinfoLine(line).key == kProcessorKey; }

void TakeCpuinfoLine(std::string_view line, CpuinfoBlock& block) {
  auto [key, value] = SplitCpuinfoLine(line);
  if (value.empty()) {
    return;
  }
  if (key == kProcessorKey) {
    if (std::uint32_t processor = 0; TakeCount(value, processor)) {
      block.processor = processor;
    }
  } else if (key == "CPU implementer") {
    block.implementer = CpuinfoHex(value);
  } else if (key == "CPU part") {
    block.part = CpuinfoHex(value);
  } else if (const auto* found = std::ranges::find(kTypeKeys, key); found != kTypeKeys.end()) {
    if (const auto rank = static_cast<std::size_t>(found - kTypeKeys.begin()); rank < block.rank) {
      block.rank = rank;
      SetCpuType(block, value);
    }
  }
}

void NameByPart(CpuinfoBlock& block) {
  if (block.rank < kTypeKeys.size() || !block.implementer || !block.part) {
    return;
  }
  const auto* const found =
      std::ranges::find_if(kKnownCpuParts, [&block](const KnownCpuPart& known) {
        return known.implementer == *block.implementer && known.part == *block.part;
      });
  if (found != std::end(kKnownCpuParts)) {
    SetCpuType(block, found->name);
  } else {
    std::snprintf(block.type.data(), block.type.size(), "0x%02x part 0x%03x", *block.implementer,
                  *block.part);
  }
}

void TakeCpuinfoClock(std::string_view line, CpuinfoClock& clock) {
  const bool isProcessor = line.starts_with(kProcessorKey);
  if (!isProcessor && !line.starts_with(kClockKey)) {
    return;
  }
  auto [key, value] = SplitCpuinfoLine(line);
  if (isProcessor && key == kProcessorKey) {
    clock = {};
    (void)TakeCount(value, clock.processor);
  } else if (key == kClockKey && !value.empty() && value.front() >= '0' && value.front() <= '9') {
    double megahertz = 0;
    const char* const end = value.data() + value.size();
    const auto [stop, code] =
        std::from_chars(value.data(), end, megahertz, std::chars_format::fixed);
    clock.megahertz = code == std::errc{} && stop == end ? megahertz : kNotTold;
  }
}
