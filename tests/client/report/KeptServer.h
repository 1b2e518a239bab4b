#pragma once

#include "tests/client/ClientHarness.h"

/// A daemon of the tests that has kept rows, each of which holds its "Record Time", and gives them
/// a page at a time or summed to points.
class KeptServer {
 public:
  using Rows = std::map<std::string, std::vector<Json>>;

  /// `rows`: by record, the oldest first; a record without any is served as well. Each is on a
  /// schedule of `every` seconds. `pageRows` rows are a page.
  KeptServer(Rows rows, double every, std::size_t pageRows = 1000);

  [[nodiscard]] const std::string& Path() const { return m_server.Path(); }
  [[nodiscard]] std::vector<Json> Requests() const { return m_server.Requests(); }
  /// The history questions for rows of the record so far.
  [[nodiscard]] std::size_t Asked(const std::string& record) const;

 private:
  [[nodiscard]] std::string Reply(const Json& request) const;
  [[nodiscard]] Json Status() const;
  [[nodiscard]] Json Records() const;
  [[nodiscard]] std::vector<Json> Between(const Json& request) const;
  [[nodiscard]] Json Page(const Json& request) const;
  [[nodiscard]] Json Points(const Json& request) const;

  ScratchFolder m_folder;
  Rows m_rows;
  double m_every;
  std::size_t m_pageRows;
  ScriptedServer m_server{m_folder.Path(), "s",
                          [this](const Json& request) { return Reply(request); }};
};
