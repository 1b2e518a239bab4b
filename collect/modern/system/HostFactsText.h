#pragma once

#include <string>
#include <string_view>

#include "support/NotTold.h"

// The parsers of what tells of a host as a whole. Each takes the text of one file.

/// The distribution of /etc/os-release; empty for what it lacks.
struct OsRelease {
  std::string prettyName;
  std::string id;
  std::string versionId;
};
/// The file is made of a shell's assignments, of which the last of a name counts. Quotes of both
/// kinds and backslashes are taken as a shell takes them, on one line each; control characters
/// become blanks.
[[nodiscard]] OsRelease ParseOsRelease(std::string_view text);

/// The 32 hex digits, in lower case, that /etc/machine-id has to be; empty for anything else, as
/// for the "uninitialized" of an image's first start.
[[nodiscard]] std::string ParseMachineId(std::string_view text);

/// Files that are open in the whole host, and how many may be; kNotTold for no bound.
struct FileHandles {
  double used = kNotTold;
  double most = kNotTold;
};
/// Of /proc/sys/fs/file-nr: allocated, free, most.
[[nodiscard]] FileHandles ParseFileNr(std::string_view text);

/// Processes and threads that exist, the second number of the fourth field of /proc/loadavg;
/// kNotTold if it lacks that.
[[nodiscard]] double ParseTaskCount(std::string_view loadavg);

/// What the firmware says of the machine, as the first lines of the files of /sys/class/dmi/id.
struct DmiTexts {
  std::string vendor;   ///< sys_vendor
  std::string product;  ///< product_name
  std::string board;    ///< board_vendor
  std::string bios;     ///< bios_vendor
};
/// The usual short name of the virtualisation whose firmware says that, like "kvm", "vmware" or
/// "microsoft"; empty for a real machine, also for one of a cloud.
[[nodiscard]] std::string_view VirtualisationOf(const DmiTexts& dmi);

/// The value of `container=` among the assignments of /proc/1/environ, which NULs end; empty if
/// there is none, or it is no plain word.
[[nodiscard]] std::string ContainerOfEnvironment(std::string_view environment);
/// Whether the text is a short word of letters, digits and "._-".
[[nodiscard]] bool IsPlainWord(std::string_view text);
