#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "userdata/DefinitionFile.h"
#include "userdata/WorkGroup.h"

/// The workgroup definition file: entries of one workgroup each, opened by `workgroup`, with lists
/// of names and `regexp` lines of clauses `{Kind=items}`.
class mondWgFile : public mondFile {
 public:
  /// Opens the file, as the base does, and enters the keywords.
  [[nodiscard]] int mondInitFileAnalyze(const char* path);
  /// The next entry as a new workgroup, which the caller owns. 0, -1 at the end, -2 if the entry is
  /// refused.
  [[nodiscard]] int mondGetWgFileEntry(WorkGroup** out);
  /// Adds the items of a `regexp` line's clauses to the workgroup. 0, or -1 for an open quote, or
  /// -2.
  [[nodiscard]] int ParseRegexpr(WorkGroup** wg, const std::string& value);

  /// Forgets which kinds of names have had their one check of length in this process.
  static void ResetLengthChecks();

 private:
  [[nodiscard]] static int IndexOf(std::string_view key);
  /// False if the line costs its entry.
  [[nodiscard]] bool TakeLine(std::unique_ptr<WorkGroup>& group, const x_mondline& line);
  /// Splits a value into items and adds them. 0, -1 for an open quote, -2 without an item.
  [[nodiscard]] int AddItems(WorkGroup& group, int index, const std::string& value, bool isRegexp);
  void CheckLength(const WorkGroup& group, WorkgroupList list, std::size_t length);
  void NoteName(const WorkGroup& group, const x_mondline& line);
  /// Notes why a value was refused; the result is `code`.
  [[nodiscard]] int Refuse(int code, const std::string& reason);

  std::array<std::int32_t, kWorkgroupLists> m_lengths{};  ///< summed over an entry, by list
  std::set<std::string> m_names;
  std::string m_refusal;
  std::vector<std::string> m_badExpressions;  ///< of the line at work
};
