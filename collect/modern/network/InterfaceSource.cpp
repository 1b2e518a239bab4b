#include "collect/modern/network/InterfaceSource.h"

#include <net/if.h>

#include <charconv>
#include <cstdio>
#include <string>
#include <string_view>

#include "collect/HostFile.h"
#include "collect/ProcLib.h"
#include "collect/modern/HostText.h"
#include "collect/modern/ToldOnce.h"
#include "collect/modern/network/NetDev.h"
#include "support/HostPaths.h"
#include "support/LowWord.h"

namespace {

constexpr const char* kCountersPath = "/proc/net/dev";
constexpr std::uint32_t kModernInterfaceSize = 128;
/// Flags that <net/if.h> does not have.
constexpr std::uint32_t kLowerUp = 0x10000;
constexpr std::uint32_t kDormant = 0x20000;

/// The first line of a file of /sys without its end; empty if it can't be read.
class LinkFileText {
 public:
  explicit LinkFileText(const std::string& path) {
    if (const TextFilePtr file = OpenHostFile(path.c_str());
        file != nullptr &&
        std::fgets(m_line.data(), static_cast<int>(m_line.size()), file.get()) != nullptr) {
      m_text = m_line.data();
      m_text = m_text.substr(0, m_text.find('\n'));
    }
  }
  LinkFileText(const LinkFileText&) = delete;
  LinkFileText& operator=(const LinkFileText&) = delete;
  ~LinkFileText() = default;

  [[nodiscard]] std::string_view Text() const { return m_text; }

 private:
  std::array<char, 64> m_line{};
  std::string_view m_text;
};

std::uint32_t LinkNumber(std::string_view text, int base) {
  std::uint32_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number, base);
  return number;
}

/// Tells a file of figures that is not there.
void TellLinkFile(const std::string& path, std::string_view text) {
  if (text.empty()) {
    MissingInHost(path);
  } else {
    FoundInHost(path);
  }
}

void PutSysLink(Interface& work) {
  const std::string folder = std::string("/sys/class/net/") + work.GetName() + "/";
  const LinkFileText flags(folder + "flags");
  const LinkFileText mtu(folder + "mtu");
  TellLinkFile(folder + "flags", flags.Text());
  TellLinkFile(folder + "mtu", mtu.Text());
  const LinkFileText carrier(folder + "carrier");
  const LinkFileText operState(folder + "operstate");
  const LinkFileText dormant(folder + "dormant");
  work.ifFlags = LinkFlagsOf({flags.Text(), carrier.Text(), operState.Text(), dormant.Text()});
  work.mtu = static_cast<std::int32_t>(LinkNumber(mtu.Text(), 10));
}

void PutNetlinkLink(Interface& work, const NetlinkLink& link) {
  work.ifFlags = link.flags;
  work.mtu = static_cast<std::int32_t>(link.mtu);
  work.addressFamily = link.hasAddress ? 1 : 0;
  work.address = link.address;
  work.broadcast = link.broadcast;
  work.netmask = link.netmask;
}

void PutInterfaceCounters(Interface& work, const InterfaceCounters& counters) {
  work.counters = counters;
  work.rxPackets = LowWord(counters.rxPackets);
  work.rxErrors = LowWord(counters.rxErrors);
  work.txPackets = LowWord(counters.txPackets);
  work.txErrors = LowWord(counters.txErrors);
  work.collisions = LowWord(counters.collisions);
}

/// Once until the kernel has answered again.
void TellAnswer(int error) {
  static bool isTold = false;
  if (error != 0 && !isTold) {
    Trace(20, kError, "The kernel does not tell the addresses of interfaces by netlink. (en=%1)",
          error);
  }
  isTold = error != 0;
}

bool IsOtherHost() { return !IsRunningHost(); }

}  // namespace

std::uint32_t LinkFlagsOf(const LinkStateTexts& texts) {
  if (!texts.flags.starts_with("0x")) {
    return 0;
  }
  std::uint32_t flags = LinkNumber(texts.flags.substr(2), 16);
  if ((flags & IFF_UP) == 0) {
    return flags;
  }
  const bool isOperational =
      texts.operState.empty() || texts.operState == "up" || texts.operState == "unknown";
  flags |= isOperational ? static_cast<std::uint32_t>(IFF_RUNNING) : 0U;
  flags |= texts.carrier == "1" ? kLowerUp : 0U;
  flags |= texts.dormant == "1" ? kDormant : 0U;
  return flags;
}

ModernInterfaceSource::ModernInterfaceSource() : m_file(OpenHostFile(kCountersPath)) {
  TraceEntry("ModernInterfaceSource::ModernInterfaceSource");
  ++s_statistics.constructed;
  if (m_file == nullptr) {
    MissingInHost(kCountersPath);
  } else {
    FoundInHost(kCountersPath);
    if (!IsOtherHost()) {
      m_links = AskForLinks();
      TellAnswer(m_links.error);
    }
  }
  TraceExit("ModernInterfaceSource::ModernInterfaceSource");
}

void ModernInterfaceSource::read(Interface* record) {
  m_more = false;
  ProcLine line;
  NetDevRow row;
  while (m_file != nullptr && !m_more &&
         std::fgets(line.data(), static_cast<int>(line.size()), m_file.get()) != nullptr) {
    m_more = ParseNetDevLine(line.data(), row);
  }
  if (!m_more) {
    return;
  }
  TellFound(kCountersPath, row.name, row.isWhole);
  record->size = kModernInterfaceSize;
  row.name.copy(record->x_interface::name.data(), record->x_interface::name.size() - 1);
  PutInterfaceCounters(*record, row.counters);
  PutLink(*record);
}

void ModernInterfaceSource::PutLink(Interface& work) const {
  if (const NetlinkLink* link = FindLink(m_links, work.GetName())) {
    PutNetlinkLink(work, *link);
  } else {
    PutSysLink(work);
  }
  InterfaceTypeText(work.ifFlags).copy(work.type.data(), work.type.size() - 1);
}
