#pragma once

#include <memory>
#include <string>
#include <vector>

#include "local/control/ControlRequest.h"
#include "local/ini/LocalIniFile.h"
#include "local/schedule/ScheduleBook.h"

/// What is collected where the ini file has no section "Schedule" yet, by the host profile; under
/// `modern` the applications too, where some are defined.
[[nodiscard]] std::vector<ScheduleLine> DefaultSchedule();
/// Writes the default schedule of those records that are served into such a file. False, with the
/// reason in `error`, if that fails.
[[nodiscard]] bool WriteDefaultSchedule(LocalIniFile& ini, std::string& error);

/// The operations that change the schedule at run time: `schedule_set` and `schedule_remove`. Each
/// stands in the ini file before it is in force.
class ScheduleQueries {
 public:
  explicit ScheduleQueries(ScheduleBook& book) : m_book(book) {}

  void SetIniFile(std::string directory, std::string name) {
    m_directory = std::move(directory);
    m_name = std::move(name);
  }
  void Set(const std::shared_ptr<ControlRequest>& request);
  void Remove(const std::shared_ptr<ControlRequest>& request);

 private:
  [[nodiscard]] std::unique_ptr<LocalIniFile> OpenIni(const ControlRequest& request) const;

  ScheduleBook& m_book;
  std::string m_directory = ".";
  std::string m_name = "qmtagt.ini";
};
