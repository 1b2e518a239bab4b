#include "client/doctor/Doctor.h"

#include <algorithm>
#include <array>

#include "client/ask/Errors.h"
#include "client/ask/SafeText.h"
#include "client/doctor/DaemonChecks.h"
#include "client/doctor/FindFacts.h"
#include "client/doctor/HostChecks.h"
#include "client/doctor/SocketChecks.h"
#include "client/show/Terminal.h"

namespace {

struct Check {
  const char* name;
  MaybeFinding (*judge)(const Facts& facts);
};

constexpr std::array<Check, 14> kChecks{{{"socket", CheckSocket},
                                         {"access", CheckAccess},
                                         {"answer", CheckAnswer},
                                         {"rights", CheckRights},
                                         {"version", CheckVersion},
                                         {"profile", CheckProfile},
                                         {"schedule", CheckSchedule},
                                         {"history", CheckHistory},
                                         {"disk", CheckDisk},
                                         {"clock", CheckClock},
                                         {"programs", CheckPrograms},
                                         {"port", CheckPort},
                                         {"unit", CheckUnit},
                                         {"files", CheckFiles}}};
constexpr std::size_t kMarkWidth = 6;
constexpr std::size_t kNameWidth = 10;

const char* WordOf(Finding::Mark mark) {
  return mark == Finding::Mark::kOk ? "ok" : mark == Finding::Mark::kLook ? "look" : "fail";
}

std::string Padded(std::string text, std::size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text;
}

std::string LineOf(const Diagnosis& diagnosis, const Screen& screen) {
  const Finding& finding = diagnosis.finding;
  const std::string mark = Padded(WordOf(finding.mark), kMarkWidth);
  return (finding.mark == Finding::Mark::kOk ? mark : Emphasize(mark, screen)) +
         Padded(diagnosis.check, kNameWidth) + SafeText(finding.text) + '\n';
}

std::string JsonOfAll(const std::vector<Diagnosis>& diagnoses) {
  Json all = Json::Array();
  for (const Diagnosis& diagnosis : diagnoses) {
    all.PushBack({{"check", diagnosis.check},
                  {"mark", WordOf(diagnosis.finding.mark)},
                  {"text", diagnosis.finding.text}});
  }
  return ShownJson(all, 2) + '\n';
}

}  // namespace

std::vector<Diagnosis> Diagnose(const Facts& facts) {
  std::vector<Diagnosis> diagnoses;
  for (const Check& check : kChecks) {
    if (MaybeFinding finding = check.judge(facts)) {
      diagnoses.push_back({check.name, *std::move(finding)});
    }
  }
  return diagnoses;
}

int RunDoctor(const CommonOptions& common, bool json) {
  Facts facts;
  facts.version = QMT_VERSION;
  facts.socket = FindSocket(common.socket);
  facts.daemon = FindDaemon(common.socket);
  facts.host = FindHost(common.socket, facts.daemon);
  const std::vector<Diagnosis> diagnoses = Diagnose(facts);
  std::string text = json ? JsonOfAll(diagnoses) : "";
  bool isAnyFailed = false;
  const Screen screen = ReadScreen(common.color);
  for (const Diagnosis& diagnosis : diagnoses) {
    text += json ? "" : LineOf(diagnosis, screen);
    isAnyFailed = isAnyFailed || diagnosis.finding.mark == Finding::Mark::kFail;
  }
  WriteOutput(text);
  return isAnyFailed ? kExitFailed : kExitDone;
}
