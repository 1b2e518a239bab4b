#include "collect/modern/system/Meminfo.h"

#include <array>

#include "collect/modern/HostText.h"

namespace {

constexpr std::array kMeminfoRows{
    KeyedNumber<MeminfoFigures>{"MemAvailable:", &MeminfoFigures::availableKB},
    KeyedNumber<MeminfoFigures>{"MemTotal:", &MeminfoFigures::totalKB},
    KeyedNumber<MeminfoFigures>{"SwapTotal:", &MeminfoFigures::totalSwapKB},
    KeyedNumber<MeminfoFigures>{"SwapFree:", &MeminfoFigures::freeSwapKB}};
constexpr std::uint32_t kFoundAvailable = 1;

}  // namespace

bool MeminfoFigures::HasAvailable() const { return (found & kFoundAvailable) != 0; }

MeminfoFigures ParseMeminfo(std::string_view text) { return ParseKeyedNumbers(text, kMeminfoRows); }

void TellMissing(const MeminfoFigures& figures) {
  TellFound(kMeminfoPath, kMeminfoRows, figures.found);
}
