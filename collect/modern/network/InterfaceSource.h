#pragma once

#include <vector>

#include "collect/modern/network/NetlinkAddresses.h"
#include "collect/network/InterfaceSourceLINUX.h"

/// Flags of an interface as /sys/class/net tells them. Its file `flags` holds those that were set;
/// what the kernel adds when it is asked follows from the other files, an empty text being one that
/// is not there. 0 if `flags` is no number.
struct LinkStateTexts {
  std::string_view flags;      ///< "0x1003"
  std::string_view carrier;    ///< "1" or "0"; can't be read while the interface is down
  std::string_view operState;  ///< "up", "down", "unknown" and so on
  std::string_view dormant;    ///< as `carrier`
};
[[nodiscard]] std::uint32_t LinkFlagsOf(const LinkStateTexts& texts);

/// Reads one row per network interface from /proc/net/dev, numbered tunnels included, with flags,
/// MTU and address by netlink(7). A captured host, and an interface that netlink doesn't tell, has
/// flags and MTU from /sys/class/net and no address. A figure that can't be had is 0; a source of
/// figures that is not there is told once, and none fails the category.
class ModernInterfaceSource : public PtrSource<Interface, Interface, std::vector<Interface>> {
 public:
  ModernInterfaceSource();
  ~ModernInterfaceSource() override { ++s_statistics.destroyed; }

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  void read(Interface* record) override;

 private:
  void PutLink(Interface& work) const;

  inline static SourceStatistics s_statistics;

  TextFilePtr m_file;
  NetlinkTables m_links;
};
