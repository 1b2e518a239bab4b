#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "agent/ConfigNames.h"
#include "agent/DayTime.h"
#include "agent/UnixAgent.h"
#include "support/ProductOptions.h"
#include "support/TraceLog.h"

namespace {

constexpr int kDone = 0;
constexpr int kNotWritten = 1;
constexpr int kRefused = -36;
constexpr int kFailed = -1;
/// A trace's name for an item of an application, spelt as its readers know it.
constexpr const char* kApplicationItemName = "Applicatoin Param";

/// Digits alone, and at least 1.
bool IsDataMaxCount(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }) &&
         std::strtol(text.c_str(), nullptr, 10) >= 1;
}

int RefuseApplicationItem() {
  Message(10203, kApplicationFile);
  return kRefused;
}

}  // namespace

/// What each identifier changes. A change reaches the file first and the agent second, so that a
/// failed write changes nothing; only the messages file's name and the list of applications are
/// noted in any case.
class UnixAgent::ConfigUpdates {
 public:
  struct Change {
    std::uint16_t id;
    std::string text;
    std::uint16_t choice;
    bool hasChoice;
  };
  struct Row {
    std::uint16_t id;
    bool isChoice;
    int (*apply)(UnixAgent& agent, const Change& change);
  };

  static Row Find(std::uint16_t id) {
    static constexpr std::array kRows{
        Row{kUFSSTimeId, false, ChangeUFSSTime},
        Row{kMessagesFileId, false, ChangeMessagesFile},
        Row{kAccountingFileId, false, ChangeAccountingFile},
        Row{kUseAccountingId, true,
            [](UnixAgent& agent, const Change& change) {
              return ChangeLetter(agent, agent.m_useAccounting, kUseAccountingLabel, change);
            }},
        Row{kLogDiedId, true,
            [](UnixAgent& agent, const Change& change) {
              return ChangeLetter(agent, agent.m_logDied, kLogDiedLabel, change);
            }},
        Row{kTruncateId, true,
            [](UnixAgent& agent, const Change& change) {
              return ChangeLetter(agent, agent.m_truncateAccounting, kTruncateLabel, change);
            }},
        Row{kDataMaxCountId, false, ChangeDataMaxCount},
        Row{kAddApplicationId, false, AddApplication},
        Row{kDeleteApplicationId, true, DeleteApplication},
    };
    const auto* row = std::find_if(kRows.begin(), kRows.end(),
                                   [id](const Row& candidate) { return candidate.id == id; });
    if (row != kRows.end()) {
      return *row;
    }
    const bool isChoice =
        id >= kFirstApplicationItemId && ((id - kFirstApplicationItemId) & kItemMask) == kKindItem;
    return {id, isChoice, ChangeApplicationItem};
  }

 private:
  static constexpr int kItemMask = 3;

  static int ChangeUFSSTime(UnixAgent& agent, const Change& change) {
    if (!agent.HasUFSS() || change.text == agent.m_ufssTime) {
      return kDone;
    }
    std::string time = change.text;
    if (isValidTime(time.data()) == 0) {
      return kRefused;
    }
    if (!agent.WriteOption(kUFSSTimeLabel, time)) {
      return kNotWritten;
    }
    agent.m_ufssTime = time.substr(0, kShortText - 1);
    agent.ScheduleUFSS();
    return kDone;
  }

  static int ChangeMessagesFile(UnixAgent& agent, const Change& change) {
    if (change.text == agent.m_messagesFile) {
      return kDone;
    }
    agent.m_messagesFile = change.text.substr(0, kLongText - 1);
    if (!agent.WriteOption(kMessagesFileLabel, agent.m_messagesFile)) {
      return kNotWritten;
    }
    ProductOptions::Instance().Set("Messages", "FileName", agent.m_messagesFile.c_str());
    return kDone;
  }

  static int ChangeAccountingFile(UnixAgent& agent, const Change& change) {
    if (change.text == agent.m_accountingFile) {
      return kDone;
    }
    if (change.text.empty()) {
      return kRefused;
    }
    if (!agent.WriteOption(kAccountingFileLabel, change.text)) {
      return kNotWritten;
    }
    agent.m_accountingFile = change.text.substr(0, kLongText - 1);
    ProductOptions::Instance().Set("Acct", "FileName", agent.m_accountingFile.c_str());
    return kDone;
  }

