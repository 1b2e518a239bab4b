#pragma once

class CPqlPrs;

/// Finds the string value that a statement's WHERE part demands of a field.
class PqlConditionFinder {
 public:
  /// The statement is not owned and outlives the finder; null finds nothing.
  explicit PqlConditionFinder(const CPqlPrs* statement) : m_statement(statement) {}

  /// The single string of the first condition "field = string", looking at a group's conditions
  /// before its nested groups; null if there is none, or for a null name. Owned by the statement.
  [[nodiscard]] const char* Find(const char* fieldName) const;

 private:
  const CPqlPrs* m_statement;
};
