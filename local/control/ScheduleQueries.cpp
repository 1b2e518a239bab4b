#include "local/control/ScheduleQueries.h"

#include <array>
#include <optional>
#include <utility>

#include "json/JsonText.h"
#include "local/schedule/BatchDesk.h"
#include "node/LayoutRegistry.h"
#include "node/Trace.h"
#include "support/HostProfile.h"

namespace {

constexpr const char* kSection = "Schedule";

/// Nothing, once the request has failed, if the message names no record.
std::optional<std::string> ReadRecord(const ControlRequest& request) {
  const Json* record = request.Message().Find("record");
  if (record == nullptr || !record->IsString()) {
    request.Fail({"bad-field", "record must be the name of a record", "record"});
    return std::nullopt;
  }
  return record->Text();
}

/// 0, once the request has failed, if the message has no seconds within the limits.
long ReadSeconds(const ControlRequest& request) {
  const Json* value = request.Message().Find("seconds");
  const long seconds =
      value != nullptr && value->IsWhole() ? ScheduleBook::ParseSeconds(JsonText(*value)) : 0;
  if (seconds == 0) {
    request.Fail({"bad-field", "seconds must be a whole number from 1 to 86400", "seconds"});
  }
  return seconds;
}

bool IsServed(const ControlRequest& request, const std::string& record) {
  switch (CheckRecord(record, 0)) {
    case RequestOutcome::kDone:
      return true;
    case RequestOutcome::kUnknownRecord:
      request.Fail({"unknown-record", "no record \"" + record + "\"", "record"});
      return false;
    default:
      request.Fail({"not-served", "the record " + record + " is not served", "record"});
      return false;
  }
}

/// Whether a schedule collects that record; fails the request if none does.
bool IsScheduled(const ScheduleBook& book, const ControlRequest& request,
                 const std::string& record) {
  std::string hint;
  for (const auto& entry : book.Entries()) {
    const std::string scheduled = entry->asker->Record();
    if (scheduled == record) {
      return true;
    }
    if (xlb_stricmp(record.c_str(), scheduled.c_str()) == 0) {
      hint = "; did you mean \"" + scheduled + "\"?";
    }
  }
  request.Fail({"not-scheduled", "no schedule collects the record " + record + hint, "record"});
  return false;
}

}  // namespace

std::vector<ScheduleLine> DefaultSchedule() {
  struct Row {
    const char* record;
    const char* seconds;
    bool isClassic;
    bool isModern;
  };
  static constexpr std::array kRows{Row{"PI", "60", true, true},    Row{"CPUP", "60", true, true},
                                    Row{"CPUX", "60", false, true}, Row{"DEVD", "60", true, false},
                                    Row{"DISK", "60", false, true}, Row{"NIND", "60", true, false},
                                    Row{"NETD", "60", false, true}, Row{"SOCK", "60", false, true},
                                    Row{"MEMD", "60", false, true}, Row{"KERN", "60", false, true},
                                    Row{"PRES", "60", false, true}, Row{"CGRP", "60", false, true},
                                    Row{"WGRP", "60", true, true},  Row{"PDS", "60", true, true},
                                    Row{"FSL", "60", true, true},   Row{"PDX", "300", false, true},
                                    Row{"PDI", "300", true, true}};
  const bool isModern = g_hostProfile == HostProfile::kModern;
  std::vector<ScheduleLine> lines;
  for (const Row& row : kRows) {
    if (isModern ? row.isModern : row.isClassic) {
      lines.push_back({row.record, row.seconds, 0});
    }
  }
  if (isModern && !LayoutRegistry::Instance().IsIdle("APP")) {
    lines.push_back({"APP", "60", 0});
  }
  return lines;
}

bool WriteDefaultSchedule(LocalIniFile& ini, std::string& error) {
  for (const ScheduleLine& line : DefaultSchedule()) {
    if (CheckRecord(line.record, 0) == RequestOutcome::kDone &&
        !ini.Write(line.seconds.c_str(), line.record.c_str(), kSection, nullptr, error)) {
      return false;
    }
  }
  return true;
}

std::unique_ptr<LocalIniFile> ScheduleQueries::OpenIni(const ControlRequest& request) const {
  std::string error;
  std::unique_ptr<LocalIniFile> ini = LocalIniFile::Open(m_directory, m_name, error);
  if (ini == nullptr) {
    request.Fail({"not-written", error, ""});
  }
  return ini;
}

void ScheduleQueries::Set(const std::shared_ptr<ControlRequest>& request) {
  const std::optional<std::string> record = ReadRecord(*request);
  if (!record || !IsServed(*request, *record)) {
    return;
  }
  const long seconds = ReadSeconds(*request);
  const std::unique_ptr<LocalIniFile> ini = seconds == 0 ? nullptr : OpenIni(*request);
  if (ini == nullptr) {
    return;
  }
  std::string error;
  if (!ini->Write(std::to_string(seconds).c_str(), record->c_str(), kSection, nullptr, error,
                  KeySpelling::kGiven)) {
    request->Fail({"not-written", error, ""});
    return;
  }
  m_book.Set(*record, seconds);
  request->Succeed();
}

void ScheduleQueries::Remove(const std::shared_ptr<ControlRequest>& request) {
  const std::optional<std::string> record = ReadRecord(*request);
  // Its lines would be taken out all the same, in any case of their letters.
  if (!record || !IsScheduled(m_book, *request, *record)) {
    return;
  }
  const std::unique_ptr<LocalIniFile> ini = OpenIni(*request);
  if (ini == nullptr) {
    return;
  }
  std::string error;
  if (!ini->Remove(record->c_str(), kSection, error)) {
    request->Fail({"not-written", error, ""});
    return;
  }
  static_cast<void>(m_book.Remove(*record));
  request->Succeed();
}
