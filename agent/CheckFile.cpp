#include "agent/CheckFile.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/ConfigNames.h"
#include "agent/IniSettings.h"
#include "node/LayoutRegistry.h"
#include "node/NodeLayer.h"
#include "process/ApplicationMonitor.h"
#include "records/RecordLayouts.h"
#include "records/RecordMapping.h"
#include "support/HostPaths.h"
#include "support/HostProfile.h"
#include "support/Switches.h"
#include "support/TextFile.h"
#include "support/TrimmedText.h"
#include "userdata/EventFile.h"
#include "userdata/FileFault.h"
#include "userdata/WorkGroup.h"
#include "userdata/WorkgroupFile.h"

namespace {

enum CheckResult : int { kClean = 0, kFaulty = 1, kNotChecked = 2 };

/// What a reader says of a file.
struct Finding {
  std::string error;  ///< why the file can't be read at all; empty if it can
  std::vector<FileFault> faults;
};

Finding CheckWorkgroups(const std::string& path) {
  mondWgFile file;
  if (file.mondInitFileAnalyze(path.c_str()) != 0) {
    return {path + ": " + file.Faults().front().text, {}};
  }
  WorkGroup* group = nullptr;
  for (int rc = 0; (rc = file.mondGetWgFileEntry(&group)) != -1;) {
    if (rc == 0) {
      delete group;
    }
  }
  return {"", file.Faults()};
}

Finding CheckEvents(const std::string& path) {
  mondEvFile file;
  file.CheckValues();
  if (file.mondInitFileAnalyze(path.c_str()) != 0) {
    return {path + ": " + file.Faults().front().text, {}};
  }
  std::array<char, mondEvFile::kBufferSize> logfile{};
  std::array<char, mondEvFile::kBufferSize> id{};
  std::array<char, mondEvFile::kBufferSize> regexp{};
  while (file.mondGetEvFileEntry(logfile.data(), id.data(), regexp.data()) != -1) {
  }
  return {"", file.Faults()};
}

Finding CheckApplications(const std::string& path) {
  ApplicationMonitor applications;
  // The faults tell more than the result.
  static_cast<void>(applications.ReadFile(path));
  return {"", applications.Faults()};
}

Finding CheckOptionalRecords(const std::string& path) {
  Finding finding;
  static_cast<void>(ReadOptrecsFile(path, [&](int line, const std::string& what) {
    finding.faults.push_back({line, what});
  }));
  return finding;
}

/// Has the node know every record that a site may switch on.
void PublishAllRecords() {
  std::vector<RecordListing> listing;
  for (const auto rows : {UnixBaseRecordMappings(), PoolRecordMappings(), ModernRecordMappings()}) {
    for (const RecordMapping& row : rows) {
      listing.push_back({row.name, static_cast<unsigned char>(row.category), true, {}});
    }
  }
  PublishLayouts();
  LayoutRegistry::Instance().PublishListing(std::move(listing));
}

/// The profile that a settings file asks for; none where there is no file.
std::optional<HostProfile> ProfileOf(const std::string& ini) {
  if (!OpenTextFile(ini)) {
    return std::nullopt;
  }
  const IniListing listing = ActiveNodeLayer().ListIniFile(ini.c_str());
  for (const IniSetting& setting : listing.settings) {
    if (IsHostProfile(setting)) {
      return HostProfileOf(setting.value).value_or(HostProfile::kClassic);
    }
  }
  return HostProfile::kClassic;
}

Finding CheckIni(const std::string& path) {
  g_hostProfile = ProfileOf(path).value_or(HostProfile::kClassic);
  PublishAllRecords();
  IniListing listing = ActiveNodeLayer().ListIniFile(path.c_str());
  Finding finding{listing.error, {}};
  const std::vector<IniProblem> own = AgentSettingProblems(listing.settings);
  listing.problems.insert(listing.problems.end(), own.begin(), own.end());
  for (const IniProblem& problem : listing.problems) {
    finding.faults.push_back({static_cast<int>(problem.line), problem.text});
  }
  return finding;
}

Finding CheckAlarms(const std::string& path) {
  // Without settings beside it, all records are there.
  const std::string ini = path.substr(0, path.rfind('/') + 1) + kIniName;
  g_hostProfile = ProfileOf(ini).value_or(HostProfile::kModern);
  PublishAllRecords();
  const IniListing listing = ActiveNodeLayer().ListAlarmFile(path.c_str());
  Finding finding{listing.error, {}};
  for (const IniProblem& problem : listing.problems) {
    finding.faults.push_back({static_cast<int>(problem.line), problem.text});
  }
  return finding;
}

struct FileKind {
  const char* name;
  const char* fileName;  ///< empty for none
  const char* keyword;   ///< null if no keyword tells the kind
  Finding (*check)(const std::string& path);
};

constexpr std::array kKinds{
    FileKind{"workgroup", "wgfile", "workgroup", CheckWorkgroups},
    FileKind{"event", "", "logfile", CheckEvents},
    FileKind{"application", "qmtapp", nullptr, CheckApplications},
    FileKind{"optional", "optrecs.dat", nullptr, CheckOptionalRecords},
    FileKind{"ini", kIniName, nullptr, CheckIni},
    FileKind{"alarms", "alarms", "alarm", CheckAlarms},
};

template <class Condition>
const FileKind* FindKind(const Condition& condition) {
  const auto* found = std::find_if(kKinds.begin(), kKinds.end(), condition);
  return found == kKinds.end() ? nullptr : found;
}

std::string KindNames() {
  std::string names;
  for (const FileKind& kind : kKinds) {
    names += (names.empty() ? "" : ", ") + std::string(kind.name);
  }
  return names;
}

/// The kind whose keyword stands first in the text, in front of a '='.
const FileKind* KindOfText(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\v\f";
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    const std::string key(Trimmed(line.substr(0, line.find('=')), kBlanks));
    if (line.find('=') == std::string_view::npos || key.starts_with('#')) {
      continue;
    }
    if (const FileKind* kind = FindKind([&](const FileKind& each) {
          return each.keyword != nullptr && ::strcasecmp(each.keyword, key.c_str()) == 0;
        })) {
      return kind;
    }
  }
  return nullptr;
}