  static int ChangeLetter(UnixAgent& agent, std::string& letter, const char* label,
                          const Change& change) {
    if (!change.hasChoice) {
      return kRefused;
    }
    const std::string wanted = change.choice == 0 ? "Y" : "N";
    if (wanted == letter) {
      return kDone;
    }
    if (!agent.WriteOption(label, wanted)) {
      return kNotWritten;
    }
    letter = wanted;
    return kDone;
  }

  static int ChangeDataMaxCount(UnixAgent& agent, const Change& change) {
    if (change.text == agent.m_dataMaxCount) {
      return kDone;
    }
    if (!IsDataMaxCount(change.text)) {
      Trace(20, kError, "Invalid User Defined Record DataMaxCount found! %1", "");
      return kRefused;
    }
    if (!agent.WriteOption(kDataMaxCountLabel, change.text)) {
      return kNotWritten;
    }
    agent.m_dataMaxCount = change.text.substr(0, kShortText - 1);
    ProductOptions::Instance().Set("User", "DataMaxCount", agent.m_dataMaxCount.c_str());
    return kDone;
  }

  static int AddApplication(UnixAgent& agent, const Change& change) {
    if (change.text.empty()) {
      return kDone;
    }
    int rc = kDone;
    if (agent.m_applications.add(change.text.c_str()) == 0) {
      Trace(20, kError, "Config error. (NAME=%1)(PARAM=%2).", kAddApplicationLabel, change.text);
      rc = kRefused;
    }
    if (agent.m_applications.GetCount() == 1 && !agent.SaveApplications() && rc == kDone) {
      rc = kNotWritten;
    }
    return rc;
  }

  static int DeleteApplication(UnixAgent& agent, const Change& change) {
    int rc = kDone;
    if (change.choice != 0 && agent.m_applications.remove(change.choice - 1) == 0) {
      Trace(20, kError, "Config error. (NAME=%1)(PARAM=%2).", kDeleteApplicationLabel,
            change.choice);
      rc = kRefused;
    }
    return agent.SaveApplications() || rc != kDone ? rc : kNotWritten;
  }

  static int ChangeApplicationItem(UnixAgent& agent, const Change& change) {
    const int place = change.id - kFirstApplicationItemId;
    if (place < 0) {
      return kDone;
    }
    const int application = (place >> kApplicationShift) & kApplicationMask;
    const int process = (place >> kProcessShift) & kProcessMask;
    if (application < agent.m_applications.GetCount() && process < ApplicationMonitor::kProcesses &&
        SetApplicationItem(agent.m_applications, application, process, place & kItemMask, change)) {
      return kDone;
    }
    Trace(20, kError, "Config error. (NAME=%1)(PARAM=%2).", kApplicationItemName,
          change.text.empty() ? std::to_string(change.choice) : change.text);
    return RefuseApplicationItem();
  }

  static bool SetApplicationItem(ApplicationMonitor& applications, int application, int process,
                                 int item, const Change& change) {
    switch (item) {
      case kKindItem:
        if (!change.hasChoice || change.choice > ApplicationMonitor::kCommandLine) {
          return false;
        }
        applications.SetKind(application, process,
                             static_cast<ApplicationMonitor::Kind>(change.choice));
        return true;
      case kPatternItem:
        return applications.SetPattern(application, process, change.text.c_str()) != 0;
      case kRangeItem:
        return applications.SetRange(application, process, change.text.c_str()) != 0;
      default:
        return false;
    }
  }
};

int UnixAgent::NotifyEvent(CMBNodeConfigUpdate* event) {
  TraceEntry("UnixAgent::NotifyEvent", AddressOf(event));
  if (event == nullptr) {
    Trace(20, kInformation, "pNodeConfigUpdate is NULL");
    TraceExit("UnixAgent::NotifyEvent");
    return kFailed;
  }
  if (GetIniFile() == nullptr) {
    Trace(20, kInformation, "GetIniFile failed");
    TraceExit("UnixAgent::NotifyEvent");
    return kFailed;
  }
  Trace(20, kInformation, "Node config (Type=%1) update start.", event->id());
  const ConfigUpdates::Change change{event->id(), static_cast<const char*>(*event),
                                     event->currentValue(), event->HasChoice()};
  const ConfigUpdates::Row row = ConfigUpdates::Find(change.id);
  const int rc = row.apply(*this, change);
  Trace(20, kInformation, "Node config (Type=%1) update end. (Value=%2, rc=%3)", change.id,
        row.isChoice ? std::to_string(change.choice) : change.text, rc);
  TraceExit("UnixAgent::NotifyEvent");
  return rc;
}
