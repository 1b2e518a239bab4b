#include "local/AlarmSettings.h"

#include <utility>

#include "local/SectionReader.h"
#include "local/ini/IniSection.h"

namespace {

constexpr long kMostCommandSeconds = 3600;
constexpr long kMostCommands = 64;

struct ReadAlarms {
  AlarmSettings settings;
  std::vector<IniProblem> problems;
};

ReadAlarms ReadSectionAlarms(const LocalIniFile& ini) {
  SectionReader section(kAlarmSection, SectionSettings(ini, kAlarmSection));
  AlarmSettings settings;
  if (const IniSetting* file = section.Find("File"); file != nullptr) {
    settings.file = file->value;
    settings.isFileNamed = true;
  }
  // A path is put behind it.
  settings.alertmanagers = section.Urls("Alertmanager", UrlQuery::kRefused);
  settings.webhooks = section.Urls("Webhook");
  settings.link = section.Url("Link");
  if (const IniSetting* command = section.Find("Command"); command != nullptr) {
    if (command->value.starts_with('/')) {
      settings.command = command->value;
    } else {
      section.NoteWrong(*command, "an absolute path");
    }
  }
  settings.commandSeconds = static_cast<int>(
      section.Whole("Command Seconds", 1, kMostCommandSeconds, settings.commandSeconds));
  settings.commands =
      static_cast<int>(section.Whole("Commands", 1, kMostCommands, settings.commands));
  settings.keys = ReadSendingKeys(section);
  if (settings.keys.isFaulty) {
    // Without them a receiver would be asked as somebody else.
    settings.lacksReceivers = !settings.alertmanagers.empty() || !settings.webhooks.empty();
    settings.alertmanagers.clear();
    settings.webhooks.clear();
  }
  return {std::move(settings), section.Finish()};
}

}  // namespace

AlarmSettings ReadAlarmSettings(const LocalIniFile& ini) { return ReadSectionAlarms(ini).settings; }

std::vector<IniProblem> AlarmProblems(const LocalIniFile& ini) {
  return ReadSectionAlarms(ini).problems;
}

Json AlarmReceiversJson(const AlarmSettings& settings, std::string (*path)(const std::string&)) {
  return Json{{"alertmanager", settings.alertmanagers},
              {"webhook", settings.webhooks},
              {"user", settings.keys.user},
              {"password_file", path(settings.keys.passwordFile.path)},
              {"token_file", path(settings.keys.tokenFile.path)},
              {"authority", path(settings.keys.authority.path)},
              {"link", settings.link}};
}