/// A keyword that comes later than this doesn't tell the kind.
constexpr std::size_t kSearchedBytes = 65536;

std::string BeginOf(std::FILE* file) {
  std::string text(kSearchedBytes, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), file));
  return text;
}

/// A line for a terminal: characters that could steer it are written out.
std::string Printable(std::string_view text) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  std::string safe;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const bool isLatin = i > 0 && text[i - 1] == '\xC2' && byte >= 0x80 && byte < 0xA0;
    if (byte < ' ' || byte == 0x7F || isLatin) {
      safe += "\\x";
      safe += kDigits[byte >> 4U];
      safe += kDigits[byte & 15U];
    } else {
      safe += text[i];
    }
  }
  return safe;
}

int Complain(const std::string& words) {
  std::fprintf(stderr, "qmtdmon: %s\n", Printable(words).c_str());
  return kNotChecked;
}

int Report(const std::string& path, Finding finding) {
  if (!finding.error.empty()) {
    return Complain(finding.error);
  }
  std::stable_sort(
      finding.faults.begin(), finding.faults.end(),
      [](const FileFault& left, const FileFault& right) { return left.line < right.line; });
  for (const FileFault& fault : finding.faults) {
    const std::string place = fault.line > 0 ? ":" + std::to_string(fault.line) : "";
    std::printf("%s\n", Printable(path + place + ": " + fault.text).c_str());
  }
  if (std::fflush(stdout) != 0) {
    return Complain("cannot write the output");
  }
  return finding.faults.empty() ? kClean : kFaulty;
}

int Check(const std::string& path, const FileKind* kind) {
  const TextFilePtr file = OpenTextFile(path);
  if (!file) {
    return Complain(path + ": " + (errno == EINVAL ? "is no regular file" : std::strerror(errno)));
  }
  if (kind == nullptr) {
    const std::string name = path.substr(path.rfind('/') + 1);
    kind = FindKind([&](const FileKind& each) { return name == each.fileName; });
  }
  if (kind == nullptr) {
    kind = KindOfText(BeginOf(file.get()));
  }
  if (kind == nullptr) {
    return Complain(
        path +
        ": the kind of this file can't be told, since none of \"workgroup\", \"logfile\" "
        "and \"alarm\" stands in it; name it with --kind (" +
        KindNames() + ")");
  }
  return Report(path, kind->check(path));
}

}  // namespace

int CheckFile(int argc, char** argv) {
  const bool hasKind = argc == 5 && std::strcmp(argv[3], "--kind") == 0;
  if ((argc != 3 && !hasKind) || *argv[2] == '\0') {
    return Complain("usage: qmtdmon --check FILE [--kind KIND]");
  }
  const FileKind* kind = nullptr;
  if (hasKind) {
    kind = FindKind([&](const FileKind& each) { return std::strcmp(each.name, argv[4]) == 0; });
    if (kind == nullptr) {
      return Complain(std::string("\"") + argv[4] + "\" is none of " + KindNames());
    }
  }
  // The faults are told here; the readers' messages to the running agent's log are not.
  g_msgLogLevel = 0;
  SetProductRoot("");
  return Check(argv[2], kind);
}
