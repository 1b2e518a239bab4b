#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

/// A table made on demand. Texts need not be UTF-8.
struct Report {
  std::vector<std::string> columns;
  std::vector<std::vector<std::string>> rows;  ///< each as long as `columns`
  std::vector<std::string> notes;              ///< sentences that stand below the table
};

/// What a report is asked for: arguments by name, each once.
using ReportArguments = std::map<std::string, std::string>;

/// Makes the report. Throws std::invalid_argument, in words for the asker, for an argument that it
/// doesn't know or can't use, and std::runtime_error for a report that can't be had.
using ReportFunction = std::function<Report(const ReportArguments& arguments)>;

/// The reports that the agent makes of its state, by name. Whoever adds a report removes it before
/// its end. Reports run on the agent's own thread, between two events.
class ReportRegistry {
 public:
  static ReportRegistry& Instance();

  /// A second report of the same name replaces the first.
  void Add(const std::string& name, ReportFunction function);
  void Remove(const std::string& name);
  /// Null if there is no such report; else valid until the name is added or removed.
  [[nodiscard]] const ReportFunction* Find(const std::string& name) const;

 private:
  std::map<std::string, ReportFunction> m_reports;
};
