#pragma once

#include <map>
#include <string>
#include <vector>

/// What the view remembers: the file view.ini in the folder qmtctl of $XDG_CONFIG_HOME, or of
/// ~/.config. Lines "RECORD = LABEL,LABEL" below [Columns]; others are left as they are.
class ViewSettings {
 public:
  /// Reads the file. One that is not there is empty; one that can't be read or has lines that can't
  /// be understood is told in Complaint().
  ViewSettings();

  /// Labels of the columns chosen for a record; none where nothing is.
  [[nodiscard]] std::vector<std::string> ColumnsOf(const std::string& record) const;
  /// Remembers them, none to forget them, and replaces the file. False, with the reason in
  /// Complaint(), if it can't be written.
  bool SetColumns(const std::string& record, const std::vector<std::string>& labels);

  /// What the operator has to know; empty for nothing.
  [[nodiscard]] const std::string& Complaint() const { return m_complaint; }

 private:
  void Read();
  [[nodiscard]] std::string Text() const;

  std::string m_path;  ///< empty without a home
  std::vector<std::string> m_otherLines;
  std::map<std::string, std::vector<std::string>> m_columns;
  std::string m_complaint;
  bool m_isReadable = true;
};
